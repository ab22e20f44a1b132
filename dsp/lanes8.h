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

// Eight lanes as two NEON registers (aarch64): both channels' four-lane work in one loop,
// each channel in a register of its own (lanes 0-3 and 4-7), where GCC's own 32-byte
// vectors go through memory.  The same operations as lanes.h's, one register at a time.
#if !EQDRC_EIGHT_LANES && !EQDRC_SCALAR_LANES && defined(__aarch64__)
#define EQDRC_REGISTER_PAIRS 1

namespace eqdrc {

struct f32x4x2 {
    f32x4 lo, hi;
    float &operator[](int i) { return i < kLanes ? lo[i] : hi[i - kLanes]; }
    float operator[](int i) const { return i < kLanes ? lo[i] : hi[i - kLanes]; }
};
struct m32x4x2 {
    m32x4 lo, hi;
    int32_t operator[](int i) const { return i < kLanes ? lo[i] : hi[i - kLanes]; }
};

inline f32x4x2 join(f32x4 lo, f32x4 hi) { return f32x4x2{lo, hi}; }
inline m32x4x2 join(m32x4 lo, m32x4 hi) { return m32x4x2{lo, hi}; }
template <>
inline f32x4x2 broadcast<f32x4x2>(float x)
{
    return f32x4x2{splat(x), splat(x)};
}

inline f32x4x2 operator+(f32x4x2 a, f32x4x2 b) { return f32x4x2{a.lo + b.lo, a.hi + b.hi}; }
inline f32x4x2 operator-(f32x4x2 a, f32x4x2 b) { return f32x4x2{a.lo - b.lo, a.hi - b.hi}; }
inline f32x4x2 operator*(f32x4x2 a, f32x4x2 b) { return f32x4x2{a.lo * b.lo, a.hi * b.hi}; }
inline m32x4x2 operator&(m32x4x2 a, m32x4x2 b) { return m32x4x2{a.lo & b.lo, a.hi & b.hi}; }
inline m32x4x2 operator|(m32x4x2 a, m32x4x2 b) { return m32x4x2{a.lo | b.lo, a.hi | b.hi}; }
inline m32x4x2 operator~(m32x4x2 a) { return m32x4x2{~a.lo, ~a.hi}; }

inline m32x4x2 greater(f32x4x2 a, f32x4x2 b) { return m32x4x2{greater(a.lo, b.lo), greater(a.hi, b.hi)}; }
inline m32x4x2 greater_equal(f32x4x2 a, f32x4x2 b)
{
    return m32x4x2{greater_equal(a.lo, b.lo), greater_equal(a.hi, b.hi)};
}
inline m32x4x2 not_greater_equal(f32x4x2 a, f32x4x2 b)
{
    return m32x4x2{not_greater_equal(a.lo, b.lo), not_greater_equal(a.hi, b.hi)};
}
inline f32x4x2 select(m32x4x2 m, f32x4x2 a, f32x4x2 b)
{
    return f32x4x2{select(m.lo, a.lo, b.lo), select(m.hi, a.hi, b.hi)};
}
// fabs, which clears the sign bit alone and, unlike lanes.h's mask, needs no copy.
inline f32x4x2 abs(f32x4x2 a)
{
    return f32x4x2{reinterpret_cast<f32x4>(vabsq_f32(reinterpret_cast<float32x4_t>(a.lo))),
                   reinterpret_cast<f32x4>(vabsq_f32(reinterpret_cast<float32x4_t>(a.hi)))};
}
inline unsigned lane_bits(m32x4x2 m) { return lane_bits(m.lo) | lane_bits(m.hi) << kLanes; }
inline BitInterval<m32x4x2> bit_interval(f32x4x2 low, f32x4x2 high)
{
    const BitInterval<m32x4> lo = bit_interval(low.lo, high.lo), hi = bit_interval(low.hi, high.hi);
    return BitInterval<m32x4x2>{{lo.start, hi.start}, {lo.width, hi.width}};
}
inline m32x4x2 inside(f32x4x2 e, const BitInterval<m32x4x2> &r)
{
    return m32x4x2{inside(e.lo, BitInterval<m32x4>{r.start.lo, r.width.lo}),
                   inside(e.hi, BitInterval<m32x4>{r.start.hi, r.width.hi})};
}
inline bool all(m32x4x2 m)
{
    return vminvq_u32(vandq_u32(reinterpret_cast<uint32x4_t>(m.lo), reinterpret_cast<uint32x4_t>(m.hi))) != 0;
}
inline bool any(m32x4x2 m)
{
    return vmaxvq_u32(vorrq_u32(reinterpret_cast<uint32x4_t>(m.lo), reinterpret_cast<uint32x4_t>(m.hi))) != 0;
}
template <>
inline f32x4x2 load<f32x4x2>(const float *p)
{
    return f32x4x2{load(p), load(p + kLanes)};
}
inline void store(float *p, f32x4x2 v)
{
    store(p, v.lo);
    store(p + kLanes, v.hi);
}

}  // namespace eqdrc

#else
#define EQDRC_REGISTER_PAIRS 0
#endif

#if EQDRC_EIGHT_LANES
namespace eqdrc {
inline unsigned lane_bits(m32x8 m) { return static_cast<unsigned>(_mm256_movemask_ps(reinterpret_cast<__m256>(m))); }
inline BitInterval<m32x8> bit_interval(f32x8 low, f32x8 high)
{
    const BitInterval<m32x4> lo = bit_interval(low_half(low), low_half(high)),
                             hi = bit_interval(high_half(low), high_half(high));
    return BitInterval<m32x8>{join(lo.start, hi.start), join(lo.width, hi.width)};
}
inline m32x8 inside(f32x8 e, const BitInterval<m32x8> &r)
{
    const __m256i bits = _mm256_castps_si256(reinterpret_cast<__m256>(e));
    const __m256i d = _mm256_sub_epi32(bits, reinterpret_cast<__m256i>(r.start));
    return reinterpret_cast<m32x8>(_mm256_cmpgt_epi32(reinterpret_cast<__m256i>(r.width), d));
}
inline bool all(m32x8 m) { return _mm256_movemask_ps(reinterpret_cast<__m256>(m)) == 0xff; }
}  // namespace eqdrc
#endif

#endif
