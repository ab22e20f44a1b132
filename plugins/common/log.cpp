#include "log.h"

#include <cstdarg>
#include <cstdio>

#include <tqaudio_eqdrc.h>

namespace eqdrc_plugin {

void log_line(const char *format, ...)
{
    // One write per line, so that lines from the watcher and the host do not interleave.
    char line[1024];
    int n = std::snprintf(line, sizeof line, "eqdrc: ");
    va_list args;
    va_start(args, format);
    std::vsnprintf(line + n, sizeof line - n - 1, format, args);
    va_end(args);
    std::fprintf(stderr, "%s\n", line);
}

std::string library_identity()
{
    return std::string("libtqaudio_effect_eqdrc ") + AudioPost_GetVersion(nullptr, nullptr, nullptr) + ", " +
           AudioPost_GetProcessingCode() + " processing code";
}

}  // namespace eqdrc_plugin
