// Four float lanes, for running independent filters (the two channels, the crossover's
// bands) in lock-step.  Every lane performs exactly the IEEE single-precision operation
// the scalar code would, in the same order: only +, -, *, /, square roots, comparisons,
// selection (min and max among them), sign clearing and flipping, and moves of lanes are
// offered here, nothing fused, reassociated or approximated.
#ifndef EQDRC_DSP_LANES_H
#define EQDRC_DSP_LANES_H

#include <cstdint>
#include <cmath>
#include <cstring>

// 32-bit ARM NEON flushes denormals to zero, so there the lanes are plain arrays worked
// one element at a time by the VFP unit.  Defining EQDRC_SCALAR_LANES=1 selects that form
// on any target (a build option to check that both forms give the same bits).
#ifndef EQDRC_SCALAR_LANES
#if defined(__arm__) || !defined(__GNUC__)
#define EQDRC_SCALAR_LANES 1
#else
#define EQDRC_SCALAR_LANES 0
#endif
#endif

#if !EQDRC_SCALAR_LANES && defined(__SSE4_1__)
#include <smmintrin.h>
#elif !EQDRC_SCALAR_LANES && defined(__SSE2__)
#include <emmintrin.h>
#elif !EQDRC_SCALAR_LANES && defined(__SSE__)
#include <xmmintrin.h>
#elif !EQDRC_SCALAR_LANES && defined(__aarch64__)
#include <arm_neon.h>
#endif

// The per-sample lane helpers (a biquad step, the smoothers, a cascade's or crossover's
// step, the shapers, and the per-sample lambdas of the stages' loops, marked
// EQDRC_LANE_LAMBDA after their parameters) are forced inline where lanes are scalar: the
// compiler would otherwise call them and pass their lanes through memory, several times
// slower.  Vector lanes leave the choice to the compiler, which inlines them where they
// pay.
#if EQDRC_SCALAR_LANES && defined(__GNUC__)
#define EQDRC_LANE_INLINE inline __attribute__((always_inline))
#define EQDRC_LANE_LAMBDA __attribute__((always_inline))
#else
#define EQDRC_LANE_INLINE inline
#define EQDRC_LANE_LAMBDA
#endif

namespace eqdrc {

constexpr int kLanes = 4;

#if EQDRC_SCALAR_LANES

// N float lanes, worked one at a time, and a mask of N lanes: all bits set where a
// comparison held.
template <int N>
struct FloatLanes {
    float v[N];
    float &operator[](int i) { return v[i]; }
    float operator[](int i) const { return v[i]; }
};
template <int N>
struct MaskLanes {
    int32_t v[N];
    int32_t operator[](int i) const { return v[i]; }
};
using f32x4 = FloatLanes<kLanes>;
using m32x4 = MaskLanes<kLanes>;

// Two channels' values, channel c in lane c.  Where lanes are scalar a pair is two floats:
// four lanes would do twice the work, and the compiler's mix of pair-wide and lane-wide
// moves through memory stalls store forwarding.
using Pair = FloatLanes<2>;
using PairMask = MaskLanes<2>;

#define EQDRC_LANEWISE(op)                                          \
    template <int N>                                                \
    inline FloatLanes<N> operator op(FloatLanes<N> a, FloatLanes<N> b) \
    {                                                               \
        for (int i = 0; i < N; i++)                                 \
            a.v[i] = a.v[i] op b.v[i];                              \
        return a;                                                   \
    }
EQDRC_LANEWISE(+)
EQDRC_LANEWISE(-)
EQDRC_LANEWISE(*)
EQDRC_LANEWISE(/)
#undef EQDRC_LANEWISE

template <int N>
inline FloatLanes<N> operator-(FloatLanes<N> a)
{
    for (int i = 0; i < N; i++)
        a.v[i] = -a.v[i];
    return a;
}

#define EQDRC_COMPARE(name, op)                                     \
    template <int N>                                                \
    inline MaskLanes<N> name(FloatLanes<N> a, FloatLanes<N> b)      \
    {                                                               \
        MaskLanes<N> m;                                             \
        for (int i = 0; i < N; i++)                                 \
            m.v[i] = a.v[i] op b.v[i] ? -1 : 0;                     \
        return m;                                                   \
    }
EQDRC_COMPARE(greater, >)
EQDRC_COMPARE(greater_equal, >=)
EQDRC_COMPARE(less_equal, <=)
#undef EQDRC_COMPARE

template <int N>
inline FloatLanes<N> select(MaskLanes<N> m, FloatLanes<N> a, FloatLanes<N> b)
{
    for (int i = 0; i < N; i++)
        a.v[i] = m.v[i] ? a.v[i] : b.v[i];
    return a;
}

// select(greater(a, b), a, b) and select(less(a, b), a, b).
inline f32x4 max_ordered(f32x4 a, f32x4 b)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] = a.v[i] > b.v[i] ? a.v[i] : b.v[i];
    return a;
}
inline f32x4 min_ordered(f32x4 a, f32x4 b)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] = a.v[i] < b.v[i] ? a.v[i] : b.v[i];
    return a;
}

// select() for a and b fixed across a loop, and select(m, a, -a).
inline f32x4 select_fixed(m32x4 m, f32x4 a, f32x4 b) { return select(m, a, b); }
inline f32x4 negate_unless(m32x4 m, f32x4 a)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] = m.v[i] ? a.v[i] : -a.v[i];
    return a;
}

inline f32x4 lanes(float a, float b, float c, float d) { return f32x4{{a, b, c, d}}; }

template <int N>
inline FloatLanes<N> abs(FloatLanes<N> a)
{
    for (int i = 0; i < N; i++)
        a.v[i] = std::fabs(a.v[i]);
    return a;
}

inline m32x4 mask(bool a, bool b, bool c, bool d) { return m32x4{{-a, -b, -c, -d}}; }

inline m32x4 operator&(m32x4 a, m32x4 b)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] &= b.v[i];
    return a;
}

inline m32x4 operator|(m32x4 a, m32x4 b)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] |= b.v[i];
    return a;
}

inline m32x4 operator~(m32x4 a)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] = ~a.v[i];
    return a;
}

inline m32x4 not_greater_equal(f32x4 a, f32x4 b) { return ~greater_equal(a, b); }

inline bool any(m32x4 m) { return (m.v[0] | m.v[1] | m.v[2] | m.v[3]) != 0; }

inline f32x4 sqrt(f32x4 a)
{
    for (int i = 0; i < kLanes; i++)
        a.v[i] = std::sqrt(a.v[i]);
    return a;
}

inline f32x4 low_pairs(f32x4 a, f32x4 b) { return lanes(a.v[0], a.v[1], b.v[0], b.v[1]); }

inline Pair pair_lanes(float a, float b) { return Pair{{a, b}}; }
inline Pair load_pair(const float *p) { return Pair{{p[0], p[1]}}; }
inline void store_lanes(float *a, float *b, Pair v)
{
    *a = v.v[0];
    *b = v.v[1];
}
// The pair in lanes 0 and 1 of four (2 and 3 zero); lanes 0 and 1 or 2 and 3 as a pair.
inline f32x4 widen(Pair p) { return lanes(p.v[0], p.v[1], 0.0f, 0.0f); }
inline Pair lower_pair(f32x4 v) { return Pair{{v.v[0], v.v[1]}}; }
inline Pair upper_pair(f32x4 v) { return Pair{{v.v[2], v.v[3]}}; }
inline f32x4 with_pair_below(Pair p, f32x4 v) { return lanes(p.v[0], p.v[1], v.v[0], v.v[1]); }

#else

typedef float f32x4 __attribute__((vector_size(16)));
typedef int32_t m32x4 __attribute__((vector_size(16)));

// Ordered comparisons: false in a lane holding a NaN, as in scalar code.
inline m32x4 greater(f32x4 a, f32x4 b) { return a > b; }
inline m32x4 greater_equal(f32x4 a, f32x4 b) { return a >= b; }
inline m32x4 less_equal(f32x4 a, f32x4 b) { return a <= b; }

// ~greater_equal: true in a lane holding a NaN.  One comparison on x86.
inline m32x4 not_greater_equal(f32x4 a, f32x4 b)
{
#if defined(__SSE__)
    return reinterpret_cast<m32x4>(_mm_cmpnge_ps(reinterpret_cast<__m128>(a), reinterpret_cast<__m128>(b)));
#else
    return ~(a >= b);
#endif
}

inline f32x4 select(m32x4 m, f32x4 a, f32x4 b)
{
#if defined(__SSE4_1__)
    // Masks are all ones or all zeros per lane, so the sign bit blendv reads decides alike.
    return reinterpret_cast<f32x4>(
        _mm_blendv_ps(reinterpret_cast<__m128>(b), reinterpret_cast<__m128>(a), reinterpret_cast<__m128>(m)));
#else
    return reinterpret_cast<f32x4>((reinterpret_cast<m32x4>(a) & m) | (reinterpret_cast<m32x4>(b) & ~m));
#endif
}

// a where a > b, else b (b when either is NaN): one maxps.  Not fmax, which drops NaN,
// nor NEON's vmax, which returns it.
inline f32x4 max_ordered(f32x4 a, f32x4 b)
{
#if defined(__SSE__)
    return reinterpret_cast<f32x4>(_mm_max_ps(reinterpret_cast<__m128>(a), reinterpret_cast<__m128>(b)));
#else
    return select(a > b, a, b);
#endif
}

// a where a < b, else b (b when either is NaN): one minps.
inline f32x4 min_ordered(f32x4 a, f32x4 b)
{
#if defined(__SSE__)
    return reinterpret_cast<f32x4>(_mm_min_ps(reinterpret_cast<__m128>(a), reinterpret_cast<__m128>(b)));
#else
    return select(a < b, a, b);
#endif
}

// select() for a and b fixed across a loop: without blendv, b ^ (m & (a ^ b)) takes two
// operations once the compiler has formed a ^ b outside the loop.
inline f32x4 select_fixed(m32x4 m, f32x4 a, f32x4 b)
{
#if defined(__SSE4_1__) || !defined(__SSE2__)
    return select(m, a, b);  // one operation (blendv, bsl)
#else
    const m32x4 bb = reinterpret_cast<m32x4>(b);
    m32x4 difference = reinterpret_cast<m32x4>(a) ^ bb;
    // Opaque to the compiler, which would otherwise rebuild the three-operation select.
    __asm__("" : "+x"(difference));
    return reinterpret_cast<f32x4>(bb ^ (m & difference));
#endif
}

// select(m, a, -a): the sign bits flipped where m is clear.
inline f32x4 negate_unless(m32x4 m, f32x4 a)
{
    return reinterpret_cast<f32x4>(reinterpret_cast<m32x4>(a) ^ (~m & static_cast<int32_t>(0x80000000u)));
}

inline f32x4 lanes(float a, float b, float c, float d) { return f32x4{a, b, c, d}; }

// Clears the sign bits, as fabsf does.
inline f32x4 abs(f32x4 a) { return reinterpret_cast<f32x4>(reinterpret_cast<m32x4>(a) & 0x7fffffff); }

inline m32x4 mask(bool a, bool b, bool c, bool d) { return m32x4{-a, -b, -c, -d}; }

// True when any lane of the mask is set.
inline bool any(m32x4 m)
{
#if defined(__SSE__)
    return _mm_movemask_ps(reinterpret_cast<__m128>(m)) != 0;
#elif defined(__aarch64__)
    // One across-lanes maximum, where the lane-by-lane form takes three moves and three ors.
    return vmaxvq_u32(reinterpret_cast<uint32x4_t>(m)) != 0;
#else
    return (m[0] | m[1] | m[2] | m[3]) != 0;
#endif
}

// The correctly rounded square root of every lane, as sqrtf gives it.
inline f32x4 sqrt(f32x4 a)
{
#if defined(__SSE__)
    return reinterpret_cast<f32x4>(_mm_sqrt_ps(reinterpret_cast<__m128>(a)));
#elif defined(__aarch64__)
    return reinterpret_cast<f32x4>(vsqrtq_f32(reinterpret_cast<float32x4_t>(a)));
#else
    for (int i = 0; i < kLanes; i++)
        a[i] = std::sqrt(a[i]);
    return a;
#endif
}

// Two channels' values, channel c in lane c: where lanes are vectors, lanes 0 and 1 of
// four (2 and 3 unspecified unless said).
using Pair = f32x4;
using PairMask = m32x4;

// Moving pairs of lanes: the compiler's own shuffles of these take up to twice the
// instructions.  [a, b, 0, 0]:
inline f32x4 pair_lanes(float a, float b)
{
#if defined(__SSE__)
    return reinterpret_cast<f32x4>(_mm_unpacklo_ps(_mm_set_ss(a), _mm_set_ss(b)));
#elif defined(__aarch64__)
    // A 64-bit pair, whose writes clear the upper half: from memory a load and a lane load.
    return reinterpret_cast<f32x4>(vcombine_f32(vset_lane_f32(b, vdup_n_f32(a), 1), vdup_n_f32(0.0f)));
#else
    return lanes(a, b, 0.0f, 0.0f);
#endif
}

// [a0, a1, b0, b1].
inline f32x4 low_pairs(f32x4 a, f32x4 b)
{
#if defined(__SSE__)
    return reinterpret_cast<f32x4>(_mm_movelh_ps(reinterpret_cast<__m128>(a), reinterpret_cast<__m128>(b)));
#else
    return __builtin_shufflevector(a, b, 0, 1, 4, 5);
#endif
}

// v2 and v3 in lanes 0 and 1; lanes 2 and 3 are unspecified.
inline f32x4 upper_pair(f32x4 v)
{
#if defined(__SSE2__)
    // pshufd writes a register of its own: no copy of v first, as movhlps would need.
    return reinterpret_cast<f32x4>(_mm_castsi128_ps(_mm_shuffle_epi32(_mm_castps_si128(reinterpret_cast<__m128>(v)), 0xEE)));
#else
    return __builtin_shufflevector(v, v, 2, 3, 2, 3);
#endif
}

// [p[0], p[1], 0, 0].
inline f32x4 load_pair(const float *p)
{
#if defined(__SSE2__)
    return reinterpret_cast<f32x4>(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p))));
#elif defined(__aarch64__)
    // One 64-bit load, which clears the upper half: not two loads and two lane moves.
    return reinterpret_cast<f32x4>(vcombine_f32(vld1_f32(p), vdup_n_f32(0.0f)));
#else
    return lanes(p[0], p[1], 0.0f, 0.0f);
#endif
}

inline f32x4 widen(Pair p) { return p; }
inline Pair lower_pair(f32x4 v) { return v; }
inline f32x4 with_pair_below(Pair p, f32x4 v) { return low_pairs(p, v); }

// [a0, b0, a1, b1] and [a2, b2, a3, b3].
inline f32x4 interleave_low(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 4, 1, 5); }
inline f32x4 interleave_high(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 2, 6, 3, 7); }

// Lane 0 of v to *a, lane 1 to *b (two channels' samples from a pair).
inline void store_lanes(float *a, float *b, f32x4 v)
{
    *a = v[0];
#if defined(__SSE2__)
    // pshufd, not a copy of v and shufps.
    *b = _mm_cvtss_f32(_mm_castsi128_ps(_mm_shuffle_epi32(_mm_castps_si128(reinterpret_cast<__m128>(v)), 0x55)));
#elif defined(__aarch64__)
    vst1q_lane_f32(b, reinterpret_cast<float32x4_t>(v), 1);  // a lane store, not a move and a store
#else
    *b = v[1];
#endif
}

// Four rows to four columns: row j's lane i goes to row i's lane j.
inline void transpose(f32x4 &a, f32x4 &b, f32x4 &c, f32x4 &d)
{
    const f32x4 t0 = interleave_low(a, b), t1 = interleave_low(c, d);
    const f32x4 t2 = interleave_high(a, b), t3 = interleave_high(c, d);
    a = low_pairs(t0, t1);
    b = __builtin_shufflevector(t0, t1, 2, 3, 6, 7);
    c = low_pairs(t2, t3);
    d = __builtin_shufflevector(t2, t3, 2, 3, 6, 7);
}

#endif

inline f32x4 splat(float x) { return lanes(x, x, x, x); }

// [a0 / b0, a1 / b1, c2, c3].  NEON and scalar lanes divide only the pair: ARM dividers
// take four lanes at up to twice the time of two.
EQDRC_LANE_INLINE f32x4 divide_low_pair(f32x4 a, f32x4 b, f32x4 c)
{
#if EQDRC_SCALAR_LANES
    c[0] = a[0] / b[0];
    c[1] = a[1] / b[1];
    return c;
#elif defined(__aarch64__)
    return reinterpret_cast<f32x4>(vcombine_f32(
        vdiv_f32(vget_low_f32(reinterpret_cast<float32x4_t>(a)), vget_low_f32(reinterpret_cast<float32x4_t>(b))),
        vget_high_f32(reinterpret_cast<float32x4_t>(c))));
#else
    return select(mask(true, true, false, false), a / b, c);
#endif
}

// Lanes 0 and 1, or 2 and 3, of v to p[0] and p[1].
inline void store_low_pair(float *p, f32x4 v) { std::memcpy(p, &v, 2 * sizeof(float)); }
inline void store_high_pair(float *p, f32x4 v)
{
    std::memcpy(p, reinterpret_cast<const char *>(&v) + 2 * sizeof(float), 2 * sizeof(float));
}

// splat() for code written for four or eight lanes alike.
template <class V>
inline V broadcast(float x);
template <>
inline f32x4 broadcast<f32x4>(float x)
{
    return splat(x);
}

// Unaligned loads and stores of four (or, for load<f32x8>, eight) consecutive floats.
template <class V = f32x4>
inline V load(const float *p)
{
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void store(float *p, f32x4 v) { std::memcpy(p, &v, sizeof v); }

// Lanes of a (indices 0-3) and b (4-7) by index, as __builtin_shufflevector picks them;
// scalar lanes copy the floats.
template <int I0, int I1, int I2, int I3>
EQDRC_LANE_INLINE f32x4 pick(f32x4 a, f32x4 b)
{
#if EQDRC_SCALAR_LANES
    const auto lane = [&a, &b](int i) EQDRC_LANE_LAMBDA { return i < kLanes ? a[i] : b[i - kLanes]; };
    return lanes(lane(I0), lane(I1), lane(I2), lane(I3));
#else
    return __builtin_shufflevector(a, b, I0, I1, I2, I3);
#endif
}

// Two steps of the two channels in one vector, from their arrays a and b: [a0, b0, a1, b1],
// the two steps' pairs one after the other.
inline f32x4 load_two_pairs(const float *a, const float *b)
{
#if EQDRC_SCALAR_LANES
    return lanes(a[0], b[0], a[1], b[1]);
#else
    return interleave_low(load_pair(a), load_pair(b));
#endif
}

// [a0, a1, b0, b1]: the same two steps channel by channel (channel rows), as the arrays
// hold them.
inline f32x4 load_rows(const float *a, const float *b)
{
#if EQDRC_SCALAR_LANES
    return lanes(a[0], a[1], b[0], b[1]);
#else
    return low_pairs(load_pair(a), load_pair(b));
#endif
}

// [p0, q0, p1, q1]: the pairs of two steps channel by channel.
inline f32x4 channel_rows(Pair p, Pair q)
{
#if EQDRC_SCALAR_LANES
    return lanes(p[0], q[0], p[1], q[1]);
#else
    return interleave_low(p, q);
#endif
}

// [a2, a3, b0, b1]; and [a2, b2, a3, b3], the upper pairs of two steps as channel rows.
inline f32x4 upper_pair_below(f32x4 a, f32x4 b) { return pick<2, 3, 4, 5>(a, b); }
inline f32x4 upper_rows(f32x4 a, f32x4 b) { return pick<2, 6, 3, 7>(a, b); }

// [v0, v0, v2, v2]: the earlier step of channel rows in both lanes of its row.
inline f32x4 even_lanes_doubled(f32x4 v) { return pick<0, 0, 2, 2>(v, v); }

// [v1, v3]: the later step of channel rows as a pair.
inline Pair odd_lanes(f32x4 v)
{
#if EQDRC_SCALAR_LANES
    return pair_lanes(v[1], v[3]);
#else
    return __builtin_shufflevector(v, v, 1, 3, 1, 3);
#endif
}

// [a0, a2, b0, b2] and [a1, a3, b1, b3].
EQDRC_LANE_INLINE f32x4 even_lanes(f32x4 a, f32x4 b) { return pick<0, 2, 4, 6>(a, b); }
EQDRC_LANE_INLINE f32x4 odd_lanes(f32x4 a, f32x4 b) { return pick<1, 3, 5, 7>(a, b); }

// Four samples of two channels' arrays a and b as pairs [channel 0, channel 1]:
// [a0, b0, a1, b1] and [a2, b2, a3, b3].
EQDRC_LANE_INLINE void load_channel_pairs(const float *a, const float *b, f32x4 &first, f32x4 &second)
{
    const f32x4 x = load(a), y = load(b);
    first = pick<0, 4, 1, 5>(x, y);
    second = pick<2, 6, 3, 7>(x, y);
}

// The inverse: four samples' pairs, two to a vector, to each channel's array.
EQDRC_LANE_INLINE void store_channel_pairs(float *a, float *b, f32x4 first, f32x4 second)
{
    store(a, even_lanes(first, second));
    store(b, odd_lanes(first, second));
}

// [a2, a3, b2, b3].
inline f32x4 upper_pairs(f32x4 a, f32x4 b) { return pick<2, 3, 6, 7>(a, b); }

// [v0, v1, v0, v1] and [v2, v3, v2, v3].
inline f32x4 lower_pair_twice(f32x4 v) { return pick<0, 1, 0, 1>(v, v); }
inline f32x4 upper_pair_twice(f32x4 v) { return pick<2, 3, 2, 3>(v, v); }

// Four steps of a filter run on pairs of two channels, each pair repeated in lanes 2 and
// 3: step([x0, x1, x0, x1]) gives four lanes for each of the samples' pairs in `first`
// and `second` in turn; the results' lower pairs come back two samples to a vector, and
// so do their upper pairs.
template <class Step>
EQDRC_LANE_INLINE void four_pair_steps(f32x4 first, f32x4 second, Step &&step, f32x4 lower[2], f32x4 upper[2])
{
    const f32x4 y0 = step(lower_pair_twice(first)), y1 = step(upper_pair_twice(first));
    const f32x4 y2 = step(lower_pair_twice(second)), y3 = step(upper_pair_twice(second));
    lower[0] = low_pairs(y0, y1);
    lower[1] = low_pairs(y2, y3);
    upper[0] = upper_pairs(y0, y1);
    upper[1] = upper_pairs(y2, y3);
}

// Lanes 0 and 1 of v to low[0] and low[1], 2 and 3 to high[0] and high[1]; scalar lanes
// a float at a time, which the compiler would otherwise pack into integer registers.
inline void store_pairs(float *low, float *high, f32x4 v)
{
#if EQDRC_SCALAR_LANES
    low[0] = v[0];
    low[1] = v[1];
    high[0] = v[2];
    high[1] = v[3];
#else
    store_low_pair(low, v);
    store_high_pair(high, v);
#endif
}

// less_equal(abs(v), bound) for a bound of at least zero: on NEON one comparison of
// magnitudes, which keeps v, where clearing its sign would need a copy first.
#if EQDRC_SCALAR_LANES
template <int N>
inline MaskLanes<N> magnitude_at_most(FloatLanes<N> v, FloatLanes<N> bound)
{
    return less_equal(abs(v), bound);
}
#else
inline m32x4 magnitude_at_most(f32x4 v, f32x4 bound)
{
#if defined(__aarch64__)
    // |bound| >= |v|, written out: the compiler splits vcaleq_f32 into sign clearings and
    // a comparison, and with a loop's fixed bound keeps them apart.
    m32x4 m;
    __asm__("facge %0.4s, %1.4s, %2.4s" : "=w"(m) : "w"(bound), "w"(v));
    return m;
#else
    return less_equal(abs(v), bound);
#endif
}
#endif

// max_ordered(min_ordered(v, high), low) and min_ordered(max_ordered(v, low), high)
// (a NaN v to high, or to low), for bounds that are neither NaN nor zero and a v that is
// no signalling NaN (any arithmetic result).  NEON's minnm and maxnm take the bound over a
// quiet NaN, as the first comparison does, and leave no NaN for the second: two
// operations where the comparisons and selections take four.
EQDRC_LANE_INLINE f32x4 clamp_high_first(f32x4 v, f32x4 low, f32x4 high)
{
#if !EQDRC_SCALAR_LANES && defined(__aarch64__)
    return reinterpret_cast<f32x4>(vmaxq_f32(
        vminnmq_f32(reinterpret_cast<float32x4_t>(v), reinterpret_cast<float32x4_t>(high)),
        reinterpret_cast<float32x4_t>(low)));
#else
    return max_ordered(min_ordered(v, high), low);
#endif
}
EQDRC_LANE_INLINE f32x4 clamp_low_first(f32x4 v, f32x4 low, f32x4 high)
{
#if !EQDRC_SCALAR_LANES && defined(__aarch64__)
    return reinterpret_cast<f32x4>(vminq_f32(
        vmaxnmq_f32(reinterpret_cast<float32x4_t>(v), reinterpret_cast<float32x4_t>(low)),
        reinterpret_cast<float32x4_t>(high)));
#elif EQDRC_SCALAR_LANES
    // Lane by lane: from the two selections the compiler rebuilds the bounds in
    // integer registers on every call.
    for (int i = 0; i < kLanes; i++) {
        const float m = v[i] > low[i] ? v[i] : low[i];
        v[i] = m < high[i] ? m : high[i];
    }
    return v;
#else
    return min_ordered(max_ordered(v, low), high);
#endif
}

#if !EQDRC_SCALAR_LANES
// Sixteen floats from p, read as four rows of four, as their columns: a holds every
// row's lane 0, b every row's lane 1, and so on.
inline void load_columns(const float *p, f32x4 &a, f32x4 &b, f32x4 &c, f32x4 &d)
{
#if defined(__aarch64__)
    const float32x4x4_t v = vld4q_f32(p);  // one de-interleaving load, not four and eight moves
    a = reinterpret_cast<f32x4>(v.val[0]);
    b = reinterpret_cast<f32x4>(v.val[1]);
    c = reinterpret_cast<f32x4>(v.val[2]);
    d = reinterpret_cast<f32x4>(v.val[3]);
#else
    a = load(p);
    b = load(p + kLanes);
    c = load(p + 2 * kLanes);
    d = load(p + 3 * kLanes);
    transpose(a, b, c, d);
#endif
}

// Lane K of v in every lane.
template <int K>
inline f32x4 splat_lane(f32x4 v)
{
#if defined(__aarch64__)
    return reinterpret_cast<f32x4>(vdupq_laneq_f32(reinterpret_cast<float32x4_t>(v), K));
#else
    return __builtin_shufflevector(v, v, K, K, K, K);
#endif
}

#endif

// Bit i set where lane i of the mask is.
inline unsigned lane_bits(m32x4 m)
{
#if !EQDRC_SCALAR_LANES && defined(__SSE__)
    return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(m)));
#elif !EQDRC_SCALAR_LANES && defined(__aarch64__)
    const uint32x4_t weights = {1, 2, 4, 8};
    return vaddvq_u32(vandq_u32(reinterpret_cast<uint32x4_t>(m), weights));
#else
    unsigned bits = 0;
    for (int i = 0; i < kLanes; i++)
        bits |= (m[i] != 0 ? 1u : 0u) << i;
    return bits;
#endif
}

// An interval [low, high) of non-negative floats as integers, for a test of a value in
// one subtraction and one comparison: the bit patterns of non-negative floats rise with
// their values, so e lies in it when its pattern less low's, as unsigned integers, is
// below the width, and negative values and NaNs fall outside (-0 too, though -0 >= 0).
// A NaN low holds nothing, a NaN high everything from low on but NaN.  Where only signed
// comparisons exist (SSE2) both words are stored biased by 2^31.
template <class M>
struct BitInterval {
    M start, width;
};

constexpr bool kBiasedIntervals =
#if !EQDRC_SCALAR_LANES && defined(__SSE2__)
    true;
#else
    false;
#endif

inline BitInterval<m32x4> bit_interval(f32x4 low, f32x4 high)
{
    const uint32_t bias = kBiasedIntervals ? 0x80000000u : 0u, aboveInfinity = 0x7f800001u;
#if EQDRC_SCALAR_LANES
    BitInterval<m32x4> r;
    for (int i = 0; i < kLanes; i++) {
        const float l = low.v[i], h = high.v[i];
        uint32_t lowBits, highBits;
        std::memcpy(&lowBits, &l, sizeof l);
        std::memcpy(&highBits, &h, sizeof h);
        const uint32_t w = l != l ? 0u : (h != h ? aboveInfinity - lowBits : highBits - lowBits);
        r.start.v[i] = static_cast<int32_t>(lowBits ^ bias);
        r.width.v[i] = static_cast<int32_t>(w ^ bias);
    }
    return r;
#else
    typedef uint32_t u32x4 __attribute__((vector_size(16)));
    const u32x4 lowBits = reinterpret_cast<u32x4>(low), highBits = reinterpret_cast<u32x4>(high);
    const u32x4 lowNumber = reinterpret_cast<u32x4>(low == low), highNumber = reinterpret_cast<u32x4>(high == high);
    const u32x4 width = ((highBits & highNumber) | (aboveInfinity & ~highNumber)) - lowBits;
    return BitInterval<m32x4>{reinterpret_cast<m32x4>(lowBits ^ bias),
                              reinterpret_cast<m32x4>((width & lowNumber) ^ bias)};
#endif
}

// Lanes where e lies in the interval, and whether every lane of a mask is set.
inline m32x4 inside(f32x4 e, const BitInterval<m32x4> &r)
{
#if EQDRC_SCALAR_LANES
    m32x4 m;
    for (int i = 0; i < kLanes; i++) {
        uint32_t bits;
        std::memcpy(&bits, &e.v[i], sizeof bits);
        m.v[i] = bits - static_cast<uint32_t>(r.start.v[i]) < static_cast<uint32_t>(r.width.v[i]) ? -1 : 0;
    }
    return m;
#elif defined(__SSE2__)
    const __m128i d = _mm_sub_epi32(_mm_castps_si128(reinterpret_cast<__m128>(e)), reinterpret_cast<__m128i>(r.start));
    return reinterpret_cast<m32x4>(_mm_cmpgt_epi32(reinterpret_cast<__m128i>(r.width), d));
#elif defined(__aarch64__)
    const uint32x4_t d = vsubq_u32(reinterpret_cast<uint32x4_t>(e), reinterpret_cast<uint32x4_t>(r.start));
    return reinterpret_cast<m32x4>(vcltq_u32(d, reinterpret_cast<uint32x4_t>(r.width)));
#else
    typedef uint32_t u32x4 __attribute__((vector_size(16)));
    return reinterpret_cast<m32x4>(reinterpret_cast<u32x4>(e) - reinterpret_cast<u32x4>(r.start) <
                                   reinterpret_cast<u32x4>(r.width));
#endif
}

inline bool all(m32x4 m)
{
#if !EQDRC_SCALAR_LANES && defined(__SSE__)
    return _mm_movemask_ps(reinterpret_cast<__m128>(m)) == 0xf;
#elif !EQDRC_SCALAR_LANES && defined(__aarch64__)
    return vminvq_u32(reinterpret_cast<uint32x4_t>(m)) != 0;
#else
    return (m[0] & m[1] & m[2] & m[3]) != 0;
#endif
}

}  // namespace eqdrc

#endif
