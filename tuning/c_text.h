// How the C interfaces of the tuning and fitting libraries hand text to a caller's
// buffer: the text with its terminating NUL when it fits; the size it needs either way,
// so that a caller can call again with a larger buffer.
#ifndef EQDRC_TUNING_C_TEXT_H
#define EQDRC_TUNING_C_TEXT_H

#include <cstddef>
#include <cstring>
#include <string>

namespace eqdrc_tool {

inline int deliver(const std::string &text, char *out, size_t size)
{
    if (out && text.size() < size)
        std::memcpy(out, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size() + 1);
}

}  // namespace eqdrc_tool

#endif
