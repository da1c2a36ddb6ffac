// The system log. A message text is interface: operators search and alert on it, so it is one whole literal.
#pragma once

// Opens the log as "korvel" with the process id, facility daemon, and the console as fall-back.
void log_open();
void log_close();

// Each writes one message at its priority (LOG_ERR, LOG_WARNING, LOG_INFO). Any thread. Every byte that is no
// printable ASCII character is shown as '?', but for a line feed that ends the pattern. A message of more
// than 2,047 bytes is cut and ends in "...".
void log_error(const char *pattern, ...) __attribute__((format(printf, 1, 2)));
void log_warning(const char *pattern, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char *pattern, ...) __attribute__((format(printf, 1, 2)));
