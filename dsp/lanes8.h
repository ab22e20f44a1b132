// Eight float lanes, in the library's AVX2 build only (EQDRC_EIGHT_LANES): two sets of
// four lanes side by side, for running both channels' four-lane work at once. As in
// lanes.h, every lane performs exactly the IEEE single-precision operation the scalar
// code would, in the same order; nothing fused (the AVX2 build has no FMA).
#ifndef EQDRC_DSP_LANES8_H
#define EQDRC_DSP_LANES8_H

#include "dsp/lanes.h"

#if defined(__AVX2__) && !EQDRC_SCALAR_LANES && defined(__GNUC__)
#define EQDRC_EIGHT_LANES 1
#include <immintrin.h>

namespace eqdrc {

typedef float f32x8 __attribute__((vector_size(32)));
typedef int32_t m32x8 __attribute__((vector_size(32)));

inline f32x8 join(f32x4 lo, f32x4 hi) { return __builtin_shufflevector(lo, hi, 0, 1, 2, 3, 4, 5, 6, 7); }
inline m32x8 join(m32x4 lo, m32x4 hi) { return __builtin_shufflevector(lo, hi, 0, 1, 2, 3, 4, 5, 6, 7); }
inline f32x4 low_half(f32x8 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3); }
inline f32x4 high_half(f32x8 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7); }

inline f32x8 splat8(float x) { return f32x8{x, x, x, x, x, x, x, x}; }
inline f32x8 join_splat(float lo, float hi) { return f32x8{lo, lo, lo, lo, hi, hi, hi, hi}; }
template <>
inline f32x8 broadcast<f32x8>(float x)
{
    return splat8(x);
}

// Ordered comparisons: false in a lane holding a NaN, as in scalar code.
inline m32x8 greater(f32x8 a, f32x8 b) { return a > b; }
inline m32x8 greater_equal(f32x8 a, f32x8 b) { return a >= b; }
inline m32x8 not_greater_equal(f32x8 a, f32x8 b)
{
    return reinterpret_cast<m32x8>(_mm256_cmp_ps(reinterpret_cast<__m256>(a), reinterpret_cast<__m256>(b), _CMP_NGE_UQ));
}

// Masks are all ones or all zeros per lane, so the sign bit blendv reads decides alike.
inline f32x8 select(m32x8 m, f32x8 a, f32x8 b)
{
    return reinterpret_cast<f32x8>(_mm256_blendv_ps(reinterpret_cast<__m256>(b), reinterpret_cast<__m256>(a),
                                                    reinterpret_cast<__m256>(m)));
}

inline f32x8 select_fixed(m32x8 m, f32x8 a, f32x8 b) { return select(m, a, b); }
inline f32x8 negate_unless(m32x8 m, f32x8 a)
{
    return reinterpret_cast<f32x8>(reinterpret_cast<m32x8>(a) ^ (~m & static_cast<int32_t>(0x80000000u)));
}

// Clears the sign bits, as fabsf does.
inline f32x8 abs(f32x8 a) { return reinterpret_cast<f32x8>(reinterpret_cast<m32x8>(a) & 0x7fffffff); }

// The correctly rounded square root of every lane, as sqrtf gives it.
inline f32x8 sqrt(f32x8 a) { return reinterpret_cast<f32x8>(_mm256_sqrt_ps(reinterpret_cast<__m256>(a))); }

inline m32x8 less_equal(f32x8 a, f32x8 b) { return a <= b; }

inline void store(float *p, f32x8 v) { std::memcpy(p, &v, sizeof v); }

inline bool any(m32x8 m) { return _mm256_movemask_ps(reinterpret_cast<__m256>(m)) != 0; }

}  // namespace eqdrc

#else
#define EQDRC_EIGHT_LANES 0
#endif

#endif
