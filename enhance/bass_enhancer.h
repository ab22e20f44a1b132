// Bass enhancer: replaces the bass below `freq`, which small loudspeakers cannot
// reproduce, by harmonics of it from an asymmetric square-root waveshaper.
#ifndef EQDRC_ENHANCE_BASS_ENHANCER_H
#define EQDRC_ENHANCE_BASS_ENHANCER_H

#include <cstdint>

#include "enhance/bass_shaper.h"
#include "filters/biquad.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Words of a channel's ten-word block (channel 1 starts at word 10 unless linked).
constexpr int kBassAmountDb = 0;
constexpr int kBassDrive = 1;
constexpr int kBassBlend = 2;
constexpr int kBassFreq = 3;         // Hz
constexpr int kBassFloorActive = 4;  // flag, truncated
constexpr int kBassFloor = 5;        // Hz
constexpr int kBassChannelWords = 10;

constexpr int kBassMaxChannels = 2;

// A channel's block as the record holds it.
struct BassSettings {
    float amountDb;
    float drive;
    float blend;
    float freqHz;
    int32_t floorActive;  // truncated from the record's word
    float floorHz;

    static BassSettings from_block(const float *block);
    void to_block(float *block) const;
};

}  // namespace eqdrc

// The parameter side (creation, replacement, read-back, print-out, tear-down) is
// bass_enhancer.cpp; the processing, a channel at a time and both channels in lanes,
// bass_enhancer_process.cpp.
struct BassEnhancerState {
    // One filter: two identical cascaded sections per channel.
    struct Cascade {
        static constexpr int kSections = 2;
        static constexpr int kCoeffsPerChannel = kSections * eqdrc::kBiquadCoeffs;
        static constexpr int kStatePerChannel = kSections * eqdrc::kBiquadState;

        float *coeffs;  // channels x kCoeffsPerChannel
        float *state;   // channels x kStatePerChannel

        float run(int ch, float x);
    };

    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t link;
    Cascade splitLow;      // Butterworth low-pass at freq
    Cascade splitHigh;     // Butterworth high-pass at freq
    Cascade harmonicLow;   // Butterworth low-pass at 3 x freq
    Cascade harmonicHigh;  // Butterworth high-pass at freq
    Cascade floorHigh;     // Butterworth high-pass at floor, used when floor is active
    eqdrc::BassSettings settings[eqdrc::kBassMaxChannels];
    // Per channel, from the settings; both channels' values side by side, as the lanes
    // take them.
    float amountLinear[eqdrc::kBassMaxChannels];
    eqdrc::BassShaper shaper[eqdrc::kBassMaxChannels];  // from drive and blend
    float dcPole[eqdrc::kBassMaxChannels];              // G of the DC blocker after the shaper
    float dcPrevIn[eqdrc::kBassMaxChannels];
    float dcPrevOut[eqdrc::kBassMaxChannels];
    float fullScale;

    // More than two channels end the process; nullptr (state leaked) for a bad depth.
    static BassEnhancerState *create(const float *section, int bitDepth, int sampleRate, int channels, int link);
    void process(const float *const *in, float *const *out, int frameLen);
    // Filters and DC blocker restart from rest.
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    void destroy();

private:
    void read_section(const float *section);
    // Every coefficient and shaper constant; clears all filter states.
    void design();
    bool floor_on(int ch) const;
    void process_pair(const float *const in[2], float *const out[2], int frameLen);
};

#endif
