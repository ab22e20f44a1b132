#include "enhance/auto_gain.h"

#include <cmath>
#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "core/time_constant.h"
#include "dsp/buffer_aliasing.h"
#include "dsp/frame_peak.h"
#include "dsp/gain_ramp.h"
#include "dsp/lanes.h"
#include "dsp/smoothing.h"
#include "enhance/enhance_log.h"

namespace {

constexpr float kMaxGainDb = 20.0f;  // the target gain never exceeds +20 dB
constexpr double kNoLoudnessTolerance = 1e-8;
constexpr double kPeakFloor = 1e-8;  // keeps the headroom finite on a silent frame

// Once-per-frame one-pole factor for a 10 %-90 % time of `ms`.
float frame_coefficient(int32_t frameLen, int32_t sampleRate, float ms)
{
    return eqdrc::one_pole_coefficient(eqdrc::frame_decay_int_product(frameLen, sampleRate, ms));
}

}  // namespace

AutoGainState *AutoGainState::create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen)
{
    auto *st = eqdrc::zeroed<AutoGainState>(1);
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->bitDepth = bitDepth;
    st->frameLen = frameLen;
    st->read_section(section);
    st->compute_coefficients();
    st->stepSamples = eqdrc::ms_to_samples(st->stepMs, sampleRate);
    st->meter = Ebur128State::create(bitDepth, sampleRate, channels, st->windowMs, st->stepMs);
    st->currentGain = 1.0f;
    st->targetGain = 1.0f;
    st->smoothedLufs = 0.0f;
    eqdrc::BitDepthScale scale;
    // Checked last, after the meter has printed the same message.
    if (!eqdrc::scale_or_report(eqdrc::site::kAutoGainInitBitDepth, bitDepth, &scale))
        return eqdrc::refuse_keeping_record(st);
    st->fullScale = scale.fullScale;
    return st;
}

void AutoGainState::read_section(const float *section)
{
    targetLufs = section[eqdrc::kAutoGainTarget];
    attackMs = section[eqdrc::kAutoGainAttack];
    releaseMs = section[eqdrc::kAutoGainRelease];
    windowMs = eqdrc::to_int32(section[eqdrc::kAutoGainWindow]);
    stepMs = eqdrc::to_int32(section[eqdrc::kAutoGainStep]);
}

void AutoGainState::compute_coefficients()
{
    releaseCoef = frame_coefficient(frameLen, sampleRate, releaseMs);
    attackCoef = frame_coefficient(frameLen, sampleRate, attackMs);
}

void AutoGainState::process(const float *const *in, float *const *out, int n)
{
    if (stepSamples < n) {
        eqdrc::log_line(eqdrc::site::kAutoGainFrameTooLong, "frameLen is greater than steps! 0\n\n");
        eqdrc::fatal_exit();
    }

    float peak = 0.0f;
    for (int ch = 0; ch < channels; ch++)
        peak = eqdrc::running_peak(in[ch], n, peak, 0.0f, nullptr);
    const float maxGain = static_cast<float>(static_cast<double>(fullScale) / (static_cast<double>(peak) + kPeakFloor));

    if (countdown <= 0) {
        countdown = eqdrc::wrapping_add(countdown, stepSamples);
        read_loudness();
    }
    // Fed after the read-out, so a read-out never includes the frame it steers.
    meter->add_frames(in, n);
    countdown = eqdrc::wrapping_sub(countdown, n);

    // The headroom cap is stored: it holds until the next read-out.
    if (maxGain < targetGain)
        targetGain = maxGain;
    const float gt = targetGain;
    const float next = eqdrc::one_pole_step(currentGain, gt, currentGain < gt ? attackCoef : releaseCoef);
    // Spread over the creation frame length: a shorter frame stops short of `next`.
    const float step = (next - currentGain) / static_cast<float>(frameLen);

    float g = currentGain;
    int i = 0;
    if (channels == 2 && eqdrc::pair_runs_as_sequence(in, out, n)) {
        // Copies the stores cannot alias, kept in registers.
        const float *x0 = in[0], *x1 = in[1];
        float *y0 = out[0], *y1 = out[1];
        for (; i + eqdrc::kLanes <= n; i += eqdrc::kLanes) {
            // The gains of samples i .. i + 3: the ramp before each of its steps.
            const float g0 = g;
            const eqdrc::f32x4 after = eqdrc::ramp_lanes(g, step);
            const eqdrc::f32x4 gains = eqdrc::lanes(g0, after[0], after[1], after[2]);
            eqdrc::store(y0 + i, eqdrc::load(x0 + i) * gains);
            eqdrc::store(y1 + i, eqdrc::load(x1 + i) * gains);
        }
    }
    for (; i < n; i++) {
        for (int ch = 0; ch < channels; ch++)
            out[ch][i] = in[ch][i] * g;
        g = g + step;
    }
    currentGain = g;
}

void AutoGainState::read_loudness()
{
    const float lufs = meter->gated_loudness();
    if (std::fabs(static_cast<double>(lufs + 1000.0f)) < kNoLoudnessTolerance) {
        smoothedLufs = 0.0f;
        targetGain = 1.0f;
        return;
    }
    smoothedLufs = eqdrc::one_pole_step(smoothedLufs, lufs, attackCoef);
    const float d = targetLufs - smoothedLufs;
    using eqdrc::mathf::kTen;
    // No lower bound: a programme louder than the target is attenuated as far as needed.
    targetGain = d < kMaxGainDb ? eqdrc::mathf::powf(kTen, d * 0.05f) : eqdrc::mathf::powf(kTen, 1.0f);
}

void AutoGainState::set_para(const float *section)
{
    const int32_t oldWindowMs = windowMs;
    const int32_t oldStepMs = stepMs;
    read_section(section);
    compute_coefficients();
    if (windowMs == oldWindowMs && stepMs == oldStepMs)
        return;
    countdown = 0;
    stepSamples = eqdrc::ms_to_samples(stepMs, sampleRate);
    if (meter != nullptr)
        meter->destroy();
    meter = Ebur128State::create(bitDepth, sampleRate, channels, windowMs, stepMs);
    currentGain = 1.0f;
    targetGain = 1.0f;
    // smoothedLufs is kept: the new meter's first read-out is smoothed against it.
}

void AutoGainState::get_para(float *section) const
{
    section[eqdrc::kAutoGainTarget] = targetLufs;
    section[eqdrc::kAutoGainAttack] = attackMs;
    section[eqdrc::kAutoGainRelease] = releaseMs;
    section[eqdrc::kAutoGainWindow] = static_cast<float>(windowMs);
    section[eqdrc::kAutoGainStep] = static_cast<float>(stepMs);
}

int AutoGainState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kAutoGainPrintTitle, "AutoGain Param\n");
    out.value("target_i_dB", targetLufs);
    out.value("attack_time", attackMs);
    out.value("release_time", releaseMs);
    out.value("r128_wins", windowMs);
    out.value("r128_steps", stepMs);
    return out.total();
}

void AutoGainState::destroy()
{
    if (meter != nullptr)
        meter->destroy();
    std::free(this);
}
