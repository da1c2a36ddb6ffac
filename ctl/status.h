// `korvelctl status` and what other subcommands show of waiting changes.
#pragma once

#include "ctl/exit_status.h"

#include <span>

exit_status run_status(std::span<char *const> words);
