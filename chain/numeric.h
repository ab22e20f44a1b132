// Conversions whose result must not depend on the CPU.
#ifndef EQDRC_CHAIN_NUMERIC_H
#define EQDRC_CHAIN_NUMERIC_H

#include <cstdint>

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

}  // namespace eqdrc

#endif
