#include "dynamics/limiter.h"

#include <cmath>
#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "dsp/buffer_aliasing.h"
#include "dsp/frame_peak.h"
#include "dsp/gain_ramp.h"
#include "dynamics/dynamics_log.h"
#include "dynamics/gain_table.h"

namespace eqdrc {
namespace {

// Built-in tuning for a null section.  The makeup is stored as 0.998 × 10^0.1 rounded
// to float, not recomputed from the ceiling and threshold.
constexpr float kDefaultThresholdDb = -3.0f;
constexpr float kDefaultCeilingDb = -1.0f;
constexpr float kDefaultReleaseMs = 1.0f;
constexpr float kDefaultMakeup = 1.2564076f;

// Peaks land just under the ceiling rather than on it.
constexpr float kMakeupTrim = 0.998f;
// The grid starts one knee (6 - 2 × threshold dB wide) below the threshold.
constexpr float kKneeBaseDb = 6.0f;
constexpr float kGridTopDb = 10.0f;

}  // namespace

void Limiter::set(const DynamicsFormat &format, int ch, float threshold, float ceiling, float release)
{
    thresholdDb[ch] = threshold;
    ceilingDb[ch] = ceiling;
    releaseMs[ch] = release;
    makeup[ch] = mathf::powf(mathf::kTen, (ceiling - threshold) / 20.0f) * kMakeupTrim;
    build(format, ch);
}

void Limiter::set_default(const DynamicsFormat &format, int ch)
{
    thresholdDb[ch] = kDefaultThresholdDb;
    ceilingDb[ch] = kDefaultCeilingDb;
    releaseMs[ch] = kDefaultReleaseMs;
    makeup[ch] = kDefaultMakeup;
    build(format, ch);
}

void Limiter::build(const DynamicsFormat &format, int ch)
{
    releaseCoef[ch] = format.frame_coefficient(releaseMs[ch]);
    const float threshold = thresholdDb[ch];
    const int knee = knee_db(ch);
    float scratch[kGainTableSize];
    float *table = ch < format.channels ? gains.tables[ch] : scratch;
    const GainTableGrid grid = build_gain_table(
        table, 2.0f * threshold - kKneeBaseDb, kGridTopDb,
        [knee, threshold](float x) { return limiter_curve(knee, x, threshold); }, GainFloorTest::kDoubleMakeup,
        makeup[ch]);
    tableX0Db[ch] = grid.x0;
    tableScale[ch] = grid.scale;
}

int Limiter::knee_db(int ch) const { return to_int32((-thresholdDb[ch]) + (-thresholdDb[ch]) + kKneeBaseDb); }

int Limiter::curve(const DynamicsFormat &format, int ch, const float *levelDb, float *gainDb, int count) const
{
    if (ch < 0 || ch >= format.channels || ch >= kDynamicsMaxChannels)
        return -1;
    gain_table_curve_db(gains.tables[ch], tableX0Db[ch], tableScale[ch], levelDb, gainDb, count);
    return knee_db(ch);
}

void Limiter::adjust(const DynamicsFormat &format, int channel, float threshold, float ceiling, float release)
{
    if (format.channelLink != 0) {
        for (int ch = 0; ch < format.channels; ch++)
            set(format, ch, threshold, ceiling, release);
        return;
    }
    // An index outside the two-entry arrays would write past them: nothing to change.
    if (channel < 0 || channel >= kDynamicsMaxChannels)
        return;
    set(format, channel, threshold, ceiling, release);
}

void Limiter::process(const DynamicsFormat &format, const float *const *in, float *const *out, int n)
{
    const float frames = static_cast<float>(n);
    float peak = 0.0f;  // not reset between channels: channel 1 sees the louder of both
    for (int ch = 0; ch < format.channels; ch++) {
        const float *x = in[ch];
        float *y = out[ch];
        peak = running_peak(x, n, peak, frames, nullptr);
        const float levelDb = (mathf::log10f(peak + 1.0f) - format.log10FullScale) * 20.0f;
        const float g = gain_table_lookup(kGainTableLast, gains.tables[ch], levelDb, tableX0Db[ch], tableScale[ch]);
        const float p = gains.gain[ch];

        if (levelDb > thresholdDb[ch]) {
            // Attack: reach the target within the frame, as fast as full scale allows.
            const int m = first_overload(x, n, p, (g - p) / frames, format.fullScale);
            if (m <= 1) {
                for (int i = 0; i < n; i++)
                    y[i] = x[i] * g;
            } else {
                ramp_then_hold(x, y, n, m, p, g);
            }
            gains.gain[ch] = g;
            continue;
        }

        // Release (also for a NaN level): one-pole towards the target, clipped at full scale.
        const float c = releaseCoef[ch];
        // one_pole_step with its two terms the other way round, kept as this stage sums them.
        const float next = (1.0f - c) * p + c * g;
        const float step = (next - p) / frames;
        const float top = format.fullScale, bottom = -format.fullScale;
        float a = p;
        int i = 0;
        if (reads_stay_ahead(x, y, n)) {
            // With bottom < 0 < top (a stage full scale), the clip is a max then a min:
            // NaN goes to bottom, and an equal v has the bound's bits.
            const f32x4 high = splat(top), low = splat(bottom);
            for (; i + kLanes <= n; i += kLanes)
                store(y + i, clamp_low_first(load(x + i) * ramp_lanes(a, step), low, high));
        }
        for (; i < n; i++) {
            a = a + step;
            const float v = x[i] * a;
            y[i] = v > top ? top : v >= bottom ? v : bottom;
        }
        gains.gain[ch] = next;
    }
}

void Limiter::to_block(int ch, float *block) const
{
    block[kLimiterWordThreshold] = thresholdDb[ch];
    block[kLimiterWordCeiling] = ceilingDb[ch];
    block[kLimiterWordRelease] = releaseMs[ch];
}

int Limiter::print(const DynamicsFormat &format) const
{
    PrintOut out(site::kLimiterPrintTitle, "Maximizer Param\n");
    for (int ch = 0; ch < format.channels; ch++) {
        out.heading(site::kLimiterPrintChannel, kEquals, "channel", ch);
        out.value("max_threshold", thresholdDb[ch]);
        out.value("ceiling", ceilingDb[ch]);
        out.value("release", releaseMs[ch]);
    }
    return out.last();
}

}  // namespace eqdrc
