// The exciter's parameter side: the channel blocks, the drive gains and high-passes
// from them, and the blocks given back (read-back, print-out).
#include "enhance/exciter.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "enhance/enhance_log.h"
#include "filters/biquad.h"
#include "filters/designer.h"

eqdrc::ExciterSettings eqdrc::ExciterSettings::from_block(const float *block)
{
    return {block[kExciterEvenHarmonics], block[kExciterDistortionAmount], block[kExciterCutoff], block[kExciterMix]};
}

void eqdrc::ExciterSettings::to_block(float *block) const
{
    block[kExciterEvenHarmonics] = evenHarmonics;
    block[kExciterDistortionAmount] = distortionAmount;
    block[kExciterCutoff] = cutoffHz;
    block[kExciterMix] = mix;
}

ExciterState *ExciterState::create(const float *section, int bitDepth, int sampleRate, int channels, int link)
{
    // Per-channel values live in arrays of two: a third channel cannot be held.
    eqdrc::require_channels(eqdrc::site::kExciterInitChannels, channels, eqdrc::kExciterMaxChannels);
    auto *st = eqdrc::zeroed<ExciterState>(1);
    st->bitDepth = bitDepth;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->link = link;
    st->read_section(section);
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report(eqdrc::site::kExciterInitBitDepth, bitDepth, &scale))
        return eqdrc::refuse_keeping_record(st);
    st->fullScale = scale.fullScale;
    // channels < 1 is accepted (and then does nothing): its filters are allocated empty.
    const size_t ch = eqdrc::count_of(channels);
    st->inputHighCoeffs = eqdrc::zeroed<float>(ch * eqdrc::kBiquadCoeffs);
    st->outputHighCoeffs = eqdrc::zeroed<float>(ch * eqdrc::kBiquadCoeffs);
    st->inputHighState = eqdrc::zeroed<float>(ch * eqdrc::kBiquadState);
    st->outputHighState = eqdrc::zeroed<float>(ch * eqdrc::kBiquadState);
    st->design();
    return st;
}

void ExciterState::read_section(const float *section)
{
    for (int ch = 0; ch < channels; ch++) {
        const float *p = eqdrc::channel_block(section, ch, link, eqdrc::kExciterChannelWords);
        settings[ch] = eqdrc::ExciterSettings::from_block(p);
        const float amount = settings[ch].distortionAmount;
        // Ten to the power of twice the amount (0 -> 1, 0.5 -> 10, 1 -> 100): not a dB law.
        driveGain[ch] = eqdrc::mathf::powf(eqdrc::mathf::kTen, amount + amount);
        inverseDriveGain[ch] = 1.0f / driveGain[ch];
    }
}

void ExciterState::design()
{
    const float fs = static_cast<float>(sampleRate);
    for (int ch = 0; ch < channels; ch++) {
        float *in = inputHighCoeffs + ch * eqdrc::kBiquadCoeffs;
        float *out = outputHighCoeffs + ch * eqdrc::kBiquadCoeffs;
        eqdrc::design_biquad(in, eqdrc::kButterworthHP, fs, settings[ch].cutoffHz, 0.0f, 0.0f);
        eqdrc::design_biquad(out, eqdrc::kButterworthHP, fs, settings[ch].cutoffHz, 0.0f, 0.0f);
    }
}

void ExciterState::set_para(const float *section)
{
    read_section(section);
    design();
    if (channels > 0) {
        std::memset(inputHighState, 0, sizeof(float) * static_cast<size_t>(channels) * eqdrc::kBiquadState);
        std::memset(outputHighState, 0, sizeof(float) * static_cast<size_t>(channels) * eqdrc::kBiquadState);
    }
}

void ExciterState::get_para(float *section) const
{
    const int n = channels < eqdrc::kExciterMaxChannels ? channels : eqdrc::kExciterMaxChannels;
    for (int ch = 0; ch < n; ch++)
        settings[ch].to_block(section + ch * eqdrc::kExciterChannelWords);
}

int ExciterState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kExciterPrintTitle, "Exciter Param\n");
    for (int ch = 0; ch < channels; ch++) {
        out.heading(eqdrc::site::kExciterPrintChannel, eqdrc::kEquals, "channel", ch);
        const eqdrc::ExciterSettings &s = settings[ch];
        out.value("even_harmonics", s.evenHarmonics);
        out.value("distortion_amount", s.distortionAmount);
        out.value("Cutoff", s.cutoffHz);
        out.value("mix", s.mix);
    }
    return out.total();
}

void ExciterState::destroy()
{
    std::free(inputHighCoeffs);
    std::free(inputHighState);
    std::free(outputHighCoeffs);
    std::free(outputHighState);
    std::free(this);
}
