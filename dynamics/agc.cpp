// Automatic gain control: the maximizer record's AGC half.  Each frame is measured by
// peak and by mean square; a peak above compress_start governs, otherwise the mean
// square does, and the gain moves across the frame towards the curve's value.
#include <cmath>

#include "core/log.h"
#include "core/mathf.h"
#include "dynamics/maximizer.h"
#include "filters/gain_table.h"
#include "filters/lanes.h"

namespace {

constexpr int kAdjustOneCheckLine = 670;
constexpr int kAdjustAllCheckLine = 640;

// The table spans from just below the noise threshold to +10 dB.
constexpr float kAgcGridBelowNoiseDb = 4.0f;
constexpr float kAgcGridTopDb = 10.0f;
// A falling gain stops ramping where the gained signal leaves the 16-bit range.  The
// bound does not follow the bit depth: existing tunings rely on it.
constexpr float kAgcProbeBound = 32766.0f;

}  // namespace

namespace eqdrc {

AgcSettings AgcSettings::from_block(const float *block)
{
    return {block[0], block[1], block[2], block[3], block[4], block[5], block[6], block[7]};
}

bool AgcSettings::consistent() const
{
    return !(noise_threshold > expand_end || expand_end > compress_start || max_peak < compress_start + max_gain);
}

}  // namespace eqdrc

void MaximizerState::set_agc(int ch, const eqdrc::AgcSettings &s)
{
    compress_start[ch] = s.compress_start;
    expand_end[ch] = s.expand_end;
    noise_threshold[ch] = s.noise_threshold;
    max_gain[ch] = s.max_gain;
    max_peak[ch] = s.max_peak;
    attack_time[ch] = s.attack_time;
    release_time[ch] = s.release_time;
    hold_time[ch] = s.hold_time;
    agc_attack_coef[ch] = frame_coef(s.attack_time);
    agc_release_coef[ch] = frame_coef(s.release_time);
    float scratch[eqdrc::kGainTableSize];
    float *table = scratch;
    if (ch < channels) {
        agc_cur_gain[ch] = 1.0f;
        table = agc_tables[ch];
    }
    const eqdrc::GainTableGrid grid = eqdrc::build_gain_table(
        table, s.noise_threshold - kAgcGridBelowNoiseDb, kAgcGridTopDb,
        [&s](float x) {
            return eqdrc::expander_compressor_curve(eqdrc::kGainCurveKnee, x, s.noise_threshold, s.expand_end,
                                                    s.compress_start, s.max_gain, s.max_peak);
        },
        eqdrc::GainFloorTest::kDouble);
    agc_x0[ch] = grid.x0;
    agc_scale[ch] = grid.scale;
}

void MaximizerState::process_agc(const float *const *in, float *const *out, int n)
{
    const float frames = static_cast<float>(n);
    float peak = 0.0f;  // not reset between channels: channel 1 sees the louder of both
    for (int ch = 0; ch < channels; ch++) {
        const float *x = in[ch];
        float *y = out[ch];
        float meanSquare = 0.0f;
        peak = eqdrc::running_peak(x, n, peak, frames, &meanSquare);
        const float peakDb = (eqdrc::mathf::log10f(peak + 1.0f) - log10_full_scale) * 20.0f;
        const float p = agc_cur_gain[ch];

        if (peakDb > compress_start[ch]) {
            const float g = eqdrc::gain_table_lookup(eqdrc::kGainTableLast, agc_tables[ch], peakDb, agc_x0[ch],
                                                     agc_scale[ch]);
            if (g > p) {
                const float c = agc_attack_coef[ch];
                const float next = c * g + (1.0f - c) * p;
                ramp_then_hold(x, y, n, n, p, next);
                agc_cur_gain[ch] = next;
                continue;
            }
            // Falling: reach the target within the frame, as fast as the probe bound allows.
            const float step = (g - p) / frames;
            int m = n;
            float a = p;
            for (int i = 0; i < n; i++) {
                a = a + step;
                const float v = x[i] * a;
                if (v > kAgcProbeBound || v < -kAgcProbeBound) {
                    m = i;
                    break;
                }
            }
            if (m == 0) {
                // Unlike the limiter, an overload on the first sample keeps the old gain for
                // this frame; the new one applies from the next.
                for (int i = 0; i < n; i++)
                    y[i] = x[i] * p;
            } else {
                ramp_then_hold(x, y, n, m, p, g);
            }
            agc_cur_gain[ch] = g;
            continue;
        }

        // Mean square governs (also for a NaN peak level).
        const float rmsDb = (eqdrc::mathf::log10f(meanSquare + 1.0f) - 2.0f * log10_full_scale) * 10.0f;
        const float g =
            eqdrc::gain_table_lookup(eqdrc::kGainTableLast, agc_tables[ch], rmsDb, agc_x0[ch], agc_scale[ch]);
        const float c = g > p ? agc_attack_coef[ch] : agc_release_coef[ch];
        const float next = c * g + (1.0f - c) * p;
        ramp_then_hold(x, y, n, n, p, next);
        agc_cur_gain[ch] = next;
    }
}

void MaximizerState::adjust_agc(int channel, const eqdrc::AgcSettings &s)
{
    const bool ok = s.consistent();
    if (channelLink != 0) {
        for (int ch = 0; ch < channels; ch++) {
            if (!ok)
                eqdrc::log_line("Agc_AdjustPara", kAdjustAllCheckLine, "wrong param for agc, please check again\n\n");
            set_agc(ch, s);
        }
        return;
    }
    if (!ok)
        eqdrc::log_line("Agc_AdjustPara", kAdjustOneCheckLine, "wrong param for agc, please check again\n\n");
    // An index outside the two-entry arrays would write past them: nothing to change.
    if (channel < 0 || channel >= eqdrc::kMaximizerMaxChannels)
        return;
    set_agc(channel, s);
}
