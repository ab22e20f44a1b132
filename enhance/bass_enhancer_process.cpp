// The bass enhancer's processing: a channel at a time, and both channels in lanes over
// blocks of interleaved pairs.
#include "enhance/bass_enhancer.h"

#include <cmath>

#include "dsp/buffer_aliasing.h"
#include "dsp/lanes8.h"
#include "dsp/repeating_state.h"
#include "filters/biquad.h"
#include "filters/paired_cascade.h"
#include "filters/skewed_cascade.h"

namespace {

using Cascade = BassEnhancerState::Cascade;
constexpr int kSections = Cascade::kSections;
constexpr int kCoeffsPerChannel = Cascade::kCoeffsPerChannel;
constexpr int kStatePerChannel = Cascade::kStatePerChannel;

// The DC blocker's memories flush to zero below the shaper's flush level, which keeps
// the recursion out of the denormal range.
constexpr float kFlush = eqdrc::kBassFlush;
constexpr float kFloorOnThreshold = 0.5f;
// Both channels run together in blocks of this many samples (scratch on the stack).
constexpr int kPairBlock = 256;
// Four samples of both channels at a time pay where lanes are vectors; scalar lanes take
// the band split a sample at a time.
constexpr bool kBlocks = !EQDRC_SCALAR_LANES;

// The first-order DC blocker after the shaper, its memories flushed to zero near it:
//   dc = (w - prevIn + prevOut) g,  prevIn = w and prevOut = dc unless at most kFlush.
// The last output is kept unflushed and the sum formed for both of its cases, so that
// the flush test runs beside the sum instead of on the path from one sample to the next;
// (a + 0) is the sum a flushed memory gives, -0 included.
struct DcBlocker {
    float g, prevIn, lastOut;

    DcBlocker(float pole, float in, float out) : g(pole), prevIn(in), lastOut(out) {}

    float step(float w)
    {
        const float a = w - prevIn;
        const float kept = (a + lastOut) * g, flushed = (a + 0.0f) * g;
        lastOut = fabsf(lastOut) <= kFlush ? flushed : kept;
        prevIn = fabsf(w) <= kFlush ? 0.0f : w;
        return lastOut;
    }
    void save(float &in, float &out) const
    {
        in = prevIn;
        out = fabsf(lastOut) <= kFlush ? 0.0f : lastOut;
    }
};

// Both channels' DC blockers in a pair, each lane performing DcBlocker::step.
struct DcBlockerPair {
    eqdrc::Pair g, prevIn, lastOut;

    DcBlockerPair(const float pole[2], const float in[2], const float out[2])
        : g(eqdrc::pair_lanes(pole[0], pole[1])), prevIn(eqdrc::pair_lanes(in[0], in[1])),
          lastOut(eqdrc::pair_lanes(out[0], out[1]))
    {
    }

    EQDRC_LANE_INLINE eqdrc::Pair step(eqdrc::Pair w)
    {
        const eqdrc::Pair flush = eqdrc::pair_lanes(kFlush, kFlush), zero = eqdrc::pair_lanes(0.0f, 0.0f);
        const eqdrc::Pair a = w - prevIn;
        const eqdrc::Pair kept = (a + lastOut) * g, flushed = (a + zero) * g;
        lastOut = eqdrc::select(eqdrc::magnitude_at_most(lastOut, flush), flushed, kept);
        prevIn = eqdrc::select(eqdrc::magnitude_at_most(w, flush), zero, w);
        return lastOut;
    }
    void save(float in[2], float out[2]) const
    {
        for (int ch = 0; ch < 2; ch++)
            DcBlocker(g[ch], prevIn[ch], lastOut[ch]).save(in[ch], out[ch]);
    }
};

// The two channels' shapers over interleaved pairs, their lane constants formed once a
// frame: as many lanes at a time as the build has, the rest one by one.
struct PairShapers {
    const eqdrc::BassShaper *shaper;
#if EQDRC_EIGHT_LANES
    eqdrc::ShaperLanes<eqdrc::f32x8> eight;
#endif
    eqdrc::ShaperLanes<eqdrc::f32x4> four;

    explicit PairShapers(const eqdrc::BassShaper s[2])
        : shaper(s),
#if EQDRC_EIGHT_LANES
          eight(s[0], s[1]),
#endif
          four(s[0], s[1])
    {
    }

    // n pairs in place.  The loops work on copies of the constants, which the stores
    // through y could otherwise alias, so they would be loaded again for every vector.
    void shape(float (*y)[2], int n) const
    {
        float *v = y[0];
        const int count = 2 * n;
        int i = 0;
#if EQDRC_EIGHT_LANES
        const eqdrc::ShaperLanes<eqdrc::f32x8> lanes8 = eight;
        for (; i + 8 <= count; i += 8)
            eqdrc::store(v + i, lanes8.shape(eqdrc::load<eqdrc::f32x8>(v + i)));
#endif
        const eqdrc::ShaperLanes<eqdrc::f32x4> lanes4 = four;
        for (; i + eqdrc::kLanes <= count; i += eqdrc::kLanes)
            eqdrc::store(v + i, lanes4.shape(eqdrc::load(v + i)));
        for (; i < count; i++)
            v[i] = shaper[i % 2].shape(v[i]);
    }
};

// Both channels' band split in lanes [low 0, low 1, high 0, high 1], two sections each,
// into blocks of interleaved pairs, the low band shaped.  On a hold the split rings down
// into a fixed point or short cycle of denormals and stays there; once its state
// repeats, its bands are copied, and so are the shaped values, which would otherwise
// cost a microcode assist per vector on x86.
struct PairSplit {
    struct Memories {
        eqdrc::f32x4 z1[kSections], z2[kSections];
    };
    eqdrc::BiquadLanes c[kSections];
    Memories z;
    eqdrc::f32x4 scale;
    const float *in0, *in1;
    int tail;            // where the frame's watched constant tail begins (frameLen: none)
    float held0, held1;  // its values, read before any output can land on them

    PairSplit(const Cascade &low, const Cascade &high, float fullScale, const float *const in[2], int frameLen)
        : scale(eqdrc::splat(fullScale)), in0(in[0]), in1(in[1]), tail(eqdrc::watched_tail_start(in, 2, frameLen)),
          held0(tail < frameLen ? in0[tail] : 0.0f), held1(tail < frameLen ? in1[tail] : 0.0f)
    {
        for (int lane = 0; lane < eqdrc::kLanes; lane++) {
            const Cascade &filter = lane < 2 ? low : high;
            const float *coeffs = filter.coeffs + (lane & 1) * kCoeffsPerChannel;
            const float *state = filter.state + (lane & 1) * kStatePerChannel;
            for (int k = 0; k < kSections; k++) {
                c[k].set(lane, coeffs + k * eqdrc::kBiquadCoeffs);
                z.z1[k][lane] = state[k * eqdrc::kBiquadState];
                z.z2[k][lane] = state[k * eqdrc::kBiquadState + 1];
            }
        }
    }

    void save(Cascade &low, Cascade &high) const
    {
        for (int lane = 0; lane < eqdrc::kLanes; lane++) {
            float *state = (lane < 2 ? low : high).state + (lane & 1) * kStatePerChannel;
            for (int k = 0; k < kSections; k++) {
                state[k * eqdrc::kBiquadState] = z.z1[k][lane];
                state[k * eqdrc::kBiquadState + 1] = z.z2[k][lane];
            }
        }
    }

    // The bands [low 0, low 1, high 0, high 1] of the scaled input pair x, repeated in
    // lanes 2 and 3.
    EQDRC_LANE_INLINE eqdrc::f32x4 bands(Memories &m, eqdrc::f32x4 x) const
    {
        const eqdrc::f32x4 low = eqdrc::biquad_step(c[0], m.z1[0], m.z2[0], x);
        return eqdrc::biquad_step(c[1], m.z1[1], m.z2[1], low);
    }

    EQDRC_LANE_INLINE void step(Memories &m, float x0, float x1, float *lowPair, float *highPair) const
    {
        const eqdrc::f32x4 b = bands(m, eqdrc::lanes(x0, x1, x0, x1) / scale);
        eqdrc::store_low_pair(lowPair, b);
        eqdrc::store_high_pair(highPair, b);
    }

    // Samples [base, base + count) into lo[0..count) and hi[0..count), lo shaped.
    void run(int base, int count, float (*lo)[2], float (*hi)[2], const PairShapers &shapers)
    {
        const int steady = tail - base < count ? (tail > base ? tail - base : 0) : count;
        // Local copies: the stores through lo and hi cannot alias them, so the constants
        // stay in registers, and the watch never sees the memories of the steady loop.
        const PairSplit k = *this;
        Memories m = z;
        int j = 0;
        // Four samples of each channel read as pairs, two samples' bands stored at once.
        for (; kBlocks && j + eqdrc::kLanes <= steady; j += eqdrc::kLanes) {
            eqdrc::f32x4 x01, x23, low[2], high[2];
            eqdrc::load_channel_pairs(k.in0 + base + j, k.in1 + base + j, x01, x23);
            eqdrc::four_pair_steps(
                x01 / k.scale, x23 / k.scale, [&](eqdrc::f32x4 x) EQDRC_LANE_LAMBDA { return k.bands(m, x); }, low,
                high);
            eqdrc::store(lo[j], low[0]);
            eqdrc::store(lo[j + 2], low[1]);
            eqdrc::store(hi[j], high[0]);
            eqdrc::store(hi[j + 2], high[1]);
        }
        for (; j < steady; j++)
            k.step(m, k.in0[base + j], k.in1[base + j], lo[j], hi[j]);
        z = m;
        int repeatFrom = count, period = 0;
        eqdrc::run_held(
            z, steady, count, [&](Memories &s, int j) { k.step(s, k.held0, k.held1, lo[j], hi[j]); },
            [&](int from, int cycle) {
                repeatFrom = from;
                period = cycle;
            });
        shapers.shape(lo, repeatFrom);
        eqdrc::repeat_rows(lo[0], 2, repeatFrom, count, period);
        eqdrc::repeat_rows(hi[0], 2, repeatFrom, count, period);
    }
};

// The output (high + harmonics x amount) x fullScale of n pairs, to an array a channel.
void mix_pairs(const float (*harmonics)[2], const float (*high)[2], const float amount[2], float fullScale,
               float *y0, float *y1, int n)
{
    const eqdrc::f32x4 amounts = eqdrc::lanes(amount[0], amount[1], amount[0], amount[1]);
    const eqdrc::f32x4 scale = eqdrc::splat(fullScale);
    int i = 0;
    for (; kBlocks && i + eqdrc::kLanes <= n; i += eqdrc::kLanes) {
        eqdrc::store_channel_pairs(y0 + i, y1 + i,
                                   (eqdrc::load(high[i]) + eqdrc::load(harmonics[i]) * amounts) * scale,
                                   (eqdrc::load(high[i + 2]) + eqdrc::load(harmonics[i + 2]) * amounts) * scale);
    }
    for (; i < n; i++) {
        y0[i] = (high[i][0] + harmonics[i][0] * amount[0]) * fullScale;
        y1[i] = (high[i][1] + harmonics[i][1] * amount[1]) * fullScale;
    }
}

}  // namespace

float BassEnhancerState::Cascade::run(int ch, float x)
{
    const float *c = coeffs + ch * kCoeffsPerChannel;
    float *z = state + ch * kStatePerChannel;
    const float y = eqdrc::biquad_step(c, z, x);
    return eqdrc::biquad_step(c + eqdrc::kBiquadCoeffs, z + eqdrc::kBiquadState, y);
}


// Nothing here depends on frameLen beyond the caller's buffers, so any length is safe.
void BassEnhancerState::process(const float *const *in, float *const *out, int frameLen)
{
    if (channels < 1 || frameLen < 1)
        return;
    if (channels == 2 && floor_on(0) == floor_on(1) && eqdrc::pair_runs_as_sequence(in, out, frameLen)) {
        process_pair(in, out, frameLen);
        return;
    }
    for (int ch = 0; ch < channels; ch++) {
        const eqdrc::BassShaper &shape = shaper[ch];
        DcBlocker blocker{dcPole[ch], dcPrevIn[ch], dcPrevOut[ch]};
        const float amount = amountLinear[ch];
        const bool floorOn = floor_on(ch);
        for (int i = 0; i < frameLen; i++) {
            const float x = in[ch][i] / fullScale;
            const float lo = splitLow.run(ch, x);
            const float hi = splitHigh.run(ch, x);

            const float dc = blocker.step(shape.shape(lo));

            float harmonics = harmonicHigh.run(ch, harmonicLow.run(ch, dc));
            if (floorOn)
                harmonics = floorHigh.run(ch, harmonics);
            // The dry band below freq is not returned: the harmonics stand in for it.
            out[ch][i] = (hi + harmonics * amount) * fullScale;
        }
        blocker.save(dcPrevIn[ch], dcPrevOut[ch]);
    }
}

bool BassEnhancerState::floor_on(int ch) const
{
    return static_cast<float>(settings[ch].floorActive) > kFloorOnThreshold;
}

// Both channels at once, in passes over blocks of interleaved pairs [channel 0,
// channel 1], each pass short enough a chain for the pipeline to overlap many samples: the
// band split in lanes (PairSplit), a block ahead; the shapers over the pairs in lanes; the
// DC blockers in a pair as the source of the harmonic filters' skewed cascade, whose
// outputs replace the shaped pairs they came from; the mix into the output, two samples'
// pairs a vector (mix_pairs).  (Beside the split instead, the blockers'
// recursion waits on the split's denormal steps when a tail rings down: 1.5 times the
// music's time against 1.1.)  Every lane performs the operations of process's
// one-channel loop.  A block is read before the one before it is written, which the
// caller's buffers allow (pair_runs_as_sequence).
void BassEnhancerState::process_pair(const float *const in[2], float *const out[2], int frameLen)
{
    // Two blocks: the one being split, and the one being finished.  low holds the low
    // band, shaped in place, then the harmonics.
    float low[2][kPairBlock][2], high[2][kPairBlock][2];

    PairSplit split(splitLow, splitHigh, fullScale, in, frameLen);
    const PairShapers shapers(shaper);
    DcBlockerPair blockers(dcPole, dcPrevIn, dcPrevOut);

    // harmonicLow, harmonicHigh and, when on, floorHigh: two sections each.
    eqdrc::CascadeSections sections;
    Cascade *const chain[] = {&harmonicLow, &harmonicHigh, &floorHigh};
    sections.count = (floor_on(0) ? 3 : 2) * kSections;
    for (int ch = 0; ch < 2; ch++) {
        for (int k = 0; k < sections.count; k++) {
            const Cascade &c = *chain[k / kSections];
            sections.coeffs[ch][k] = c.coeffs + ch * kCoeffsPerChannel + (k % kSections) * eqdrc::kBiquadCoeffs;
            sections.state[ch][k] = c.state + ch * kStatePerChannel + (k % kSections) * eqdrc::kBiquadState;
        }
    }

    int current = 0;
    split.run(0, frameLen < kPairBlock ? frameLen : kPairBlock, low[current], high[current], shapers);
    for (int start = 0; start < frameLen; start += kPairBlock) {
        const int m = frameLen - start < kPairBlock ? frameLen - start : kPairBlock;
        const int next = start + kPairBlock;
        const int ahead = frameLen - next < kPairBlock ? (frameLen > next ? frameLen - next : 0) : kPairBlock;
        const int later = current ^ 1;
        float(*lo)[2] = low[current];
        split.run(next, ahead, low[later], high[later], shapers);  // ahead <= m: only the last is short

        // The harmonic filters, their output pairs kept in place of the shaped ones read,
        // then mixed into the output.
        auto source = [lo, &blockers](int i) EQDRC_LANE_LAMBDA { return blockers.step(eqdrc::load_pair(lo[i])); };
        auto keep = [lo](int i, eqdrc::Pair harmonics) EQDRC_LANE_LAMBDA {
            eqdrc::store_low_pair(lo[i], eqdrc::widen(harmonics));
        };
        if (sections.count == 3 * kSections)
            eqdrc::skew::SkewedCascade<eqdrc::skew::Widest<3 * kSections>, 3 * kSections>().run_from(sections, source, m,
                                                                                                     keep);
        else
            eqdrc::skew::SkewedCascade<eqdrc::skew::Widest<2 * kSections>, 2 * kSections>().run_from(sections, source, m,
                                                                                                     keep);
        mix_pairs(lo, high[current], amountLinear, fullScale, out[0] + start, out[1] + start, m);
        current = later;
    }

    split.save(splitLow, splitHigh);
    blockers.save(dcPrevIn, dcPrevOut);
}

