// `korvelctl add`, `modify` and `del`.
#pragma once

#include "ctl/exit_status.h"

#include <span>

exit_status run_add(std::span<char *const> words);
exit_status run_modify(std::span<char *const> words);
exit_status run_del(std::span<char *const> words);
