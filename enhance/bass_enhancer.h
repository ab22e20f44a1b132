// Bass enhancer: replaces the bass below `freq`, which small loudspeakers cannot
// reproduce, by harmonics of it from an asymmetric square-root waveshaper.
#ifndef EQDRC_ENHANCE_BASS_ENHANCER_H
#define EQDRC_ENHANCE_BASS_ENHANCER_H

#include <cstdint>

#include "enhance/bass_shaper.h"
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

}  // namespace eqdrc

struct BassEnhancerState {
    // One filter: two identical cascaded sections per channel.
    struct Cascade {
        float *coeffs;  // channels x 2 x kBiquadCoeffs
        float *state;   // channels x 2 x kBiquadState

        float run(int ch, float x);
    };

    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t link;
    int32_t reservedConstants[2];  // 10 and 4, set at creation for hosts that inspect the record; the stage does not read them
    Cascade splitLow;            // Butterworth low-pass at freq
    Cascade splitHigh;           // Butterworth high-pass at freq
    Cascade harmonicLow;         // Butterworth low-pass at 3 x freq
    Cascade harmonicHigh;        // Butterworth high-pass at freq
    Cascade floorHigh;           // Butterworth high-pass at floor, used when floor is active
    float amountDb[2];
    float amountLinear[2];
    float drive[2];
    float blend[2];
    float freqHz[2];
    int32_t floorActive[2];
    float floorHz[2];
    eqdrc::BassShaper shaper[2];  // from drive and blend
    float dcPole[2];              // G of the DC blocker after the shaper
    float dcPrevIn[2];
    float dcPrevOut[2];
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
    bool floor_on(int ch) const;
    void process_pair(const float *const in[2], float *const out[2], int frameLen);
    void read_section(const float *section);
    // Every coefficient and shaper constant; clears all filter states.
    void design();
};

#endif
