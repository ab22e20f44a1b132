#include "dynamics/agc.h"

#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "dsp/buffer_aliasing.h"
#include "dsp/frame_peak.h"
#include "dsp/gain_ramp.h"
#include "dsp/smoothing.h"
#include "dynamics/dynamics_log.h"
#include "dynamics/gain_table.h"

namespace eqdrc {
namespace {

constexpr const char *kCheckMessage = "wrong param for agc, please check again\n\n";

// The table spans from just below the noise threshold to +10 dB.
constexpr float kGridBelowNoiseDb = 4.0f;
constexpr float kGridTopDb = 10.0f;
// A falling gain stops ramping where the gained signal leaves the 16-bit range.  The
// bound does not follow the bit depth: tunings are made against it.
constexpr float kProbeBound = 32766.0f;

}  // namespace

AgcSettings AgcSettings::from_block(const float *block)
{
    return {{block[0], block[1], block[2], block[3], block[4]}, block[5], block[6], block[7]};
}

void Agc::set(const DynamicsFormat &format, int ch, const AgcSettings &s)
{
    settings[ch] = s;
    attackCoef[ch] = format.frame_coefficient(s.attackMs);
    releaseCoef[ch] = format.frame_coefficient(s.releaseMs);
    float scratch[kGainTableSize];
    float *table = scratch;
    if (ch < format.channels) {
        gains.gain[ch] = 1.0f;
        table = gains.tables[ch];
    }
    const GainTableGrid grid = build_gain_table(
        table, s.curve.noiseThresholdDb - kGridBelowNoiseDb, kGridTopDb, [&s](float x) { return s.curve.level_db(x); },
        GainFloorTest::kDouble);
    tableX0Db[ch] = grid.x0;
    tableScale[ch] = grid.scale;
}

void Agc::adjust(const DynamicsFormat &format, int channel, const AgcSettings &s)
{
    const bool ok = s.consistent();
    if (format.channelLink != 0) {
        for (int ch = 0; ch < format.channels; ch++) {
            if (!ok)
                log_line(site::kAgcAdjustAllCurve, "%s", kCheckMessage);
            set(format, ch, s);
        }
        return;
    }
    if (!ok)
        log_line(site::kAgcAdjustOneCurve, "%s", kCheckMessage);
    // An index outside the two-entry arrays would write past them: nothing to change.
    if (channel < 0 || channel >= kDynamicsMaxChannels)
        return;
    set(format, channel, s);
}

void Agc::process(const DynamicsFormat &format, const float *const *in, float *const *out, int n)
{
    const float frames = static_cast<float>(n);
    // Both channels measured at once where channel 0's output cannot change channel 1's
    // input.  Channel 1's peak carries channel 0's: being a maximum, it is the larger of
    // channel 0's and its own from zero.
    float pairPeak[2] = {0.0f, 0.0f}, pairMeanSquare[2] = {0.0f, 0.0f};
    const bool pair = format.channels == 2 && pair_runs_as_sequence(in, out, n);
    if (pair)
        running_peaks<2>(in, n, pairPeak, frames, pairMeanSquare);
    float peak = 0.0f;  // not reset between channels: channel 1 sees the louder of both
    for (int ch = 0; ch < format.channels; ch++) {
        const float *x = in[ch];
        float *y = out[ch];
        float meanSquare = 0.0f;
        if (pair) {
            peak = pairPeak[ch] > peak ? pairPeak[ch] : peak;
            meanSquare = pairMeanSquare[ch];
        } else {
            peak = running_peak(x, n, peak, frames, &meanSquare);
        }
        const float peakDb = (mathf::log10f(peak + 1.0f) - format.log10FullScale) * 20.0f;
        const float p = gains.gain[ch];

        if (peakDb > settings[ch].curve.compressStartDb) {
            const float g = gain_table_lookup(kGainTableLast, gains.tables[ch], peakDb, tableX0Db[ch], tableScale[ch]);
            if (g > p) {
                const float next = one_pole_step(p, g, attackCoef[ch]);
                ramp_then_hold(x, y, n, n, p, next);
                gains.gain[ch] = next;
                continue;
            }
            // Falling: reach the target within the frame, as fast as the probe bound allows.
            const int m = first_overload(x, n, p, (g - p) / frames, kProbeBound);
            if (m == 0) {
                // Unlike the limiter, an overload on the first sample keeps the old gain for
                // this frame; the new one applies from the next.
                for (int i = 0; i < n; i++)
                    y[i] = x[i] * p;
            } else {
                ramp_then_hold(x, y, n, m, p, g);
            }
            gains.gain[ch] = g;
            continue;
        }

        // Mean square governs (also for a NaN peak level).
        const float rmsDb = (mathf::log10f(meanSquare + 1.0f) - 2.0f * format.log10FullScale) * 10.0f;
        const float g = gain_table_lookup(kGainTableLast, gains.tables[ch], rmsDb, tableX0Db[ch], tableScale[ch]);
        const float next = one_pole_step(p, g, g > p ? attackCoef[ch] : releaseCoef[ch]);
        ramp_then_hold(x, y, n, n, p, next);
        gains.gain[ch] = next;
    }
}

void Agc::print(const DynamicsFormat &format) const
{
    PrintOut out(site::kAgcPrintTitle, "AGC Param\n", "===================== \n");
    for (int ch = 0; ch < format.channels; ch++) {
        const AgcSettings &s = settings[ch];
        out.heading(site::kAgcPrintChannel, kDashes, "channel", ch);
        s.curve.print(out);
        out.value("attack_time", s.attackMs);
        out.value("release_time", s.releaseMs);
        out.precise("hold_time", s.holdMs);
    }
}

}  // namespace eqdrc
