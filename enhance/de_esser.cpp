// The de-esser's parameter side: the channel blocks, the band-pass and notch designed
// from them, and the blocks given back (read-back, print-out).
#include "enhance/de_esser.h"

#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "core/time_constant.h"
#include "enhance/enhance_log.h"

namespace {

constexpr float kReleaseMs = 200.0f;
constexpr float kAttackMs = 100.0f;
constexpr float kWidth = 1.0f;  // octaves for the band-pass, Q for the notch
constexpr double kTwoPi = 6.283185307179586;
constexpr float kHalfLn2 = 0.3465736f;  // bit pattern 0x3EB17218
constexpr int kReadBackWordA = 5;  // the only section words the read-back touches
constexpr int kReadBackWordB = 6;

}  // namespace

eqdrc::DeEsserSettings eqdrc::DeEsserSettings::from_block(const float *block)
{
    return {block[kDeEsserF0], block[kDeEsserThreshold]};
}

DeEsserState *DeEsserState::create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen,
                                   int link)
{
    // Per-channel values live in arrays of two: a third channel cannot be held.
    eqdrc::require_channels(eqdrc::site::kDeEsserInitChannels, channels, eqdrc::kDeEsserMaxChannels);
    auto *st = eqdrc::zeroed<DeEsserState>(1);
    st->bitDepth = bitDepth;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->frameLen = frameLen;
    st->link = link;
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report(eqdrc::site::kDeEsserInitBitDepth, bitDepth, &scale))
        return eqdrc::refuse_keeping_record(st);
    st->log10FullScale = scale.log10FullScale;
    st->read_section(section);
    st->releaseMs = kReleaseMs;
    st->attackMs = kAttackMs;
    st->releaseCoef = eqdrc::frame_decay_float_product(frameLen, sampleRate, st->releaseMs);
    st->attackCoef = eqdrc::frame_decay_float_product(frameLen, sampleRate, st->attackMs);
    st->width = kWidth;
    for (int ch = 0; ch < channels; ch++) {
        st->design(ch, AlphaForm::kCreation);
        st->gain[ch] = 1.0f;  // filter states are still zero from the allocation
    }
    st->inverseFrameLen = 1.0f / static_cast<float>(frameLen);
    return st;
}

void DeEsserState::read_section(const float *section)
{
    for (int ch = 0; ch < channels; ch++) {
        const float *p = eqdrc::channel_block(section, ch, link, eqdrc::kDeEsserChannelWords);
        settings[ch] = eqdrc::DeEsserSettings::from_block(p);
    }
}

void DeEsserState::design(int ch, AlphaForm form)
{
    const float w0 = static_cast<float>(static_cast<double>(settings[ch].f0Hz) * kTwoPi / static_cast<double>(sampleRate));
    float sn, cs;
    eqdrc::mathf::sincosf(w0, &sn, &cs);

    // Constant 0 dB peak band-pass, bandwidth in octaves.  Creation and retuning form
    // the sinh argument in different orders; equal while the width is 1.
    const float arg = form == AlphaForm::kCreation ? kHalfLn2 * w0 / sn : (width * kHalfLn2) * w0 / sn;
    const float alpha = sn * eqdrc::mathf::sinhf(arg);
    const float a0 = 1.0f + alpha;
    float *bp = bandPassCoeffs[ch];
    bp[0] = alpha / a0;
    bp[1] = 0.0f;
    bp[2] = -alpha / a0;
    bp[3] = -2.0f * cs / a0;
    bp[4] = (1.0f - alpha) / a0;

    const float alpha2 = sn / (width + width);
    const float n0 = 1.0f + alpha2;
    float *nt = notchCoeffs[ch];
    nt[0] = 1.0f / n0;
    nt[1] = -2.0f * cs / n0;
    nt[2] = 1.0f / n0;
    nt[3] = -2.0f * cs / n0;
    nt[4] = (1.0f - alpha2) / n0;
}
void DeEsserState::set_para(const float *section)
{
    if (channels < 1)
        return;
    read_section(section);
    for (int ch = 0; ch < channels; ch++) {
        design(ch, AlphaForm::kWithWidth);
        bandPassState[ch][0] = bandPassState[ch][1] = 0.0f;
        notchState[ch][0] = notchState[ch][1] = 0.0f;
        gain[ch] = 1.0f;
    }
}

// Every value lands on word 5 or 6 and overwrites the one before: with two channels
// only channel 1 comes back.  Hosts and tunings rely on this read-back as it is.
void DeEsserState::get_para(float *section) const
{
    if (channels < 1)
        return;
    section[kReadBackWordA] = settings[0].f0Hz;
    section[kReadBackWordA] = settings[0].thresholdDb;
    if (channels == 2) {
        section[kReadBackWordA] = settings[1].f0Hz;
        section[kReadBackWordB] = settings[1].thresholdDb;
    }
}

int DeEsserState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kDeEsserPrintTitle, "DeEsser Param\n");
    for (int ch = 0; ch < channels; ch++) {
        out.heading(eqdrc::site::kDeEsserPrintChannel, eqdrc::kDashes, "channel", ch);
        out.value("f0", settings[ch].f0Hz);
        out.value("threshold", settings[ch].thresholdDb);
    }
    return out.total();
}

void DeEsserState::destroy() { std::free(this); }
