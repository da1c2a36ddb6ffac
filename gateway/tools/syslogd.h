// The gateway's system log.
#pragma once

#include <string>
#include <string_view>

// One datagram of syslog(3) as a line of the log, without the line feed: "<priority> <ident> <text>". Line
// feeds in the text become the two characters \n, the time and the process number are left out.
std::string log_line(std::string_view datagram);

// Catches what is sent to /dev/log and appends it to /gateway/log. Messages are kept from the moment when
// /dev/log exists; SIGINT or SIGTERM ends it once all that were sent before are in the log. Throws
// std::system_error when the socket or the log cannot be used.
void run_syslogd();
