// The library's one log line format: "LOG (function(): ,line), message".
#ifndef EQDRC_CORE_LOG_H
#define EQDRC_CORE_LOG_H

#include "core/log_sites.h"

namespace eqdrc {

// Writes one line to standard error (or the host's sink): the prefix with the site's function and line, then
// the printf-formatted message.  Returns the number of characters written, as printf
// does.  The sites are the table in core/log_sites.h: hosts and tests match the line
// numbers, so they are never __LINE__.
int log_line(LogSite site, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Where log_line's lines go instead of standard error (null: standard error).
using LogSinkFunction = void (*)(void *user, const char *line, int length);
void set_log_sink(LogSinkFunction sink, void *user);

// Ends the process with the status the library uses for misuse it cannot survive.
[[noreturn]] void fatal_exit();

}  // namespace eqdrc

#endif
