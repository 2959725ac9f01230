// The service's one logging helper: every message goes to syslog and to standard output.
#pragma once

// The tag that goes with each syslog level on standard output.
namespace log_tag {
inline constexpr const char* kError = "[ERR] ";  // with LOG_ERR
inline constexpr const char* kInfo = "[NFO] ";  // with LOG_INFO
inline constexpr const char* kDebug = "[DEB] ";  // with LOG_DEBUG
}  // namespace log_tag

// Sends the printf-style message to syslog at `level`, then prints `tag`, the message and a line
// end to standard output, which is never flushed explicitly. A message that itself ends in "\n" is
// followed by an empty line there. Any thread.
void serviceLog(int level, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
