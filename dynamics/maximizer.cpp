// Set-up, parameter replacement, read-back, print-out and tear-down of the maximizer's
// record; its AGC and limiter do the work.
#include "dynamics/maximizer.h"

#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "dynamics/dynamics_log.h"

namespace {

using eqdrc::kMaximizerBlockWords;

constexpr eqdrc::AgcSettings kDefaultAgc = {{-20.0f, -40.0f, -45.0f, 16.0f, -1.0f}, 200.0f, 400.0f, 200.0f};

}  // namespace

MaximizerState *MaximizerState::create(const float *section, int bitDepth, int sampleRate, int channels,
                                       int frameLen, int channelLink)
{
    eqdrc::require_channels(eqdrc::site::kMaximizerInitChannels, channels, eqdrc::kDynamicsMaxChannels);
    auto *st = eqdrc::zeroed<MaximizerState>(1);
    eqdrc::DynamicsFormat &f = st->format;
    f.bitDepth = bitDepth;
    f.sampleRate = sampleRate;
    f.channels = channels;
    f.frameLen = frameLen;
    f.channelLink = channelLink;
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report(eqdrc::site::kMaximizerInitBitDepth, bitDepth, &scale))
        return eqdrc::refuse_keeping_record(st);
    f.log10FullScale = scale.log10FullScale;
    f.fullScale = scale.fullScale;

    // No channels: the per-channel arrays are allocated empty.
    st->agc.gains.allocate(channels);
    st->limiter.gains.allocate(channels);
    if (section == nullptr) {
        for (int ch = 0; ch < channels; ch++)
            st->agc.set(f, ch, kDefaultAgc);
        for (int ch = 0; ch < channels; ch++)
            st->limiter.set_default(f, ch);
        return st;
    }
    st->set_agc_from(section, eqdrc::site::kMaximizerInitAgcCurve);
    for (int ch = 0; ch < channels; ch++) {
        const float *block = eqdrc::channel_block(section, ch, channelLink, kMaximizerBlockWords);
        st->limiter.set(f, ch, block[eqdrc::kLimiterWordThreshold], block[eqdrc::kLimiterWordCeiling],
                        block[eqdrc::kLimiterWordRelease]);
    }
    return st;
}

void MaximizerState::set_agc_from(const float *section, eqdrc::LogSite site)
{
    for (int ch = 0; ch < format.channels; ch++) {
        const float *block = eqdrc::channel_block(section, ch, format.channelLink, kMaximizerBlockWords);
        const eqdrc::AgcSettings s = eqdrc::AgcSettings::from_block(block + eqdrc::kAgcWordCompressStart);
        if (!s.consistent())
            eqdrc::log_line(site, "wrong param for agc, please check again\n\n");
        agc.set(format, ch, s);
    }
}

void MaximizerState::set_para(const float *section)
{
    if (format.channels < 1)
        return;
    set_agc_from(section, eqdrc::site::kMaximizerSetParaAgcCurve);
    for (int ch = 0; ch < format.channels; ch++) {
        const float *block = eqdrc::channel_block(section, ch, format.channelLink, kMaximizerBlockWords);
        limiter.set(format, ch, block[eqdrc::kLimiterWordThreshold], block[eqdrc::kLimiterWordCeiling],
                    block[eqdrc::kLimiterWordRelease]);
    }
}

void MaximizerState::get_para(float *section) const
{
    for (int ch = 0; ch < format.channels; ch++) {
        float *block = section + ch * kMaximizerBlockWords;
        limiter.to_block(ch, block);
        agc.settings[ch].to_block(block + eqdrc::kAgcWordCompressStart);
    }
}

int MaximizerState::print_para() const
{
    agc.print(format);
    return limiter.print(format);
}

float MaximizerState::agc_gain(int ch) const
{
    return ch >= 0 && ch < format.channels && ch < eqdrc::kDynamicsMaxChannels ? agc.gains.gain[ch] : 1.0f;
}

float MaximizerState::limiter_gain(int ch) const
{
    if (ch < 0 || ch >= format.channels || ch >= eqdrc::kDynamicsMaxChannels)
        return 1.0f;
    return limiter.gains.gain[ch] / limiter.makeup[ch];
}

void MaximizerState::destroy()
{
    limiter.gains.free_all(format.channels);
    agc.gains.free_all(format.channels);
    std::free(this);
}
