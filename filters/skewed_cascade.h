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
// `pair`) in lanes 0 and 1, and the last pair, moved to lanes 0 and 1; the same for two
// steps, their pairs in one vector step after step, [c0 t, c1 t, c0 t+1, c1 t+1], and
// their last pairs channel by channel, [c0 t, c0 t+1, c1 t, c1 t+1].
template <class V>
struct SkewLanes;

template <>
struct SkewLanes<f32x4> {
    using Mask = m32x4;
    static constexpr int kCount = 4;
    static Mask mask_of(const bool *on) { return mask(on[0], on[1], on[2], on[3]); }
    static f32x4 shift_in(f32x4 v, Pair pair) { return with_pair_below(pair, v); }
    static Pair last_pair(f32x4 v) { return upper_pair(v); }
    static void shift_in_two(f32x4 &older, f32x4 &newer, f32x4 pairs)
    {
        older = with_pair_below(lower_pair(pairs), older);
        newer = upper_pair_below(pairs, newer);
    }
    static f32x4 last_rows(f32x4 a, f32x4 b) { return upper_rows(a, b); }
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
    static void shift_in_two(f32x8 &older, f32x8 &newer, f32x4 pairs)
    {
        older = shift_in(older, pairs);
        newer = shift_in(newer, upper_pair(pairs));
    }
    static f32x4 last_rows(f32x8 a, f32x8 b) { return upper_rows(high_half(a), high_half(b)); }
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

    // Sections 0 .. kHeld - 1 keep their coefficients in registers across the frame.  The
    // rest, on NEON, are read from memory for every two steps (run_steps), each vector
    // once and in pairs: held too, they would outnumber the registers and be reloaded
    // from the stack at every use.
#if defined(__aarch64__) && !EQDRC_SCALAR_LANES
    static constexpr int kHeldOnNeon = 3;
    static constexpr int kHeld = H < kHeldOnNeon ? H : kHeldOnNeon;
#else
    static constexpr int kHeld = H;
#endif

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
    EQDRC_LANE_INLINE V chosen(V in, const V *w, V last) const
    {
        if (kRemainder > 0)
            last = select(remainderLanes, w[kRemainder > 0 ? kRemainder - 1 : 0], last);
        if (kEmptyGroups)
            last = select(emptyLanes, in, last);
        return last;
    }

    EQDRC_LANE_INLINE V step(V v)
    {
        const V in = v;
        V w[H];
        // Unrolled, so that the memories stay in registers across the frame.
        EQDRC_UNROLL
        for (int k = 0; k < H; k++)
            v = w[k] = biquad_step(c[k], z1[k], z2[k], v);
        return chosen(in, w, v);
    }

    // Steps t and t + 1, section by section: with the skew of two, step t + 1's input does
    // not wait on step t, so section k of step t + 1 can follow section k of step t, and
    // each coefficient vector, held or fetched (sections kHeld on), serves both.
    EQDRC_LANE_INLINE void step_two(V &a, V &b, const BiquadBank<V> *fetched)
    {
        const V inA = a, inB = b;
        V wa[H], wb[H];
        EQDRC_UNROLL
        for (int k = 0; k < H; k++) {
            const BiquadBank<V> &ck = k < kHeld ? c[k] : fetched[k];
            a = wa[k] = biquad_step(ck, z1[k], z2[k], a);
            b = wb[k] = biquad_step(ck, z1[k], z2[k], b);
        }
        a = chosen(inA, wa, a);
        b = chosen(inB, wb, b);
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

    // The frame's steps: sample i comes from in(i), channel c in lane c (lanes 2 and 3
    // are not read), leaves the last group at step i + kDelay and goes to out(i, y),
    // channel c's output in lane c of y (lanes 2 and 3 unspecified).  In the frame's
    // body two steps at a time: in_two(t, older, newer) shifts samples t and t + 1 into
    // the outputs of steps t - 2 and t - 1, and out_two(i, y, next) takes samples i and
    // i + 1 from the outputs of steps i + kDelay and i + kDelay + 1.
    template <class In, class Out, class InTwo, class OutTwo>
    EQDRC_LANE_INLINE void run_steps(const CascadeSections &s, int n, In &&in, Out &&out, InTwo &&in_two,
                                     OutTwo &&out_two)
    {
        load(s);
        const int steps = n + kDelay;
        const Pair none = pair_lanes(0.0f, 0.0f);
        V older{}, newer{};  // the outputs of steps t - 2 and t - 1
        static_assert(kSkew == 2, "two steps in flight");
        int t = 0;
        for (; t < kDelay && t < steps; t++) {
            const V v = partial_step(L::shift_in(older, t < n ? in(t) : none), t, n);
            older = newer;
            newer = v;
        }
        BiquadBank<V> fetchable[H];
        for (int k = kHeld; k < H; k++)
            fetchable[k] = c[k];
        for (const int lastPair = n - 1; t < lastPair; t += 2) {
            const BiquadBank<V> *fetched = fetchable;
#if defined(__GNUC__)
            if (kHeld < H)
                __asm__("" : "+r"(fetched));  // unknown to the compiler, so read here, not held
#endif
            in_two(t, older, newer);
            step_two(older, newer, fetched);
            out_two(t - kDelay, older, newer);
        }
        for (; t < n; t++) {
            const V v = step(L::shift_in(older, in(t)));
            out(t - kDelay, L::last_pair(v));
            older = newer;
            newer = v;
        }
        for (; t < steps; t++) {
            const V v = partial_step(L::shift_in(older, none), t, n);
            out(t - kDelay, L::last_pair(v));
            older = newer;
            newer = v;
        }
        save(s);
    }

    // Sample i from source(i), its output to sink(i, y).  Each source(i) is called before
    // sink(i), so a channel may run in place.
    template <class Source, class Sink>
    void run_from(const CascadeSections &s, Source &&source, int n, Sink &&sink)
    {
        run_steps(
            s, n, source, sink,
            [&source](int t, V &older, V &newer) EQDRC_LANE_LAMBDA {
                older = L::shift_in(older, source(t));
                newer = L::shift_in(newer, source(t + 1));
            },
            [&sink](int i, V y, V next) EQDRC_LANE_LAMBDA {
                sink(i, L::last_pair(y));
                sink(i + 1, L::last_pair(next));
            });
    }

    // The same with two samples at a time where the frame allows: io.in(i) and
    // io.out(i, y) as source and sink above, io.in_two(t) the pairs of samples t and t + 1
    // step after step, io.out_two(i, rows) the outputs of samples i and i + 1 channel by
    // channel (see SkewLanes).
    template <class Io>
    void run_io(const CascadeSections &s, int n, Io &io)
    {
#if EQDRC_SCALAR_LANES
        // Scalar lanes gain nothing from moving two samples' lanes together.
        run_from(
            s, [&io](int t) EQDRC_LANE_LAMBDA { return io.in(t); }, n,
            [&io](int i, Pair y) EQDRC_LANE_LAMBDA { io.out(i, y); });
#else
        run_steps(
            s, n, [&io](int t) EQDRC_LANE_LAMBDA { return io.in(t); },
            [&io](int i, Pair y) EQDRC_LANE_LAMBDA { io.out(i, y); },
            [&io](int t, V &older, V &newer) EQDRC_LANE_LAMBDA { L::shift_in_two(older, newer, io.in_two(t)); },
            [&io](int i, V y, V next) EQDRC_LANE_LAMBDA { io.out_two(i, L::last_rows(y, next)); });
#endif
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
