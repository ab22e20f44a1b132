// K-weighted loudness meter: a sliding energy window evaluated every step, an absolute
// gate of -70 LUFS when a block is stored and a relative gate of -10 dB at read-out.
#ifndef EQDRC_METERS_LOUDNESS_METER_H
#define EQDRC_METERS_LOUDNESS_METER_H

#include <cstdint>

#include "core/numeric.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

// Read-out when no block passed the gates.
constexpr float kNoLoudness = -1000.0f;
// Blocks the read-out looks back over.
constexpr int kLoudnessHistory = 200;

// Milliseconds to samples: the product in int32 (wrapping as the target's multiply
// does), then truncating division.
inline int32_t ms_to_samples(int32_t ms, int32_t sampleRate)
{
    return wrapping_mul(ms, sampleRate) / 1000;
}

// The K-weighted loudness meter (the ebur128_ functions' state): a sliding energy window
// of K-weighted samples, evaluated every step into a history of gated blocks.
struct LoudnessMeter {
    int32_t bitDepth;
    int32_t fullScaleDivisor;  // 32-bit: INT32_MIN, its sign squares away
    int32_t sampleRate;
    int32_t channels;
    int32_t windowMs;
    float *energyRing;  // channels x windowSamples squared samples, one ring for all channels
    int32_t windowSamples;
    int32_t ringIndex;
    float *channelSums;
    int32_t countdown;  // samples until the next block is evaluated
    float *channelWeights;
    int32_t stepMs;
    int32_t stepSamples;
    float *filterCoeffs;  // per channel: shelf record, then high-pass record
    float *filterStates;  // per channel: shelf z1 z2, then high-pass z1 z2
    float *blockHistory;  // mean energies of stored blocks
    int32_t historyCapacity;
    int32_t historyIndex;
    int32_t historyCount;

    // nullptr (after its message) for a bit depth other than 16, 24 or 32.
    static Ebur128State *create(int bitDepth, int sampleRate, int channels, int windowMs, int stepMs);
    // Feeds one planar frame; evaluates at most one block.
    void add_frames(const float *const *in, int frameLen);
    // Gated loudness in LUFS of the stored blocks, or kNoLoudness.
    float gated_loudness() const;
    void destroy();

private:
    int32_t ring_size() const;
    void add_stereo_frames(const float *const *in, int frameLen);
    void add_frames_by_channel(const float *const *in, int frameLen);
    void evaluate_block();
};

}  // namespace eqdrc

// The C interface's handle for a meter.
struct Ebur128State : eqdrc::LoudnessMeter {};

#endif