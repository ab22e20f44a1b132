// De-esser: once per frame measures the energy in a one-octave band around f0 and
// crossfades each channel between the dry input and a notch at f0.
#ifndef EQDRC_ENHANCE_DE_ESSER_H
#define EQDRC_ENHANCE_DE_ESSER_H

#include <cstdint>

#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Words of a channel's five-word block (channel 1 starts at word 5 unless linked).
constexpr int kDeEsserF0 = 0;         // Hz
constexpr int kDeEsserThreshold = 1;  // dBFS
constexpr int kDeEsserChannelWords = 5;

constexpr int kDeEsserMaxChannels = 2;
// Longest frame the two-channel lane path holds on the stack; longer ones go one
// channel at a time.
constexpr int kDeEsserPairFrames = 1024;

// A channel's block as the record holds it.
struct DeEsserSettings {
    float f0Hz;
    float thresholdDb;  // dBFS

    static DeEsserSettings from_block(const float *block);
};

}  // namespace eqdrc

// One allocation: everything is held inline.  The parameter side (creation,
// replacement, read-back, print-out, tear-down) is de_esser.cpp; the processing
// de_esser_process.cpp.
struct DeEsserState {
    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t frameLen;  // creation frame length, the ramp's divisor
    int32_t link;
    float log10FullScale;
    eqdrc::DeEsserSettings settings[eqdrc::kDeEsserMaxChannels];
    float releaseMs;
    float attackMs;
    float releaseCoef;
    float attackCoef;
    float width;  // band-pass bandwidth in octaves and notch Q
    float bandPassCoeffs[2][5];
    float bandPassState[2][2];
    float notchCoeffs[2][5];
    float notchState[2][2];
    float gain[2];  // crossfade: 1 dry, 0 fully notched
    float inverseFrameLen;

    // More than two channels end the process; nullptr (record leaked) for a bad depth.
    static DeEsserState *create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen,
                                int link);
    void process(const float *const *in, float *const *out, int frameLen);
    // Filters and gains restart; times and coefficients stay.
    void set_para(const float *section);
    // Writes words 5 and 6 only, overwriting as it goes (see the definition).
    void get_para(float *section) const;
    int print_para() const;
    void destroy();

private:
    void read_section(const float *section);
    // Band-pass and notch of `ch`; the band-pass alpha is formed one of two ways.
    enum class AlphaForm { kCreation, kWithWidth };
    void design(int ch, AlphaForm form);
    void process_pair(const float *const *in, float *const *out, int n);
    // Moves gain[ch] towards dry or notch for the band energy measured so far.
    float next_gain(int ch, float energy) const;
    // Ramps both channels from their gains to the targets across the frame, taking the
    // notch outputs from the pairs of `notched`.
    void crossfade_pair(float target0, float target1, const float *const *in, const float (*notched)[2],
                        float *const *out, int n);
};

#endif
