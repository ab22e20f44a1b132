// De-esser.
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
#include "dsp/buffer_aliasing.h"
#include "dsp/gain_ramp.h"
#include "dsp/lanes.h"
#include "dsp/repeating_state.h"
#include "enhance/enhance_log.h"
#include "filters/biquad.h"

namespace {

constexpr float kReleaseMs = 200.0f;
constexpr float kAttackMs = 100.0f;
constexpr float kWidth = 1.0f;  // octaves for the band-pass, Q for the notch
constexpr double kTwoPi = 6.283185307179586;
constexpr float kHalfLn2 = 0.3465736f;  // bit pattern 0x3EB17218
constexpr int kReadBackWordA = 5;  // the only section words the read-back touches
constexpr int kReadBackWordB = 6;

// sum + t[0] + t[4] + ... + t[4(n - 1)], added one after the other; unrolled only to
// spare the loop its counting.
float sum_in_order(float sum, const float *t, int n)
{
    constexpr int kStride = eqdrc::kLanes;
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        sum = sum + t[i * kStride];
        sum = sum + t[(i + 1) * kStride];
        sum = sum + t[(i + 2) * kStride];
        sum = sum + t[(i + 3) * kStride];
    }
    for (; i < n; i++)
        sum = sum + t[i * kStride];
    return sum;
}

}  // namespace

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
        return nullptr;  // deliberate: the record is not freed on this path, and callers may rely on it
    st->log10FullScale = scale.log10FullScale;
    st->fullScale = scale.fullScale;
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
        f0Hz[ch] = p[eqdrc::kDeEsserF0];
        thresholdDb[ch] = p[eqdrc::kDeEsserThreshold];
    }
}

void DeEsserState::design(int ch, AlphaForm form)
{
    const float w0 = static_cast<float>(static_cast<double>(f0Hz[ch]) * kTwoPi / static_cast<double>(sampleRate));
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

// Loops run over the given frameLen only and the ramp uses the stored inverse, so a
// frame of another length than at creation reads and writes nothing out of place.
void DeEsserState::process(const float *const *in, float *const *out, int n)
{
    if (channels < 1)
        return;
    if (channels == 2 && n >= 1 && n <= eqdrc::kDeEsserPairFrames && eqdrc::pair_runs_as_sequence(in, out, n)) {
        process_pair(in, out, n);
        return;
    }
    // One accumulator for all channels: channel 1 decides on both channels' band energy.
    float energy = 0.0f;
    for (int ch = 0; ch < channels; ch++) {
        const float *x = in[ch];
        for (int i = 0; i < n; i++) {
            const float y = eqdrc::biquad_step(bandPassCoeffs[ch], bandPassState[ch], x[i]);
            energy = energy + (y * y) / static_cast<float>(n);
        }
        const float target = next_gain(ch, energy);
        // Sized for the creation frame length: a shorter frame stops short of the target.
        const float step = (target - gain[ch]) * inverseFrameLen;

        float g = gain[ch];
        for (int i = 0; i < n; i++) {
            const float xi = x[i];
            const float notched = eqdrc::biquad_step(notchCoeffs[ch], notchState[ch], xi);
            g = g + step;
            out[ch][i] = xi * g + (1.0f - g) * notched;
        }
        gain[ch] = target;
    }
}

float DeEsserState::next_gain(int ch, float energy) const
{
    const float levelDb = 10.0f * eqdrc::mathf::log10f(energy + 1.0f) - 20.0f * log10FullScale;
    if (thresholdDb[ch] < levelDb)
        return gain[ch] * attackCoef;  // towards the notch
    return (1.0f - releaseCoef) + releaseCoef * gain[ch];  // back towards dry, also on NaN
}

// Both channels at once in lanes [band-pass 0, band-pass 1, notch 0, notch 1], all fed
// the frame before any output is written; then the energy is summed in the order of the
// loop above and each channel crossfaded.
void DeEsserState::process_pair(const float *const *in, float *const *out, int n)
{
    using eqdrc::f32x4;
    struct Memories {
        f32x4 z1, z2;
    };
    eqdrc::BiquadLanes c;
    Memories z;
    for (int lane = 0; lane < eqdrc::kLanes; lane++) {
        const int ch = lane & 1;
        c.set(lane, lane < 2 ? bandPassCoeffs[ch] : notchCoeffs[ch]);
        z.z1[lane] = lane < 2 ? bandPassState[ch][0] : notchState[ch][0];
        z.z2[lane] = lane < 2 ? bandPassState[ch][1] : notchState[ch][1];
    }
    // Per sample: the two energy terms, then the two notch outputs.
    constexpr int kRow = eqdrc::kLanes;
    float held[eqdrc::kDeEsserPairFrames * kRow];
    const f32x4 frames = eqdrc::splat(static_cast<float>(n));
    const eqdrc::m32x4 bandLanes = eqdrc::mask(true, true, false, false);
    const auto step = [&](Memories &m, float a, float b) EQDRC_LANE_LAMBDA {
        const f32x4 y = eqdrc::biquad_step(c, m.z1, m.z2, eqdrc::lanes(a, b, a, b));
        return eqdrc::select(bandLanes, (y * y) / frames, y);
    };
    const float *x0 = in[0], *x1 = in[1];
    // Channel 0's energy is summed as the terms come, beside the filters' recursion;
    // channel 1's sum continues from its total, so it follows.
    float energy = 0.0f;
    const int from = eqdrc::watched_tail_start(in, 2, n);
    Memories m = z;  // a copy the watch below never sees, so it can stay in registers
    for (int i = 0; i < from; i++) {
        const f32x4 t = step(m, x0[i], x1[i]);
        eqdrc::store(held + i * kRow, t);
        energy = energy + t[0];
    }
    z = m;
    // On silence both filters ring down into a fixed point or short cycle of denormals
    // and stay there: copied once it repeats.  Channel 0's terms are summed afterwards,
    // in the same order.
    if (from < n) {
        const float a = x0[from], b = x1[from];
        eqdrc::run_held(
            z, from, n, [&](Memories &s, int i) { eqdrc::store(held + i * kRow, step(s, a, b)); },
            [&](int i, int period) { eqdrc::repeat_rows(held, kRow, i, n, period); });
    }
    energy = sum_in_order(energy, held + from * kRow, n - from);
    for (int ch = 0; ch < 2; ch++) {
        bandPassState[ch][0] = z.z1[ch];
        bandPassState[ch][1] = z.z2[ch];
        notchState[ch][0] = z.z1[2 + ch];
        notchState[ch][1] = z.z2[2 + ch];
    }

    const float target0 = next_gain(0, energy);
    energy = sum_in_order(energy, held + 1, n);
    const float target1 = next_gain(1, energy);
    crossfade(0, target0, x0, held + 2, out[0], n);
    crossfade(1, target1, x1, held + 3, out[1], n);
}

void DeEsserState::crossfade(int ch, float target, const float *x, const float *notched, float *y, int n)
{
    // Sized for the creation frame length: a shorter frame stops short of the target.
    const float step = (target - gain[ch]) * inverseFrameLen;
    float g = gain[ch];
    int i = 0;
    const eqdrc::f32x4 one = eqdrc::splat(1.0f);
    for (; i + eqdrc::kLanes <= n; i += eqdrc::kLanes) {
        const float *t = notched + i * eqdrc::kLanes;
        const eqdrc::f32x4 nt = eqdrc::lanes(t[0], t[eqdrc::kLanes], t[2 * eqdrc::kLanes], t[3 * eqdrc::kLanes]);
        const eqdrc::f32x4 gv = eqdrc::ramp_lanes(g, step);
        eqdrc::store(y + i, eqdrc::load(x + i) * gv + (one - gv) * nt);
    }
    for (; i < n; i++) {
        g = g + step;
        y[i] = x[i] * g + (1.0f - g) * notched[i * eqdrc::kLanes];
    }
    gain[ch] = target;
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
    section[kReadBackWordA] = f0Hz[0];
    section[kReadBackWordA] = thresholdDb[0];
    if (channels == 2) {
        section[kReadBackWordA] = f0Hz[1];
        section[kReadBackWordB] = thresholdDb[1];
    }
}

int DeEsserState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kDeEsserPrintTitle, "DeEsser Param\n");
    for (int ch = 0; ch < channels; ch++) {
        out.heading(eqdrc::site::kDeEsserPrintChannel, eqdrc::kDashes, "channel", ch);
        out.value("f0", f0Hz[ch]);
        out.value("threshold", thresholdDb[ch]);
    }
    return out.total();
}

void DeEsserState::destroy() { std::free(this); }
