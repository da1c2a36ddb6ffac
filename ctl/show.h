// `korvelctl show`.
#pragma once

#include "ctl/exit_status.h"

#include <span>

exit_status run_show(std::span<char *const> words);
