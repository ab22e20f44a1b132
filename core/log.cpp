#include "core/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace eqdrc {

namespace {

// Set once by the host before any chain exists, then only read.
LogSinkFunction hostSink = nullptr;
void *hostSinkUser = nullptr;

}  // namespace

void set_log_sink(LogSinkFunction sink, void *user)
{
    hostSink = sink;
    hostSinkUser = user;
}

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
    if (hostSink != nullptr)
        hostSink(hostSinkUser, buf, static_cast<int>(total));
    else
        std::fwrite(buf, 1, total, stderr);
    return static_cast<int>(total);
}

void fatal_exit()
{
    std::fflush(stdout);
    std::exit(-1);
}

}  // namespace eqdrc
