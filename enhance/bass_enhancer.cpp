// Bass enhancer.
#include "enhance/bass_enhancer.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "chain/alloc.h"
#include "chain/log.h"
#include "chain/numeric.h"
#include "chain/record.h"
#include "chain/scale.h"
#include "chain/stage_setup.h"
#include "filters/biquad.h"
#include "filters/designer.h"

namespace {

constexpr int kTooManyChannelsLine = 139;
constexpr int kBitRateWrongLine = 174;
constexpr int kPrintTitleLine = 375;
constexpr int kPrintRuleLine = 376;
constexpr int kPrintChannelLine = 378;  // the six parameter lines follow on 379..384

constexpr int kLegacyConstantA = 10;
constexpr int kLegacyConstantB = 4;

constexpr int kSections = 2;  // every filter is two identical cascaded sections
constexpr int kCoeffsPerChannel = kSections * eqdrc::kBiquadCoeffs;
constexpr int kStatePerChannel = kSections * eqdrc::kBiquadState;

constexpr float kHarmonicBandTop = 3.0f;  // harmonic band is freq .. 3 x freq
constexpr float kDriveScale = 12.0f;
constexpr float kBlendPivot = 10.5f;
constexpr float kShaperGain = 23.64f;  // bit pattern 0x41BD1EB8
constexpr float kDcBlockerTime = 0.1f;
// Below this a value is treated as zero: keeps square roots real and the recursive
// DC blocker out of the denormal range.
constexpr float kFlush = 1e-8f;
constexpr float kFloorOnThreshold = 0.5f;

// sqrt(|v|), or 0 when |v| is at most the flush level.
inline float sqrt_flushed(float v)
{
    const float a = fabsf(v);
    return a > kFlush ? sqrtf(a) : 0.0f;
}

using Cascade = BassEnhancerState::Cascade;
constexpr Cascade BassEnhancerState::*kFilters[] = {
    &BassEnhancerState::splitLow,    &BassEnhancerState::splitHigh, &BassEnhancerState::harmonicLow,
    &BassEnhancerState::harmonicHigh, &BassEnhancerState::floorHigh,
};

}  // namespace

float BassEnhancerState::Cascade::run(int ch, float x)
{
    const float *c = coeffs + ch * kCoeffsPerChannel;
    float *z = state + ch * kStatePerChannel;
    const float y = eqdrc::biquad_step(c, z, x);
    return eqdrc::biquad_step(c + eqdrc::kBiquadCoeffs, z + eqdrc::kBiquadState, y);
}

BassEnhancerState *BassEnhancerState::create(const float *section, int bits, int sampleRate, int channels,
                                             int link)
{
    // Per-channel values live in arrays of two: a third channel cannot be held.
    eqdrc::require_channels("BassEnhancer_Init", kTooManyChannelsLine, channels, eqdrc::kBassMaxChannels);
    auto *st = eqdrc::zeroed<BassEnhancerState>(1);
    st->bits = bits;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->link = link;
    st->read_section(section);
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report("BassEnhancer_Init", kBitRateWrongLine, bits, &scale))
        return nullptr;  // deliberate leak: this path has never freed the record
    st->fullScale = scale.fullScale;
    st->legacyConstants[0] = kLegacyConstantA;
    st->legacyConstants[1] = kLegacyConstantB;
    // channels < 1 is accepted (and then does nothing): its filters are allocated empty.
    for (auto filter : kFilters) {
        (st->*filter).coeffs = eqdrc::zeroed<float>(eqdrc::count_of(channels) * kCoeffsPerChannel);
        (st->*filter).state = eqdrc::zeroed<float>(eqdrc::count_of(channels) * kStatePerChannel);
    }
    st->design();
    return st;
}

void BassEnhancerState::read_section(const float *section)
{
    for (int ch = 0; ch < channels; ch++) {
        const float *p = eqdrc::channel_block(section, ch, link, eqdrc::kBassChannelWords);
        amountDb[ch] = p[eqdrc::kBassAmountDb];
        amountLinear[ch] = powf(10.0f, amountDb[ch] / 20.0f);
        drive[ch] = p[eqdrc::kBassDrive];
        blend[ch] = p[eqdrc::kBassBlend];
        freqHz[ch] = p[eqdrc::kBassFreq];
        floorActive[ch] = eqdrc::to_int32(p[eqdrc::kBassFloorActive]);
        floorHz[ch] = p[eqdrc::kBassFloor];
    }
}

void BassEnhancerState::design()
{
    if (channels > 0)
        for (auto filter : kFilters)
            std::memset((this->*filter).state, 0, sizeof(float) * static_cast<size_t>(channels) * kStatePerChannel);

    const float fs = static_cast<float>(sampleRate);
    for (int ch = 0; ch < channels; ch++) {
        const struct {
            Cascade *filter;
            int type;
            float fc;
        } plan[] = {
            {&splitLow, eqdrc::kButterworthLP, freqHz[ch]},
            {&splitHigh, eqdrc::kButterworthHP, freqHz[ch]},
            {&harmonicLow, eqdrc::kButterworthLP, freqHz[ch] * kHarmonicBandTop},
            {&harmonicHigh, eqdrc::kButterworthHP, freqHz[ch]},
            {&floorHigh, eqdrc::kButterworthHP, floorHz[ch]},  // designed even when the floor is off
        };
        for (const auto &d : plan) {
            float *c = d.filter->coeffs + ch * kCoeffsPerChannel;
            eqdrc::design_biquad(c, d.type, fs, d.fc, 0.0f, 0.0f);
            std::memcpy(c + eqdrc::kBiquadCoeffs, c, sizeof(float) * eqdrc::kBiquadCoeffs);
        }

        // Shaper constants.  drive 0 or blend 10.5 give infinities or NaN: left as they come.
        const float k = kDriveScale / drive[ch];
        const float m = (k / (kBlendPivot - blend[ch])) * kShaperGain;
        const float t = fabsf((k + k) * k - 1.0f);
        const float r = t > kFlush ? sqrtf(t) : 0.0f;
        const float a = r + 1.0f;
        shaperA[ch] = a;
        shaperB[ch] = (2.0f - a) * 0.5f;
        shaperE[ch] = ((k * k - a) + 1.0f) * 0.5f;
        const float q = sqrt_flushed(2.0f * r - 2.0f * k * k);
        const float u = a / q;  // q == 0 gives an infinite u: no guard
        const float s = 1.0f + u * u;
        const float rootS = s > kFlush ? sqrtf(s) : 0.0f;
        shaperP[ch] = (2.0f * u * m) / rootS;
        shaperD[ch] = -m / rootS;
        shaperF[ch] = m * m / s;
        const float rr = sqrt_flushed(2.0f * shaperP[ch] + 4.0f * shaperF[ch] - 1.0f);
        shaperScale[ch] = 2.0f / (2.0f * shaperD[ch] + rr + 1.0f);
        dcPole[ch] = (fs * kDcBlockerTime) / (fs * kDcBlockerTime + 1.0f);
    }
}

// Nothing here depends on frameLen beyond the caller's buffers, so any length is safe.
void BassEnhancerState::process(const float *const *in, float *const *out, int frameLen)
{
    if (channels < 1 || frameLen < 1)
        return;
    for (int ch = 0; ch < channels; ch++) {
        const float a = shaperA[ch], b = shaperB[ch], p = shaperP[ch], d = shaperD[ch];
        const float e = shaperE[ch], f = shaperF[ch], g = dcPole[ch], h = shaperScale[ch];
        const float amount = amountLinear[ch];
        const bool floorOn = static_cast<float>(floorActive[ch]) > kFloorOnThreshold;
        float prevIn = dcPrevIn[ch];
        float prevOut = dcPrevOut[ch];
        for (int i = 0; i < frameLen; i++) {
            const float x = in[ch][i] / fullScale;
            const float lo = splitLow.run(ch, x);
            const float hi = splitHigh.run(ch, x);

            // Asymmetric square-root shaper; a NaN takes the negative branch.
            float w;
            if (lo >= 0.0f)
                w = (sqrt_flushed(e + (a - lo) * lo) + b) * h;
            else
                w = -(h * (d + sqrt_flushed(f - (lo + p) * lo)));

            const float dc = (w - prevIn + prevOut) * g;
            prevIn = fabsf(w) <= kFlush ? 0.0f : w;
            prevOut = fabsf(dc) <= kFlush ? 0.0f : dc;

            float harmonics = harmonicHigh.run(ch, harmonicLow.run(ch, dc));
            if (floorOn)
                harmonics = floorHigh.run(ch, harmonics);
            // The dry band below freq is not returned: the harmonics stand in for it.
            out[ch][i] = (hi + harmonics * amount) * fullScale;
        }
        dcPrevIn[ch] = prevIn;
        dcPrevOut[ch] = prevOut;
    }
}

void BassEnhancerState::set_para(const float *section)
{
    read_section(section);
    dcPrevIn[0] = 0.0f;
    dcPrevOut[0] = 0.0f;
    if (channels == 2) {
        dcPrevIn[1] = 0.0f;
        dcPrevOut[1] = 0.0f;
    }
    design();
}

void BassEnhancerState::get_para(float *section) const
{
    const int n = channels < eqdrc::kBassMaxChannels ? channels : eqdrc::kBassMaxChannels;
    for (int ch = 0; ch < n; ch++) {
        float *p = section + ch * eqdrc::kBassChannelWords;
        p[eqdrc::kBassAmountDb] = amountDb[ch];
        p[eqdrc::kBassDrive] = drive[ch];
        p[eqdrc::kBassBlend] = blend[ch];
        p[eqdrc::kBassFreq] = freqHz[ch];
        p[eqdrc::kBassFloorActive] = static_cast<float>(floorActive[ch]);
        p[eqdrc::kBassFloor] = floorHz[ch];
    }
}

int BassEnhancerState::print_para() const
{
    const char *fn = "BassEnhancer_PrintPara";
    int n = eqdrc::log_line(fn, kPrintTitleLine, "BassEnhancer Param\n");
    n += eqdrc::log_line(fn, kPrintRuleLine, "=====================\n");
    for (int ch = 0; ch < channels; ch++) {
        const int l = kPrintChannelLine;
        n += eqdrc::log_line(fn, l, "==== channel:%i ====\n", ch);
        n += eqdrc::log_line(fn, l + 1, "amount_dB:%.2f\n", static_cast<double>(amountDb[ch]));
        n += eqdrc::log_line(fn, l + 2, "drive:%.2f\n", static_cast<double>(drive[ch]));
        n += eqdrc::log_line(fn, l + 3, "blend:%.2f\n", static_cast<double>(blend[ch]));
        n += eqdrc::log_line(fn, l + 4, "freq:%.2f\n", static_cast<double>(freqHz[ch]));
        n += eqdrc::log_line(fn, l + 5, "floor_active:%i\n", floorActive[ch]);
        n += eqdrc::log_line(fn, l + 6, "floor:%.2f\n", static_cast<double>(floorHz[ch]));
    }
    return n;
}

void BassEnhancerState::destroy()
{
    for (auto filter : kFilters) {
        std::free((this->*filter).coeffs);
        std::free((this->*filter).state);
    }
    std::free(this);
}
