// Linkwitz-Riley band splitter: a low band, a high band and up to two band-pass bands,
// all computed in parallel from the same sample, one sample per channel per call.
#ifndef EQDRC_FILTERS_CROSSOVER_H
#define EQDRC_FILTERS_CROSSOVER_H

#include <cstdint>

#include "filters/biquad.h"
#include "filters/lanes8.h"
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
    float step(int channel, float x)
    {
        const float *c = coeffs + channel * kCoeffStride;
        float *z = state + channel * kStateStride;
        const float y = biquad_step(c, z, x);
        return biquad_step(c + kBiquadCoeffs, z + kBiquadState, y);
    }
};

// The bands of one channel of a crossover in lanes [low, high, band 2, band 3], for a
// caller that runs whole frames: the filter memories stay in registers between
// load() and save().  Each lane performs the operations of CrossoverState::process.
struct CrossoverLanes {
    BiquadLanes first;   // every band's first section
    BiquadLanes second;  // every band's second section
    BiquadLanes third;   // lanes 2 and 3: the band-pass bands' low-pass sections
    BiquadLanes fourth;
    f32x4 z1[4], z2[4];
    m32x4 twoSections;  // lanes 0 and 1: the low and high bands end after two sections

    // A band the state's mode does not run keeps zero coefficients; its lane is junk
    // the caller ignores.
    void load(const CrossoverState &xover, int channel);
    void save(CrossoverState &xover, int channel) const;

    f32x4 step(float x)
    {
        const f32x4 in = splat(x);
        const f32x4 a = biquad_step(first, z1[0], z2[0], in);
        const f32x4 b = biquad_step(second, z1[1], z2[1], a);
        const f32x4 c = biquad_step(third, z1[2], z2[2], b);
        const f32x4 d = biquad_step(fourth, z1[3], z2[3], c);
        return select(twoSections, b, d);
    }
};

#if EQDRC_EIGHT_LANES
// Two channels' CrossoverLanes side by side: channel 0 in lanes 0-3, channel 1 in 4-7.
struct CrossoverLanes8 {
    using Bank = BiquadBank<f32x8>;
    Bank banks[4];
    f32x8 z1[4], z2[4];
    m32x8 twoSections;

    CrossoverLanes8(const CrossoverLanes &l, const CrossoverLanes &r)
    {
        const BiquadLanes *left[] = {&l.first, &l.second, &l.third, &l.fourth};
        const BiquadLanes *right[] = {&r.first, &r.second, &r.third, &r.fourth};
        for (int k = 0; k < 4; k++) {
            banks[k] = Bank{join(left[k]->b0, right[k]->b0), join(left[k]->b1, right[k]->b1),
                            join(left[k]->b2, right[k]->b2), join(left[k]->a1, right[k]->a1),
                            join(left[k]->a2, right[k]->a2)};
            z1[k] = join(l.z1[k], r.z1[k]);
            z2[k] = join(l.z2[k], r.z2[k]);
        }
        twoSections = join(l.twoSections, r.twoSections);
    }

    // The filter memories back into the two channels' lanes.
    void split(CrossoverLanes &l, CrossoverLanes &r) const
    {
        for (int k = 0; k < 4; k++) {
            l.z1[k] = low_half(z1[k]);
            l.z2[k] = low_half(z2[k]);
            r.z1[k] = high_half(z1[k]);
            r.z2[k] = high_half(z2[k]);
        }
    }

    f32x8 step(float left, float right)
    {
        const f32x8 in = join_splat(left, right);
        const f32x8 a = biquad_step(banks[0], z1[0], z2[0], in);
        const f32x8 b = biquad_step(banks[1], z1[1], z2[1], a);
        const f32x8 c = biquad_step(banks[2], z1[2], z2[2], b);
        const f32x8 d = biquad_step(banks[3], z1[3], z2[3], c);
        return select(twoSections, b, d);
    }
};
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
