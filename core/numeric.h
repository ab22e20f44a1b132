// Conversions and int32 arithmetic whose result must not depend on the CPU or compiler.
#ifndef EQDRC_CORE_NUMERIC_H
#define EQDRC_CORE_NUMERIC_H

#include <cstdint>
#include <cstring>

namespace eqdrc {

// Float or double to int32 the way ARM converts: truncation toward zero, saturation
// at the int32 limits, 0 for NaN.  x86 would give INT32_MIN for every out-of-range
// value, so every such conversion in the library goes through here.
inline int32_t to_int32(double v)
{
    if (v != v)
        return 0;
    if (v >= 2147483648.0)
        return INT32_MAX;
    if (v <= -2147483649.0)
        return INT32_MIN;
    return static_cast<int32_t>(v);
}

inline int32_t to_int32(float v) { return to_int32(static_cast<double>(v)); }

// int32 arithmetic that wraps as the target's does instead of overflowing (which C++
// leaves undefined): the exact result, reduced to its low 32 bits.
inline int32_t wrapping_add(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<int64_t>(a) + b); }
inline int32_t wrapping_sub(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<int64_t>(a) - b); }
inline int32_t wrapping_mul(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<int64_t>(a) * b); }

// The bit patterns of floats and doubles, and back.
template <class To, class From>
inline To bit_copy(From from)
{
    static_assert(sizeof(To) == sizeof(From), "a bit copy keeps the size");
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}
inline uint32_t bits_of(float f) { return bit_copy<uint32_t>(f); }
inline float float_of(uint32_t u) { return bit_copy<float>(u); }
inline uint64_t bits_of(double d) { return bit_copy<uint64_t>(d); }
inline double double_of(uint64_t u) { return bit_copy<double>(u); }

}  // namespace eqdrc

#endif
