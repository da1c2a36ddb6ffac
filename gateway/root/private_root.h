// A private root: an ordinary program gets a machine of its own (mounts, processes, network, host name) which
// looks like the machine it was started on, with a gateway's files laid over it. Nothing done inside reaches
// the machine itself, and everything started inside ends with it.
#pragma once

#include "root/root_options.h"

#include <functional>

// Exit status when the root could not be built; the failing step is then on standard error.
inline constexpr int private_root_failed = 125;

// Runs `body` in a new private root and waits for it. Returns the body's result as an exit status (0..255),
// 128 plus the signal's number when a signal ended it, or private_root_failed. SIGINT, SIGTERM, SIGHUP and
// SIGQUIT sent to the caller meanwhile are passed on to the body.
//
// The body runs in a child process, which ends by exit() with its result; the caller's memory does not
// change. Inside, process 1 collects orphans; once the body has ended, it ends too and with it whatever else
// still runs. Needs root or, for an ordinary user, a kernel that allows user namespaces (the user is root
// inside then). The calling process should have one thread only.
int enter_private_root(const private_root_options &options, const std::function<int()> &body);
