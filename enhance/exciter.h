// Exciter: brightness from harmonics of the highs, made by an offset cubic soft clipper
// between two high-passes at `Cutoff` and mixed back with the dry input.
#ifndef EQDRC_ENHANCE_EXCITER_H
#define EQDRC_ENHANCE_EXCITER_H

#include <cstdint>

#include "dsp/lanes.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Words of a channel's five-word block (channel 1 starts at word 5 unless linked);
// word 4 is neither read nor written.
constexpr int kExciterEvenHarmonics = 0;    // offset in full-scale units
constexpr int kExciterDistortionAmount = 1;  // drive gain 10^(2 x amount)
constexpr int kExciterCutoff = 2;            // Hz
constexpr int kExciterMix = 3;               // wet share, 0..1
constexpr int kExciterChannelWords = 5;

constexpr int kExciterMaxChannels = 2;

// A channel's block as the record holds it.
struct ExciterSettings {
    float evenHarmonics;
    float distortionAmount;
    float cutoffHz;
    float mix;

    static ExciterSettings from_block(const float *block);
    void to_block(float *block) const;
};

}  // namespace eqdrc

// The parameter side (creation, replacement, read-back, print-out, tear-down) is
// exciter.cpp; the processing exciter_process.cpp.
struct ExciterState {
    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t link;
    eqdrc::ExciterSettings settings[eqdrc::kExciterMaxChannels];
    float driveGain[eqdrc::kExciterMaxChannels];  // from the distortion amount
    float inverseDriveGain[eqdrc::kExciterMaxChannels];
    float *inputHighCoeffs;   // channels x kBiquadCoeffs
    float *inputHighState;    // channels x kBiquadState
    float *outputHighCoeffs;  // the same design as the input high-pass
    float *outputHighState;
    float fullScale;

    // More than two channels end the process; nullptr (state leaked) for a bad depth.
    static ExciterState *create(const float *section, int bitDepth, int sampleRate, int channels, int link);
    void process(const float *const *in, float *const *out, int frameLen);
    // Filters restart from rest.
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    void destroy();

    // The cubic soft clipper: 1.5v - 0.5v^3 on [-1, 1], clamped outside; NaN gives 1.
    static float soft_clip(float v)
    {
        if (!(v <= 1.0f))  // also NaN
            return 1.0f;
        if (v >= -1.0f)
            return (1.5f - (v * 0.5f) * v) * v;
        return -1.0f;
    }
    // The same in every lane, as the cubic of v clamped to [-1, 1] (NaN to 1): the cubic
    // gives exactly 1 and -1 at the ends, and v itself inside.  v is a sum's product,
    // never a signalling NaN, as clamp_high_first needs.
    EQDRC_LANE_INLINE static eqdrc::f32x4 soft_clip(eqdrc::f32x4 v)
    {
        v = eqdrc::clamp_high_first(v, eqdrc::splat(-1.0f), eqdrc::splat(1.0f));
        return (eqdrc::splat(1.5f) - (v * eqdrc::splat(0.5f)) * v) * v;
    }

private:
    void read_section(const float *section);
    void design();

    // One channel's filter memories and the recursion that moves them a sample.
    struct Memories {
        float input[2];
        float output[2];
    };
    struct Channel {
        const float *inputHigh, *outputHigh;
        float offset, drive, dry, wet, fullScale;
        float step(Memories &m, float sample) const;
    };
    Channel channel(int ch) const;
    Memories memories(int ch) const;
    void keep(int ch, const Memories &m);

    void run(const float *const *in, float *const *out, int from, int to, const bool *active, bool pair);
    void run_channel(int ch, const float *in, float *out, int n);
    void process_pair(const float *const *in, float *const *out, int n);
};

#endif
