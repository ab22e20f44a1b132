// The library's one allocation form: zero-filled arrays from calloc, released with free.
#ifndef EQDRC_CORE_ALLOC_H
#define EQDRC_CORE_ALLOC_H

#include <cstddef>
#include <cstdlib>

namespace eqdrc {

// An element count from a caller's (possibly negative) int: a negative count allocates
// nothing rather than wrapping to a huge size.
template <class N>
inline size_t count_of(N n)
{
    return n > 0 ? static_cast<size_t>(n) : 0;
}

// `count` zero-filled elements of T (count_of rules for signed counts).
template <class T, class N>
inline T *zeroed(N count)
{
    return static_cast<T *>(std::calloc(count_of(count), sizeof(T)));
}

}  // namespace eqdrc

#endif
