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
    float ms_scale;  // 1 / (creation frameLen + 1), whatever length a call passes
    float rms_coef;
    float decay_coef;
    int32_t hold_len;  // samples
    float full_scale_db;
    int32_t *hold_count;
    float *band_power;
    float *band_level;  // dB re full scale
    float *band_freq;   // Hz
    float *band_q;
    float *band_coeffs;  // kLevelBands biquad records
    float *band_z;       // kLevelBands state pairs

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
