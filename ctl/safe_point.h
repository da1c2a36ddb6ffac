// Safe points: the configurations that WANs stand in and their scripts, as one file that is there whole or
// not at all, and the way back to one. The way back is recorded before it begins, as the daemon's changes
// are, so that it is completed after a crash or a loss of power too: by the daemon's start, or by the next
// change.
#pragma once

#include "base/text.h"
#include "ctl/exit_status.h"

#include <cstddef>
#include <cstdint>
#include <span>

// A safe point's name: 1 to 32 letters, digits, '.', '_' and '-', the first one no '.'.
inline constexpr size_t safe_name_size = 33;
bool is_safe_name(const char *name);

// The name of the safe point that `try` takes, which is no user's.
inline constexpr char try_point[] = ".try";

// Takes a safe point, mode 0600, synced, in the place of one of the same name. Beyond five the oldest goes.
// Tells what fails; then there is no new one, and no old one is lost.
exit_status take_safe_point(const char *name);
void remove_safe_point(const char *name);

// Brings configurations and scripts back to a safe point and has the services reload. What another program
// writes meanwhile is taken back too. The daemon starts anew where its highest identifier changes. Tells what
// fails; what is decided by then is completed later.
enum class daemon_state : uint8_t { runs, stopped };
exit_status go_back_to(const char *name, daemon_state daemon = daemon_state::runs);

// Sends the event that a way back is behind us. Without a bus nobody hears it.
void send_restored(const char *result);

exit_status run_save(std::span<char *const> words);
exit_status run_restore(std::span<char *const> words);
exit_status run_list(std::span<char *const> words);
