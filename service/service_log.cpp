// Logging to syslog and standard output from one argument list.
#include "service/service_log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

void serviceLog(int level, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;  // a va_list is used up by the first formatting
    va_copy(again, arguments);
    vsyslog(level, format, arguments);
    std::fputs(tag, stdout);
    std::vprintf(format, again);
    std::putchar('\n');  // Kept: no flush
    va_end(again);
    va_end(arguments);
}
