// `korvelctl add`, `modify`, `del` and `cancel`.
#pragma once

#include "ctl/exit_status.h"

#include <span>

exit_status run_add(std::span<char *const> words);
exit_status run_modify(std::span<char *const> words);
exit_status run_del(std::span<char *const> words);
exit_status run_cancel(std::span<char *const> words);
