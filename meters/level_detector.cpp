// Ten-band level detector.
#include "meters/level_detector.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/scale.h"
#include "core/time_constant.h"
#include "filters/biquad.h"
#include "filters/designer.h"

namespace {

using eqdrc::kLevelBands;

constexpr int kDefaultTimeMs = 200;  // rise and decay at creation
// 20 log10 of 2^15, 2^24 and 2^32; every depth but 16 and 24 takes the last.
constexpr float kFullScaleDb16 = 90.3087f;
constexpr float kFullScaleDb24 = 144.4944f;
constexpr float kFullScaleDbOther = 192.6592f;

// A low-pass below the lowest octave band, octave band-passes, a high-pass above.
constexpr float kDefaultFreq[kLevelBands] = {31.0f, 62.0f, 125.0f, 250.0f, 500.0f,
                                             1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};
constexpr float kDefaultQ[kLevelBands] = {0.7f, 1.2f, 1.2f, 1.2f, 1.2f, 1.2f, 1.2f, 1.2f, 1.2f, 0.7f};
// Fixed by band index; new frequencies never change a band's kind.
constexpr int kBandType[kLevelBands] = {eqdrc::kGeneralLP, eqdrc::kBandPass, eqdrc::kBandPass, eqdrc::kBandPass,
                                        eqdrc::kBandPass,  eqdrc::kBandPass, eqdrc::kBandPass, eqdrc::kBandPass,
                                        eqdrc::kBandPass,  eqdrc::kGeneralHP};

// Build date and time in the banner: the compiler's "Mmm dd yyyy" and "hh:mm:ss".
void print_banner()
{
    static const char kBuildDate[] = __DATE__;
    char month[sizeof kBuildDate];  // as long as the whole date, so "%s" cannot overrun
    int day = 0, year = 0;
    if (std::sscanf(kBuildDate, "%s %d %d", month, &day, &year) != 3)
        return;
    eqdrc::log_line(eqdrc::site::kLevelDetectorBanner, "TQ_LevelDetector-VERSION_1.0.0:[%d-%s-%d:%s]\n\n", year,
                    month, day, __TIME__);
}

}  // namespace

LevelDetectorState *LevelDetectorState::create(int bitDepth, int sampleRate, int channels, int frameLen)
{
    auto *st = eqdrc::zeroed<LevelDetectorState>(1);
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->bitDepth = bitDepth;
    st->frameLen = frameLen;
    st->ms_scale = 1.0f / (static_cast<float>(frameLen) + 1.0f);
    const float coef =
        eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_denominator(frameLen, sampleRate, kDefaultTimeMs));
    st->rms_coef = coef;
    st->decay_coef = coef;
    st->hold_len = 0;
    st->full_scale_db = bitDepth == 16 ? kFullScaleDb16 : bitDepth == 24 ? kFullScaleDb24 : kFullScaleDbOther;

    st->hold_count = eqdrc::zeroed<int32_t>(kLevelBands);
    st->band_power = eqdrc::zeroed<float>(kLevelBands);
    st->band_level = eqdrc::zeroed<float>(kLevelBands);
    st->band_freq = eqdrc::zeroed<float>(kLevelBands);
    st->band_q = eqdrc::zeroed<float>(kLevelBands);
    st->band_coeffs = eqdrc::zeroed<float>(kLevelBands * eqdrc::kBiquadCoeffs);
    st->band_z = eqdrc::zeroed<float>(kLevelBands * eqdrc::kBiquadState);
    std::memcpy(st->band_freq, kDefaultFreq, sizeof kDefaultFreq);
    std::memcpy(st->band_q, kDefaultQ, sizeof kDefaultQ);
    st->design_bands();

    print_banner();
    return st;
}

void LevelDetectorState::design_bands()
{
    for (int b = 0; b < kLevelBands; b++)
        eqdrc::design_biquad(band_coeffs + b * eqdrc::kBiquadCoeffs, kBandType[b], static_cast<float>(sampleRate),
                             band_freq[b], band_q[b], 0.0f);
}

int LevelDetectorState::process(const int16_t *pcm, int n)
{
    // A stride of zero or less measures the first sample of the buffer over and over
    // instead of reading before it.
    const int stride = channels > 0 ? channels : 0;
    float sums[kLevelBands] = {};
    for (int i = 0; i < n; i++) {
        const float x = static_cast<float>(pcm[static_cast<size_t>(i) * static_cast<size_t>(stride)]);
        // The shared section's sums differ from -(y a1) + x b1 + z2 only in operand
        // order, which IEEE addition does not see.
        for (int b = 0; b < kLevelBands; b++) {
            const float y = eqdrc::biquad_step(band_coeffs + b * eqdrc::kBiquadCoeffs,
                                               band_z + b * eqdrc::kBiquadState, x);
            sums[b] = sums[b] + y * y;
        }
    }

    for (int b = 0; b < kLevelBands; b++) {
        // Mean power with the creation divisor, whatever n is.
        const float p = sums[b] * ms_scale;
        if (p > band_power[b]) {
            band_power[b] = p * rms_coef + (1.0f - rms_coef) * band_power[b];
            const int32_t held = eqdrc::wrapping_add(hold_count[b], n);
            hold_count[b] = held < hold_len ? held : hold_len;
        } else {
            hold_count[b] = eqdrc::wrapping_sub(hold_count[b], n);
            if (hold_count[b] <= 0)
                band_power[b] = p * decay_coef + (1.0f - decay_coef) * band_power[b];
            if (hold_count[b] < 0)
                hold_count[b] = 0;
        }
        band_level[b] = eqdrc::mathf::log10f(band_power[b] + 1.0f) * 10.0f - full_scale_db;
    }
    return n;
}

int LevelDetectorState::set_para(const float *bands, float rmstc, float hold_time, float decay_time)
{
    const float fs = static_cast<float>(sampleRate);
    rms_coef = eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_product(frameLen, sampleRate, rmstc));
    hold_len = eqdrc::to_int32(fs * hold_time / 1000.0f);
    decay_coef = eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_product(frameLen, sampleRate, decay_time));
    eqdrc::log_line(eqdrc::site::kLevelDetectorSetPara, "rmstc is %f, hold_time is %f, decay_time %f\n",
                    static_cast<double>(rmstc), static_cast<double>(hold_time), static_cast<double>(decay_time));

    std::memset(hold_count, 0, kLevelBands * sizeof(int32_t));
    std::memset(band_power, 0, kLevelBands * sizeof(float));
    if (bands != nullptr) {
        for (int b = 0; b < kLevelBands; b++) {
            band_freq[b] = bands[2 * b];
            band_q[b] = bands[2 * b + 1];
        }
        design_bands();
    }
    return frameLen;
}

int LevelDetectorState::get_result(LevelDetectorResult *out) const
{
    // Truncated toward zero, then the low 16 bits.
    for (int b = 0; b < kLevelBands; b++) {
        out->freq[b] = static_cast<int16_t>(static_cast<uint16_t>(eqdrc::to_int32(band_freq[b])));
        out->level[b] = static_cast<int16_t>(static_cast<uint16_t>(eqdrc::to_int32(band_level[b])));
    }
    return frameLen;
}

void LevelDetectorState::destroy()
{
    std::free(hold_count);
    std::free(band_power);
    std::free(band_level);
    std::free(band_freq);
    std::free(band_q);
    std::free(band_coeffs);
    std::free(band_z);
    std::free(this);
}
