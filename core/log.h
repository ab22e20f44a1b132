// The library's one log line format: "LOG (function(): ,line), message".
#ifndef EQDRC_CORE_LOG_H
#define EQDRC_CORE_LOG_H

namespace eqdrc {

// Writes one line to standard error: the prefix with `function` and `line`, then the
// printf-formatted message.  Returns the number of characters written, as printf does.
// The line numbers are part of the messages hosts and tests match, so callers pass the
// number the message is known by, not __LINE__.
int log_line(const char *function, int line, const char *format, ...) __attribute__((format(printf, 3, 4)));

// Ends the process with the status the library uses for misuse it cannot survive.
[[noreturn]] void fatal_exit();

}  // namespace eqdrc

#endif
