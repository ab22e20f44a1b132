// Stand-alone ten-band level meter of the first channel of interleaved 16-bit frames,
// with rise, hold and decay ballistics per band.
#ifndef EQDRC_METERS_LEVEL_DETECTOR_H
#define EQDRC_METERS_LEVEL_DETECTOR_H

#include <cstdint>

#include "tqaudio_eqdrc.h"

namespace eqdrc {

constexpr int kLevelBands = 10;
// Band table of SetPara: frequency and Q of each band, in band order.
constexpr int kLevelBandWords = 2 * kLevelBands;

}  // namespace eqdrc

struct LevelDetectorState {
    int32_t sampleRate;
    int32_t channels;  // interleave stride
    int32_t bitDepth;
    int32_t frameLen;
    float msScale;  // 1 / (creation frameLen + 1), whatever length a call passes
    float rmsCoef;
    float decayCoef;
    int32_t holdSamples;  // samples
    float fullScaleDb;
    int32_t *holdCounter;
    float *bandPower;
    float *bandLevelDb;  // dB re full scale
    float *bandFreqHz;   // Hz
    float *bandQ;
    float *bandCoeffs;  // kLevelBands biquad records
    float *bandState;       // kLevelBands state pairs

    static LevelDetectorState *create(int bitDepth, int sampleRate, int channels, int frameLen);
    int process(const int16_t *pcm, int n);
    // Times in ms; a null band table keeps the bands.  Restarts the ballistics, keeps
    // the filter memories.
    int set_para(const float *bands, float rmstc, float hold_time, float decay_time);
    int get_result(LevelDetectorResult *out) const;
    void destroy();

private:
    void design_bands();
};

#endif
