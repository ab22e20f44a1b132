// The library's one log line format: "LOG (function(): ,line), message".
#ifndef EQDRC_CORE_LOG_H
#define EQDRC_CORE_LOG_H

namespace eqdrc {

// Where a message comes from, as hosts and tests know it: the function name and line
// number in its prefix.  They match those, so a site is a fixed value, never __LINE__.
// Each folder keeps the table of its own sites in its *_log.h (namespace site).  A
// parameter print-out gives the title and heading lines there; its other lines follow on
// the next numbers (core/print_out.h).
struct LogSite {
    const char *function;
    int line;
};

// Writes one line to standard error (or the host's sink): the prefix with the site's function and line, then
// the printf-formatted message.  Returns the number of characters written, as printf
// does.
int log_line(LogSite site, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Where log_line's lines go instead of standard error (null: standard error).
using LogSinkFunction = void (*)(void *user, const char *line, int length);
void set_log_sink(LogSinkFunction sink, void *user);

// Ends the process with the status the library uses for misuse it cannot survive.
[[noreturn]] void fatal_exit();

}  // namespace eqdrc

#endif
