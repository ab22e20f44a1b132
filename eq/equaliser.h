// Per-channel ten-band equaliser: a cascade of designer sections per channel, with the
// last input and output frame of every channel kept for read-back.
#ifndef EQDRC_EQ_EQUALISER_H
#define EQDRC_EQ_EQUALISER_H

#include <cstdint>

#include "filters/biquad.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

constexpr int kEqBands = 10;
constexpr int kEqBandWords = 5;                           // enable, type, fc, Q, boost
constexpr int kEqChannelWords = kEqBands * kEqBandWords;  // one channel block
constexpr int kEqSectionWords = 2 * kEqChannelWords;      // two channel blocks

// Words of a band group.
constexpr int kEqEnable = 0;
constexpr int kEqType = 1;
constexpr int kEqFc = 2;
constexpr int kEqQ = 3;
constexpr int kEqBoost = 4;

// Band settings when created without a section (every band off).
constexpr float kEqDefaultFc = 1000.0f;
constexpr float kEqDefaultQ = 1.0f;
constexpr float kEqDefaultBoost = 0.0f;

// A band's group as the record holds it.
struct EqBandSettings {
    int32_t enable;  // counted as written: see EQ10State::read_section
    int32_t filterType;
    float fc;
    float Q;
    float boost;

    static EqBandSettings from_group(const float *group);
    void to_group(float *group) const;
};

// A designed band's section and its memories.
struct EqSection {
    float coeffs[kBiquadCoeffs];  // b0, b1, b2, a1, a2
    float memory[kBiquadState];   // z1, z2
};

}  // namespace eqdrc

// Band settings are indexed 10 * channel + band.  Sections are packed instead: every
// enabled band, channel after channel, takes the next one, and processing walks them in
// the same order, activeBands[c] of them for channel c.  The parameter side (creation,
// replacement, read-back, print-out, tear-down) is equaliser.cpp; the processing
// equaliser_process.cpp.
struct EQ10State {
    int32_t sampleRate;
    int32_t channels;
    int32_t bitDepth;  // kept; the filters do not depend on it
    int32_t link;
    int32_t frameLen;  // size of the scratch and copy buffers
    eqdrc::EqBandSettings *bands;  // channels x kEqBands
    eqdrc::EqSection *sections;    // as many as bands
    float *activeBands;            // float of the sum of a channel's enable integers
    float *scratch;
    float **inputCopy;
    float **outputCopy;

    // A null section leaves every band off (pass-through).  Never fails.
    static EQ10State *create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen,
                             int link);
    // In place or from `in` to `out`; frames longer than the creation length are cut.
    void process(const float *const *in, float *const *out, int frameLen);
    // Replaces every band and redesigns; the filter memories stay as they are.
    void set_para(const float *section);
    void get_para(float *section) const;
    void get_data(float *const *inFrames, float *const *outFrames) const;
    int print_para() const;
    void destroy();

private:
    int band_count() const;
    void read_section(const float *section);
    void design_sections();
    int paired_sections(const float *const *in, const float *const *out, int n) const;
    void run_pair(int perChannel, int n);
};

#endif
