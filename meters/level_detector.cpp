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
#include "meters/meters_log.h"

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
    st->msScale = 1.0f / (static_cast<float>(frameLen) + 1.0f);
    const float coef =
        eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_denominator(frameLen, sampleRate, kDefaultTimeMs));
    st->rmsCoef = coef;
    st->decayCoef = coef;
    st->holdSamples = 0;
    st->fullScaleDb = bitDepth == 16 ? kFullScaleDb16 : bitDepth == 24 ? kFullScaleDb24 : kFullScaleDbOther;

    st->holdCounter = eqdrc::zeroed<int32_t>(kLevelBands);
    st->bandPower = eqdrc::zeroed<float>(kLevelBands);
    st->bandLevelDb = eqdrc::zeroed<float>(kLevelBands);
    st->bandFreqHz = eqdrc::zeroed<float>(kLevelBands);
    st->bandQ = eqdrc::zeroed<float>(kLevelBands);
    st->bandCoeffs = eqdrc::zeroed<float>(kLevelBands * eqdrc::kBiquadCoeffs);
    st->bandState = eqdrc::zeroed<float>(kLevelBands * eqdrc::kBiquadState);
    std::memcpy(st->bandFreqHz, kDefaultFreq, sizeof kDefaultFreq);
    std::memcpy(st->bandQ, kDefaultQ, sizeof kDefaultQ);
    st->design_bands();

    print_banner();
    return st;
}

void LevelDetectorState::design_bands()
{
    for (int b = 0; b < kLevelBands; b++)
        eqdrc::design_biquad(bandCoeffs + b * eqdrc::kBiquadCoeffs, kBandType[b], static_cast<float>(sampleRate),
                             bandFreqHz[b], bandQ[b], 0.0f);
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
            const float y = eqdrc::biquad_step(bandCoeffs + b * eqdrc::kBiquadCoeffs,
                                               bandState + b * eqdrc::kBiquadState, x);
            sums[b] = sums[b] + y * y;
        }
    }

    for (int b = 0; b < kLevelBands; b++) {
        // Mean power with the creation divisor, whatever n is.
        const float p = sums[b] * msScale;
        if (p > bandPower[b]) {
            bandPower[b] = p * rmsCoef + (1.0f - rmsCoef) * bandPower[b];
            const int32_t held = eqdrc::wrapping_add(holdCounter[b], n);
            holdCounter[b] = held < holdSamples ? held : holdSamples;
        } else {
            holdCounter[b] = eqdrc::wrapping_sub(holdCounter[b], n);
            if (holdCounter[b] <= 0)
                bandPower[b] = p * decayCoef + (1.0f - decayCoef) * bandPower[b];
            if (holdCounter[b] < 0)
                holdCounter[b] = 0;
        }
        bandLevelDb[b] = eqdrc::mathf::log10f(bandPower[b] + 1.0f) * 10.0f - fullScaleDb;
    }
    return n;
}

int LevelDetectorState::set_para(const float *bands, float rmstc, float hold_time, float decay_time)
{
    const float fs = static_cast<float>(sampleRate);
    rmsCoef = eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_product(frameLen, sampleRate, rmstc));
    holdSamples = eqdrc::to_int32(fs * hold_time / 1000.0f);
    decayCoef = eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_product(frameLen, sampleRate, decay_time));
    eqdrc::log_line(eqdrc::site::kLevelDetectorSetPara, "rmstc is %f, hold_time is %f, decay_time %f\n",
                    static_cast<double>(rmstc), static_cast<double>(hold_time), static_cast<double>(decay_time));

    std::memset(holdCounter, 0, kLevelBands * sizeof(int32_t));
    std::memset(bandPower, 0, kLevelBands * sizeof(float));
    if (bands != nullptr) {
        for (int b = 0; b < kLevelBands; b++) {
            bandFreqHz[b] = bands[2 * b];
            bandQ[b] = bands[2 * b + 1];
        }
        design_bands();
    }
    return frameLen;
}

int LevelDetectorState::get_result(LevelDetectorResult *out) const
{
    // Truncated toward zero, then the low 16 bits.
    for (int b = 0; b < kLevelBands; b++) {
        out->freq[b] = static_cast<int16_t>(static_cast<uint16_t>(eqdrc::to_int32(bandFreqHz[b])));
        out->level[b] = static_cast<int16_t>(static_cast<uint16_t>(eqdrc::to_int32(bandLevelDb[b])));
    }
    return frameLen;
}

void LevelDetectorState::destroy()
{
    std::free(holdCounter);
    std::free(bandPower);
    std::free(bandLevelDb);
    std::free(bandFreqHz);
    std::free(bandQ);
    std::free(bandCoeffs);
    std::free(bandState);
    std::free(this);
}
