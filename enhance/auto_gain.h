// Loudness-driven auto gain: steers the programme towards a target integrated loudness
// read from its own meter once per step, capped at +20 dB and at the frame's headroom.
#ifndef EQDRC_ENHANCE_AUTO_GAIN_H
#define EQDRC_ENHANCE_AUTO_GAIN_H

#include <cstdint>

#include "meters/loudness_meter.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Words of the five-word section.
constexpr int kAutoGainTarget = 0;   // LUFS
constexpr int kAutoGainAttack = 1;   // ms
constexpr int kAutoGainRelease = 2;  // ms
constexpr int kAutoGainWindow = 3;   // ms, truncated
constexpr int kAutoGainStep = 4;     // ms, truncated
constexpr int kAutoGainWords = 5;

}  // namespace eqdrc

struct AutoGainState {
    float targetLufs;
    float attackMs;
    float releaseMs;
    float releaseCoef;
    float attackCoef;
    float currentGain;  // linear, applied at the start of the next frame
    float targetGain;   // linear
    int32_t stepSamples;
    int32_t countdown;  // samples until the next loudness read-out
    int32_t sampleRate;
    int32_t channels;
    int32_t bitDepth;
    int32_t frameLen;  // creation frame length, the ramp's divisor
    Ebur128State *meter;
    int32_t windowMs;
    int32_t stepMs;
    float smoothedLufs;
    float fullScale;

    // nullptr (after two messages, the meter's and this one) for a bad bit depth.
    static AutoGainState *create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen);
    // Ends the process when frameLen is longer than the meter's step.
    void process(const float *const *in, float *const *out, int frameLen);
    // A changed window or step restarts the meter and both gains.
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    void destroy();

private:
    void read_section(const float *section);
    void compute_coefficients();
    void read_loudness();
};

#endif
