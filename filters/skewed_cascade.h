// The skewed cascade behind run_paired_cascade, for a stage that consumes the two
// channels' outputs as they leave it (see paired_cascade.h for the layout).
#ifndef EQDRC_FILTERS_SKEWED_CASCADE_H
#define EQDRC_FILTERS_SKEWED_CASCADE_H

#include <type_traits>

#include "dsp/lanes.h"
#include "dsp/lanes8.h"
#include "filters/biquad.h"
#include "filters/paired_cascade.h"

#if defined(__clang__)
#define EQDRC_UNROLL _Pragma("unroll")
#elif defined(__GNUC__)
#define EQDRC_UNROLL _Pragma("GCC unroll 16")
#else
#define EQDRC_UNROLL
#endif

namespace eqdrc {
namespace skew {


// What the cascade needs of a lane vector: its width, masks from per-lane flags, the
// skew's move of every pair of lanes one pair up with a new sample pair (lanes 0 and 1 of
// `pair`) in lanes 0 and 1, and the last pair, moved to lanes 0 and 1.
template <class V>
struct SkewLanes;

template <>
struct SkewLanes<f32x4> {
    using Mask = m32x4;
    static constexpr int kCount = 4;
    static Mask mask_of(const bool *on) { return mask(on[0], on[1], on[2], on[3]); }
    static f32x4 shift_in(f32x4 v, Pair pair) { return with_pair_below(pair, v); }
    static Pair last_pair(f32x4 v) { return upper_pair(v); }
};

#if EQDRC_EIGHT_LANES
template <>
struct SkewLanes<f32x8> {
    using Mask = m32x8;
    static constexpr int kCount = 8;
    static Mask mask_of(const bool *on)
    {
        return join(mask(on[0], on[1], on[2], on[3]), mask(on[4], on[5], on[6], on[7]));
    }
    static f32x8 shift_in(f32x8 v, Pair pair)
    {
        return __builtin_shufflevector(join(pair, pair), v, 0, 1, 8, 9, 10, 11, 12, 13);
    }
    static Pair last_pair(f32x8 v) { return upper_pair(high_half(v)); }
};
#endif

// The lanes hold Q groups of both channels, lane 2q + c for channel c of group q.  Group q
// runs sections qH .. qH + H - 1 of its channel (fewer in the last groups when Count is
// not a multiple of Q) on the sample kSkew q steps behind group 0's, fed by what group
// q - 1 gave kSkew steps earlier.  With a skew of two, a step's input is the output of the
// step before the last, so two steps' cascades overlap in the pipeline and a step costs
// the sections' own recursion, not the whole cascade's latency.
template <class V, int Count>
struct SkewedCascade {
    using L = SkewLanes<V>;
    using Mask = typename L::Mask;
    static constexpr int Q = L::kCount / 2;
    static constexpr int H = (Count + Q - 1) / Q;
    static constexpr int kSkew = 2;
    static constexpr int kDelay = kSkew * (Q - 1);  // steps from group 0 to the last

    BiquadBank<V> c[H];
    V z1[H], z2[H];
    // Groups 0 .. kFull - 1 have H sections, group kFull has the remainder, if any, and
    // the groups after it none.
    static constexpr int kFull = Count / H;
    static constexpr int kRemainder = Count % H;
    static constexpr bool kEmptyGroups = kFull + (kRemainder > 0) < Q;
    Mask remainderLanes, emptyLanes;

    static constexpr int section(int lane, int k) { return (lane / 2) * H + k; }

    void load(const CascadeSections &s)
    {
        for (int k = 0; k < H; k++) {
            c[k] = BiquadBank<V>{};
            z1[k] = z2[k] = V{};
            for (int lane = 0; lane < L::kCount; lane++) {
                const int channel = lane & 1, sec = section(lane, k);
                if (sec >= Count)
                    continue;
                c[k].set(lane, s.coeffs[channel][sec]);
                z1[k][lane] = s.state[channel][sec][0];
                z2[k][lane] = s.state[channel][sec][1];
            }
        }
        bool remainder[L::kCount], empty[L::kCount];
        for (int lane = 0; lane < L::kCount; lane++) {
            remainder[lane] = lane / 2 == kFull && kRemainder > 0;
            empty[lane] = lane / 2 >= kFull + (kRemainder > 0);
        }
        remainderLanes = L::mask_of(remainder);
        emptyLanes = L::mask_of(empty);
    }

    void save(const CascadeSections &s) const
    {
        for (int k = 0; k < H; k++) {
            for (int lane = 0; lane < L::kCount; lane++) {
                const int channel = lane & 1, sec = section(lane, k);
                if (sec >= Count)
                    continue;
                s.state[channel][sec][0] = z1[k][lane];
                s.state[channel][sec][1] = z2[k][lane];
            }
        }
    }

    // A lane past its group's last section runs on zero coefficients (its memories stay
    // zero for finite input) and its result is dropped: a group's output is taken after
    // its last section, or is its input when it has none.  Choosing after the whole
    // cascade keeps the choices off the path from one step to the next.
    EQDRC_LANE_INLINE V step(V v)
    {
        const V in = v;
        V w[H];
        // Unrolled, so that the memories stay in registers across the frame.
        EQDRC_UNROLL
        for (int k = 0; k < H; k++)
            v = w[k] = biquad_step(c[k], z1[k], z2[k], v);
        if (kRemainder > 0)
            v = select(remainderLanes, w[kRemainder > 0 ? kRemainder - 1 : 0], v);
        if (kEmptyGroups)
            v = select(emptyLanes, in, v);
        return v;
    }

    // Step t of a frame of n samples, where some groups have no sample (t - kSkew q outside
    // 0 .. n - 1):
    // their memories stay as they were.
    V partial_step(V v, int t, int n)
    {
        bool on[L::kCount];
        for (int lane = 0; lane < L::kCount; lane++)
            on[lane] = t - kSkew * (lane / 2) >= 0 && t - kSkew * (lane / 2) < n;
        const Mask live = L::mask_of(on);
        V keep1[H], keep2[H];
        for (int k = 0; k < H; k++) {
            keep1[k] = z1[k];
            keep2[k] = z2[k];
        }
        v = step(v);
        for (int k = 0; k < H; k++) {
            z1[k] = select(live, z1[k], keep1[k]);
            z2[k] = select(live, z2[k], keep2[k]);
        }
        return v;
    }

    // Sample i comes from source(i), channel c in lane c (lanes 2 and 3 are not read),
    // leaves the last group at step i + kDelay and goes to sink(i, y), channel c's output
    // in lane c of y (lanes 2 and 3 unspecified).  Each source(i) is called before
    // sink(i), so a channel may run in place.
    template <class Source, class Sink>
    void run_from(const CascadeSections &s, Source &&source, int n, Sink &&sink)
    {
        load(s);
        const int steps = n + kDelay;
        const Pair none = pair_lanes(0.0f, 0.0f);
        V older{}, newer{};  // the outputs of steps t - 2 and t - 1
        static_assert(kSkew == 2, "two steps in flight");
        int t = 0;
        for (; t < kDelay && t < steps; t++) {
            const V v = partial_step(L::shift_in(older, t < n ? source(t) : none), t, n);
            older = newer;
            newer = v;
        }
        for (; t < n; t++) {
            const V v = step(L::shift_in(older, source(t)));
            sink(t - kDelay, L::last_pair(v));
            older = newer;
            newer = v;
        }
        for (; t < steps; t++) {
            const V v = partial_step(L::shift_in(older, none), t, n);
            sink(t - kDelay, L::last_pair(v));
            older = newer;
            newer = v;
        }
        save(s);
    }

    // The same from the two channels' arrays.
    template <class Sink>
    void run(const CascadeSections &s, const float *const x[2], int n, Sink &&sink)
    {
        const float *x0 = x[0], *x1 = x[1];
        run_from(
            s, [x0, x1](int t) EQDRC_LANE_LAMBDA { return pair_lanes(x0[t], x1[t]); }, n, sink);
    }
};

// Eight lanes pay where they shorten a step: from three sections per channel on.
#if EQDRC_EIGHT_LANES
template <int Count>
using Widest = typename std::conditional<(Count >= 3), f32x8, f32x4>::type;
#else
template <int Count>
using Widest = f32x4;
#endif

}  // namespace skew
}  // namespace eqdrc

#endif
