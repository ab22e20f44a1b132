// The bass enhancer's parameter side: the channel blocks, the filters' and shapers'
// design from them, and the blocks given back (read-back, print-out).
#include "enhance/bass_enhancer.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "enhance/enhance_log.h"
#include "filters/biquad.h"
#include "filters/designer.h"

namespace {

using Cascade = BassEnhancerState::Cascade;

constexpr float kHarmonicBandTop = 3.0f;  // harmonic band is freq .. 3 x freq
constexpr float kDcBlockerTime = 0.1f;

constexpr Cascade BassEnhancerState::*kFilters[] = {
    &BassEnhancerState::splitLow,    &BassEnhancerState::splitHigh, &BassEnhancerState::harmonicLow,
    &BassEnhancerState::harmonicHigh, &BassEnhancerState::floorHigh,
};

}  // namespace

eqdrc::BassSettings eqdrc::BassSettings::from_block(const float *block)
{
    return {block[kBassAmountDb], block[kBassDrive], block[kBassBlend], block[kBassFreq],
            to_int32(block[kBassFloorActive]), block[kBassFloor]};
}

void eqdrc::BassSettings::to_block(float *block) const
{
    block[kBassAmountDb] = amountDb;
    block[kBassDrive] = drive;
    block[kBassBlend] = blend;
    block[kBassFreq] = freqHz;
    block[kBassFloorActive] = static_cast<float>(floorActive);
    block[kBassFloor] = floorHz;
}

BassEnhancerState *BassEnhancerState::create(const float *section, int bitDepth, int sampleRate, int channels,
                                             int link)
{
    // Per-channel values live in arrays of two: a third channel cannot be held.
    eqdrc::require_channels(eqdrc::site::kBassInitChannels, channels, eqdrc::kBassMaxChannels);
    auto *st = eqdrc::zeroed<BassEnhancerState>(1);
    st->bitDepth = bitDepth;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->link = link;
    st->read_section(section);
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report(eqdrc::site::kBassInitBitDepth, bitDepth, &scale))
        return eqdrc::refuse_keeping_record(st);
    st->fullScale = scale.fullScale;
    // channels < 1 is accepted (and then does nothing): its filters are allocated empty.
    for (auto filter : kFilters) {
        (st->*filter).coeffs = eqdrc::zeroed<float>(eqdrc::count_of(channels) * Cascade::kCoeffsPerChannel);
        (st->*filter).state = eqdrc::zeroed<float>(eqdrc::count_of(channels) * Cascade::kStatePerChannel);
    }
    st->design();
    return st;
}

void BassEnhancerState::read_section(const float *section)
{
    for (int ch = 0; ch < channels; ch++) {
        const float *p = eqdrc::channel_block(section, ch, link, eqdrc::kBassChannelWords);
        settings[ch] = eqdrc::BassSettings::from_block(p);
        amountLinear[ch] = eqdrc::mathf::powf(eqdrc::mathf::kTen, settings[ch].amountDb / 20.0f);
    }
}

void BassEnhancerState::design()
{
    if (channels > 0)
        for (auto filter : kFilters)
            std::memset((this->*filter).state, 0, sizeof(float) * static_cast<size_t>(channels) * Cascade::kStatePerChannel);

    const float fs = static_cast<float>(sampleRate);
    for (int ch = 0; ch < channels; ch++) {
        const eqdrc::BassSettings &s = settings[ch];
        const struct {
            Cascade *filter;
            int type;
            float fc;
        } plan[] = {
            {&splitLow, eqdrc::kButterworthLP, s.freqHz},
            {&splitHigh, eqdrc::kButterworthHP, s.freqHz},
            {&harmonicLow, eqdrc::kButterworthLP, s.freqHz * kHarmonicBandTop},
            {&harmonicHigh, eqdrc::kButterworthHP, s.freqHz},
            {&floorHigh, eqdrc::kButterworthHP, s.floorHz},  // designed even when the floor is off
        };
        for (const auto &d : plan) {
            float *c = d.filter->coeffs + ch * Cascade::kCoeffsPerChannel;
            eqdrc::design_biquad(c, d.type, fs, d.fc, 0.0f, 0.0f);
            std::memcpy(c + eqdrc::kBiquadCoeffs, c, sizeof(float) * eqdrc::kBiquadCoeffs);
        }

        shaper[ch] = eqdrc::BassShaper::design(s.drive, s.blend);
        dcPole[ch] = (fs * kDcBlockerTime) / (fs * kDcBlockerTime + 1.0f);
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
    for (int ch = 0; ch < n; ch++)
        settings[ch].to_block(section + ch * eqdrc::kBassChannelWords);
}

int BassEnhancerState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kBassPrintTitle, "BassEnhancer Param\n");
    for (int ch = 0; ch < channels; ch++) {
        out.heading(eqdrc::site::kBassPrintChannel, eqdrc::kEquals, "channel", ch);
        const eqdrc::BassSettings &s = settings[ch];
        out.value("amount_dB", s.amountDb);
        out.value("drive", s.drive);
        out.value("blend", s.blend);
        out.value("freq", s.freqHz);
        out.value("floor_active", s.floorActive);
        out.value("floor", s.floorHz);
    }
    return out.total();
}

void BassEnhancerState::destroy()
{
    for (auto filter : kFilters) {
        std::free((this->*filter).coeffs);
        std::free((this->*filter).state);
    }
    std::free(this);
}
