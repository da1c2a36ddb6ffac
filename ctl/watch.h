// `korvelctl watch`.
#pragma once

#include "ctl/exit_status.h"

#include <span>

exit_status run_watch(std::span<char *const> words);
