// Linkwitz-Riley band splitter: a low band, a high band and up to two band-pass bands,
// all computed in parallel from the same sample, one sample per channel per call.
#ifndef EQDRC_FILTERS_CROSSOVER_H
#define EQDRC_FILTERS_CROSSOVER_H

#include <cstdint>

#include "dsp/lanes8.h"
#include "filters/biquad.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Corner indices of CrossoverParam::freq and CrossoverState::freq.
constexpr int kCornerLowLp = 0;
constexpr int kCornerHighHp = 1;
constexpr int kCornerBand2Hp = 2;
constexpr int kCornerBand2Lp = 3;
constexpr int kCornerBand3Hp = 4;
constexpr int kCornerBand3Lp = 5;
constexpr int kCrossoverCorners = 6;

// Outputs per channel for a band mode: low and high, then band 2 for a positive mode
// and band 3 for mode 2 only.
constexpr int crossover_bands(int bandMode) { return 2 + (bandMode > 0) + (bandMode == 2); }

// Fills a record with the default corners and two bands.
void crossover_default_param(CrossoverParam *param);
// A new record with the defaults (malloc'd, the caller frees it), or null after the
// allocation-failure message.
CrossoverParam *new_default_param();

// One fourth-order Linkwitz-Riley filter for every channel: two identical cascaded
// Butterworth sections per channel.
struct LinkwitzRiley4 {
    static constexpr int kCoeffStride = 10;  // two sections of five
    static constexpr int kStateStride = 4;   // two sections of two

    float *coeffs;  // channels x kCoeffStride
    float *state;   // channels x kStateStride

    void allocate(int channels);
    void release();
    // Clears the memories and gives both sections of every channel the same design.
    void design(int channels, int type, float fs, float fc);
    // Whether every section's b2 is its b0, bit for bit.
    bool outer_taps_equal(int channels) const;
    float step(int channel, float x)
    {
        const float *c = coeffs + channel * kCoeffStride;
        float *z = state + channel * kStateStride;
        const float y = biquad_step(c, z, x);
        return biquad_step(c + kBiquadCoeffs, z + kBiquadState, y);
    }
};

// The sections of one channel of a crossover in lanes [low, high, band 2, band 3], taken
// from the state for a caller that runs whole frames (SkewedCrossover below) and put
// back after.
struct CrossoverLanes {
    BiquadLanes first;   // every band's first section
    BiquadLanes second;  // every band's second section
    BiquadLanes third;   // lanes 2 and 3: the band-pass bands' low-pass sections
                         // (the low and high bands end after two sections)
    BiquadLanes fourth;
    f32x4 z1[4], z2[4];

    // A band the state's mode does not run keeps zero coefficients; its lane is junk
    // the caller ignores.
    void load(const CrossoverState &xover, int channel);
    void save(CrossoverState &xover, int channel) const;
};

// A channel's bands take twelve sections a sample: two each for the low and high band,
// four for each band-pass band.  The skewed form runs them in three banks of lanes:
//   a: every band's first section       [low 1, high 1, band 2 1, band 3 1]
//   b: every band's second section      [low 2, high 2, band 2 2, band 3 2]
//   c: the band-pass bands' low-pass    [band 2 3, band 3 3, band 2 4, band 3 4]
// where c's last two lanes take the sample before, fed by its first two lanes one step
// earlier.  A step for sample i so gives the bands of sample i - 1.  V holds one channel
// in four lanes or, in the AVX2 build, two channels in eight (channel 1 in lanes 4-7).
// Each lane performs the operations of CrossoverState::process.
template <class V>
struct SkewedCrossover {
    static constexpr int kChannels = sizeof(V) / sizeof(f32x4);
    BiquadBank<V> a, b, c;
    V za1, za2, zb1, zb2, zc1, zc2;
    V lastB, lastC;  // the previous step's second and third banks

    explicit SkewedCrossover(const CrossoverLanes *const *channels)
    {
        for (int ch = 0; ch < kChannels; ch++) {
            const CrossoverLanes &l = *channels[ch];
            for (int i = 0; i < kLanes; i++) {
                const int lane = ch * kLanes + i;
                copy_lane(a, lane, l.first, i);
                copy_lane(b, lane, l.second, i);
                copy_lane(c, lane, i < 2 ? l.third : l.fourth, i < 2 ? i + 2 : i);
                za1[lane] = l.z1[0][i];
                za2[lane] = l.z2[0][i];
                zb1[lane] = l.z1[1][i];
                zb2[lane] = l.z2[1][i];
                zc1[lane] = l.z1[i < 2 ? 2 : 3][i < 2 ? i + 2 : i];
                zc2[lane] = l.z2[i < 2 ? 2 : 3][i < 2 ? i + 2 : i];
            }
        }
        lastB = lastC = V{};
    }

    // The memories back into each channel's lanes.
    void save(CrossoverLanes *const *channels) const
    {
        for (int ch = 0; ch < kChannels; ch++) {
            CrossoverLanes &l = *channels[ch];
            for (int i = 0; i < kLanes; i++) {
                const int lane = ch * kLanes + i;
                l.z1[0][i] = za1[lane];
                l.z2[0][i] = za2[lane];
                l.z1[1][i] = zb1[lane];
                l.z2[1][i] = zb2[lane];
                l.z1[i < 2 ? 2 : 3][i < 2 ? i + 2 : i] = zc1[lane];
                l.z2[i < 2 ? 2 : 3][i < 2 ? i + 2 : i] = zc2[lane];
            }
        }
    }

    // The first sample of a run: c's last lanes have no sample before it.
    void first(V in)
    {
        const V keep1 = zc1, keep2 = zc2;
        advance(in);
        zc1 = front_of(zc1, keep1);
        zc2 = front_of(zc2, keep2);
    }

    // Sample i in, the bands of sample i - 1 out.  EqualOuterTaps: every section's b2 is
    // its b0, bit for bit (CrossoverState::outerTapsEqual), so the product b0 x serves as
    // b2 x.
    template <bool EqualOuterTaps = false>
    EQDRC_LANE_INLINE V step(V in)
    {
        return advance<EqualOuterTaps>(in);
    }

    // The bands of the run's last sample: only c's last lanes work.
    V last()
    {
        const V keep1 = zc1, keep2 = zc2;
        const V outC = biquad_step(c, zc1, zc2, feed_c(lastB, lastC));
        zc1 = front_of(keep1, zc1);
        zc2 = front_of(keep2, zc2);
        return front_of(lastB, outC);
    }

private:
    template <bool EqualOuterTaps = false>
    EQDRC_LANE_INLINE V advance(V in)
    {
        const V outA = section<EqualOuterTaps>(a, za1, za2, in);
        const V outB = section<EqualOuterTaps>(b, zb1, zb2, outA);
        const V outC = section<EqualOuterTaps>(c, zc1, zc2, feed_c(outB, lastC));
        const V bands = front_of(lastB, outC);
        lastB = outB;
        lastC = outC;
        return bands;
    }

    // biquad_step, with b0 x standing for the equal product b2 x where the taps are equal.
    template <bool EqualOuterTaps>
    static EQDRC_LANE_INLINE V section(const BiquadBank<V> &k, V &z1, V &z2, V x)
    {
        if constexpr (!EqualOuterTaps) {
            return biquad_step(k, z1, z2, x);
        } else {
            const V b0x = k.b0 * x;
            const V y = z1 + b0x;
            z1 = z2 + (k.b1 * x - k.a1 * y);
            z2 = b0x - k.a2 * y;
            return y;
        }
    }

    template <class Bank>
    static void copy_lane(BiquadBank<V> &to, int lane, const Bank &from, int i)
    {
        to.b0[lane] = from.b0[i];
        to.b1[lane] = from.b1[i];
        to.b2[lane] = from.b2[i];
        to.a1[lane] = from.a1[i];
        to.a2[lane] = from.a2[i];
    }
    // Per channel: lanes 0 and 1 of `front`, 2 and 3 of `back` (a move of lane pairs, no
    // mask to keep in a register).
    static V front_of(V front, V back);
    // Per channel: c's first lanes take the band-pass bands' second sections of this
    // sample, its last lanes its own first lanes of the step before.
    static V feed_c(V second, V previousC);
};

template <>
inline f32x4 SkewedCrossover<f32x4>::front_of(f32x4 front, f32x4 back)
{
    return lanes(front[0], front[1], back[2], back[3]);
}
template <>
inline f32x4 SkewedCrossover<f32x4>::feed_c(f32x4 second, f32x4 previousC)
{
    return lanes(second[2], second[3], previousC[0], previousC[1]);
}

#if EQDRC_EIGHT_LANES
template <>
inline f32x8 SkewedCrossover<f32x8>::front_of(f32x8 front, f32x8 back)
{
    return __builtin_shufflevector(front, back, 0, 1, 10, 11, 4, 5, 14, 15);
}
template <>
inline f32x8 SkewedCrossover<f32x8>::feed_c(f32x8 second, f32x8 previousC)
{
    return __builtin_shufflevector(second, previousC, 2, 3, 8, 9, 6, 7, 12, 13);
}
#endif

}  // namespace eqdrc

struct CrossoverState {
    float freq[eqdrc::kCrossoverCorners];  // Hz
    int32_t sampleRate;
    int32_t channels;
    int32_t bandMode;  // fixed for the life of the state
    eqdrc::LinkwitzRiley4 lowLp;
    eqdrc::LinkwitzRiley4 highHp;
    eqdrc::LinkwitzRiley4 band2Hp;  // allocated for a nonzero mode
    eqdrc::LinkwitzRiley4 band2Lp;
    eqdrc::LinkwitzRiley4 band3Hp;  // allocated for a mode other than 0 and 1
    eqdrc::LinkwitzRiley4 band3Lp;
    // Every designed section's b2 is its b0, bit for bit (the Butterworth sections at
    // 0 dB), so the lane forms may take the product b0 x for b2 x.
    bool outerTapsEqual;

    // A null `param` means the defaults.
    static CrossoverState *create(int sampleRate, int channels, const CrossoverParam *param);
    // `in`: channels samples; `out`: channels x crossover_bands(bandMode) samples.
    void process(const float *in, float *out);
    // New corners (the band mode stays), redesigned with cleared memories.
    void set_param(const CrossoverParam *param);
    void destroy();

private:
    void design();
};

#endif
