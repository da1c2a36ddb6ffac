// Files of a virtual gateway that its programs share.
#pragma once

inline constexpr char journal_path[] = "/gateway/journal";
inline constexpr char log_path[] = "/gateway/log";
inline constexpr char log_socket_path[] = "/dev/log";
inline constexpr char state_directory[] = "/gateway/state"; // what the stand-ins keep between two calls
