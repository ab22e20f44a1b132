#include "core/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace eqdrc {

int log_line(LogSite site, const char *format, ...)
{
    // Prefix and message go out in one write so that interleaved stderr users
    // never split a line.
    char buf[8192];
    int n = std::snprintf(buf, sizeof buf, "LOG (%s(): ,%d), ", site.function, site.line);
    if (n < 0)
        return n;
    va_list ap;
    va_start(ap, format);
    int m = std::vsnprintf(buf + n, sizeof buf - static_cast<size_t>(n), format, ap);
    va_end(ap);
    if (m < 0)
        return m;
    size_t total = static_cast<size_t>(n) + static_cast<size_t>(m);
    if (total >= sizeof buf)
        total = sizeof buf - 1;  // messages are short; a path in a message may be cut
    std::fwrite(buf, 1, total, stderr);
    return static_cast<int>(total);
}

void fatal_exit()
{
    std::fflush(stdout);
    std::exit(-1);
}

}  // namespace eqdrc
