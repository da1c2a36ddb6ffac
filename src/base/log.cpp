#include "base/log.h"

#include <cstdarg>
#include <syslog.h>

void log_open()
{
    openlog("korvel", LOG_CONS | LOG_PID, LOG_DAEMON);
}

void log_close()
{
    closelog();
}

void log_error(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    vsyslog(LOG_ERR, pattern, arguments);
    va_end(arguments);
}

void log_warning(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    vsyslog(LOG_WARNING, pattern, arguments);
    va_end(arguments);
}

void log_info(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    vsyslog(LOG_INFO, pattern, arguments);
    va_end(arguments);
}
