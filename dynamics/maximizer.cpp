// Maximizer: set-up of the shared limiter/AGC record, the limiter's frame, parameter
// replacement, read-back, print-out and tear-down.  The AGC's own half is agc.cpp.
#include "dynamics/maximizer.h"

#include <cmath>
#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "filters/gain_table.h"
#include "filters/lanes.h"
#include "filters/paired_cascade.h"

namespace {

using eqdrc::kMaximizerBlockWords;
using eqdrc::kMaximizerMaxChannels;

constexpr int kTooManyChannelsLine = 73;
constexpr int kBitRateWrongLine = 105;
constexpr int kInitAgcCheckLine = 121;
constexpr int kSetParaAgcCheckLine = 479;

// Built-in tuning for a null section.  The makeup is stored as 0.998 × 10^0.1 rounded
// to float, not recomputed from the ceiling and threshold.
constexpr float kDefaultThresholdDb = -3.0f;
constexpr float kDefaultCeilingDb = -1.0f;
constexpr float kDefaultReleaseMs = 1.0f;
constexpr float kDefaultMakeup = 1.2564076f;
constexpr eqdrc::AgcSettings kDefaultAgc = {-20.0f, -40.0f, -45.0f, 16.0f, -1.0f, 200.0f, 400.0f, 200.0f};

// Peaks land just under the ceiling rather than on it.
constexpr float kMakeupTrim = 0.998f;
// The limiter's grid starts one knee (6 - 2 × threshold dB wide) below the threshold.
constexpr float kLimiterKneeBaseDb = 6.0f;
constexpr float kLimiterGridTopDb = 10.0f;

}  // namespace

MaximizerState *MaximizerState::create(const float *section, int bit_rate, int sampleRate, int channels,
                                       int frameLen, int channelLink)
{
    eqdrc::require_channels("Maximizer_Init", kTooManyChannelsLine, channels, kMaximizerMaxChannels);
    auto *st = eqdrc::zeroed<MaximizerState>(1);
    st->bit_rate = bit_rate;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->frameLen = frameLen;
    st->channelLink = channelLink;
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report("Maximizer_Init", kBitRateWrongLine, bit_rate, &scale))
        return nullptr;  // deliberate leak: this path has never freed the record
    st->log10_full_scale = scale.log10FullScale;
    st->full_scale = scale.fullScale;

    // No channels: the per-channel arrays are allocated empty.
    st->agc_cur_gain = eqdrc::zeroed<float>(channels);
    st->max_cur_gain = eqdrc::zeroed<float>(channels);
    st->agc_tables = eqdrc::zeroed<float *>(channels);
    st->max_tables = eqdrc::zeroed<float *>(channels);
    for (int ch = 0; ch < channels; ch++) {
        st->agc_tables[ch] = eqdrc::zeroed<float>(eqdrc::kGainTableSize);
        st->max_tables[ch] = eqdrc::zeroed<float>(eqdrc::kGainTableSize);
    }

    for (int ch = 0; ch < channels; ch++) {
        if (section == nullptr) {
            st->set_agc(ch, kDefaultAgc);
            continue;
        }
        const float *block = eqdrc::channel_block(section, ch, channelLink, kMaximizerBlockWords);
        const eqdrc::AgcSettings s = eqdrc::AgcSettings::from_block(block + eqdrc::kAgcWordCompressStart);
        if (!s.consistent())
            eqdrc::log_line("Maximizer_Init", kInitAgcCheckLine, "wrong param for agc, please check again\n\n");
        st->set_agc(ch, s);
    }
    for (int ch = 0; ch < channels; ch++) {
        if (section == nullptr) {
            st->max_threshold[ch] = kDefaultThresholdDb;
            st->ceiling[ch] = kDefaultCeilingDb;
            st->release[ch] = kDefaultReleaseMs;
            st->makeup[ch] = kDefaultMakeup;
            st->build_limiter(ch);
            continue;
        }
        const float *block = eqdrc::channel_block(section, ch, channelLink, kMaximizerBlockWords);
        st->set_limiter(ch, block[eqdrc::kMaxWordThreshold], block[eqdrc::kMaxWordCeiling],
                        block[eqdrc::kMaxWordRelease]);
    }
    return st;
}

float MaximizerState::frame_coef(float timeMs) const
{
    return 1.0f - eqdrc::mathf::expf((static_cast<float>(frameLen) * -static_cast<float>(eqdrc::kTimeConstantFactor)) /
                       (static_cast<float>(sampleRate) * timeMs));
}

void MaximizerState::set_limiter(int ch, float threshold, float ceilingDb, float releaseMs)
{
    max_threshold[ch] = threshold;
    ceiling[ch] = ceilingDb;
    release[ch] = releaseMs;
    makeup[ch] = eqdrc::mathf::powf(eqdrc::mathf::kTen, (ceilingDb - threshold) / 20.0f) * kMakeupTrim;
    build_limiter(ch);
}

void MaximizerState::build_limiter(int ch)
{
    max_release_coef[ch] = frame_coef(release[ch]);
    const float threshold = max_threshold[ch];
    const int knee = eqdrc::to_int32((-threshold) + (-threshold) + kLimiterKneeBaseDb);
    float scratch[eqdrc::kGainTableSize];
    float *table = ch < channels ? max_tables[ch] : scratch;
    const eqdrc::GainTableGrid grid = eqdrc::build_gain_table(
        table, 2.0f * threshold - kLimiterKneeBaseDb, kLimiterGridTopDb,
        [knee, threshold](float x) { return eqdrc::limiter_curve(knee, x, threshold); },
        eqdrc::GainFloorTest::kDoubleMakeup, makeup[ch]);
    max_x0[ch] = grid.x0;
    max_scale[ch] = grid.scale;
}

void MaximizerState::ramp_then_hold(const float *x, float *y, int n, int m, float from, float to)
{
    const float delta = (to - from) / static_cast<float>(m);
    float a = from;
    int i = 0;
    const bool blocks = eqdrc::reads_stay_ahead(x, y, n);
    if (blocks)
        for (; i + eqdrc::kLanes <= m; i += eqdrc::kLanes)
            eqdrc::store(y + i, eqdrc::load(x + i) * eqdrc::ramp_lanes(a, delta));
    for (; i < m; i++) {
        a = a + delta;
        y[i] = x[i] * a;
    }
    if (blocks)
        for (; i + eqdrc::kLanes <= n; i += eqdrc::kLanes)
            eqdrc::store(y + i, eqdrc::load(x + i) * eqdrc::splat(a));
    for (; i < n; i++)
        y[i] = x[i] * a;
}

void MaximizerState::process_limiter(const float *const *in, float *const *out, int n)
{
    const float frames = static_cast<float>(n);
    float peak = 0.0f;  // not reset between channels: channel 1 sees the louder of both
    for (int ch = 0; ch < channels; ch++) {
        const float *x = in[ch];
        float *y = out[ch];
        peak = eqdrc::running_peak(x, n, peak, frames, nullptr);
        const float levelDb = (eqdrc::mathf::log10f(peak + 1.0f) - log10_full_scale) * 20.0f;
        const float g = eqdrc::gain_table_lookup(eqdrc::kGainTableLast, max_tables[ch], levelDb, max_x0[ch],
                                                 max_scale[ch]);
        const float p = max_cur_gain[ch];

        if (levelDb > max_threshold[ch]) {
            // Attack: reach the target within the frame, as fast as full scale allows.
            const float step = (g - p) / frames;
            int m = n;
            float a = p;
            for (int i = 0; i < n; i++) {
                a = a + step;
                if (fabsf(x[i] * a) > full_scale) {
                    m = i;
                    break;
                }
            }
            if (m <= 1) {
                for (int i = 0; i < n; i++)
                    y[i] = x[i] * g;
            } else {
                ramp_then_hold(x, y, n, m, p, g);
            }
            max_cur_gain[ch] = g;
            continue;
        }

        // Release (also for a NaN level): one-pole towards the target, clipped at full scale.
        const float c = max_release_coef[ch];
        const float next = (1.0f - c) * p + c * g;
        const float step = (next - p) / frames;
        const float top = full_scale, bottom = -full_scale;
        float a = p;
        int i = 0;
        if (eqdrc::reads_stay_ahead(x, y, n)) {
            const eqdrc::f32x4 high = eqdrc::splat(top), low = eqdrc::splat(bottom);
            for (; i + eqdrc::kLanes <= n; i += eqdrc::kLanes) {
                const eqdrc::f32x4 v = eqdrc::load(x + i) * eqdrc::ramp_lanes(a, step);
                const eqdrc::f32x4 inner = eqdrc::select(eqdrc::greater_equal(v, low), v, low);
                eqdrc::store(y + i, eqdrc::select(eqdrc::greater(v, high), high, inner));
            }
        }
        for (; i < n; i++) {
            a = a + step;
            const float v = x[i] * a;
            y[i] = v > top ? top : v >= bottom ? v : bottom;
        }
        max_cur_gain[ch] = next;
    }
}

void MaximizerState::set_para(const float *section)
{
    if (channels < 1)
        return;
    for (int ch = 0; ch < channels; ch++) {
        const float *block = eqdrc::channel_block(section, ch, channelLink, kMaximizerBlockWords);
        const eqdrc::AgcSettings s = eqdrc::AgcSettings::from_block(block + eqdrc::kAgcWordCompressStart);
        if (!s.consistent())
            eqdrc::log_line("Maximizer_SetPara", kSetParaAgcCheckLine, "wrong param for agc, please check again\n\n");
        set_agc(ch, s);
    }
    // The limiter keeps its current gain: the new curve takes over through attack and release.
    for (int ch = 0; ch < channels; ch++) {
        const float *block = eqdrc::channel_block(section, ch, channelLink, kMaximizerBlockWords);
        set_limiter(ch, block[eqdrc::kMaxWordThreshold], block[eqdrc::kMaxWordCeiling],
                    block[eqdrc::kMaxWordRelease]);
    }
}

void MaximizerState::get_para(float *section) const
{
    if (channels < 1)
        return;
    for (int ch = 0; ch < channels; ch++) {
        float *block = section + ch * kMaximizerBlockWords;
        block[eqdrc::kMaxWordThreshold] = max_threshold[ch];
        block[eqdrc::kMaxWordCeiling] = ceiling[ch];
        block[eqdrc::kMaxWordRelease] = release[ch];
        float *agc = block + eqdrc::kAgcWordCompressStart;
        agc[0] = compress_start[ch];
        agc[1] = expand_end[ch];
        agc[2] = noise_threshold[ch];
        agc[3] = max_gain[ch];
        agc[4] = max_peak[ch];
        agc[5] = attack_time[ch];
        agc[6] = release_time[ch];
        agc[7] = hold_time[ch];
    }
}

int MaximizerState::print_para() const
{
    static const char kFn[] = "Maximizer_PrintPara";
    eqdrc::log_line(kFn, 549, "AGC Param\n");
    int written = eqdrc::log_line(kFn, 550, "===================== \n");
    for (int ch = 0; ch < channels; ch++) {
        eqdrc::log_line(kFn, 552, "---- channel:%i ----\n", ch);
        eqdrc::log_line(kFn, 553, "compress_start:%.2f\n", static_cast<double>(compress_start[ch]));
        eqdrc::log_line(kFn, 554, "expand_end:%.2f\n", static_cast<double>(expand_end[ch]));
        eqdrc::log_line(kFn, 555, "noise_threshold:%.2f\n", static_cast<double>(noise_threshold[ch]));
        eqdrc::log_line(kFn, 556, "max_gain:%.2f\n", static_cast<double>(max_gain[ch]));
        eqdrc::log_line(kFn, 557, "max_peak:%.2f\n", static_cast<double>(max_peak[ch]));
        eqdrc::log_line(kFn, 558, "attack_time:%.2f\n", static_cast<double>(attack_time[ch]));
        eqdrc::log_line(kFn, 559, "release_time:%.2f\n", static_cast<double>(release_time[ch]));
        written = eqdrc::log_line(kFn, 560, "hold_time:%f\n", static_cast<double>(hold_time[ch]));
    }
    eqdrc::log_line(kFn, 563, "Maximizer Param\n");
    written = eqdrc::log_line(kFn, 564, "=====================\n");
    for (int ch = 0; ch < channels; ch++) {
        eqdrc::log_line(kFn, 566, "==== channel:%i ====\n", ch);
        eqdrc::log_line(kFn, 567, "max_threshold:%.2f\n", static_cast<double>(max_threshold[ch]));
        eqdrc::log_line(kFn, 568, "ceiling:%.2f\n", static_cast<double>(ceiling[ch]));
        written = eqdrc::log_line(kFn, 569, "release:%.2f\n", static_cast<double>(release[ch]));
    }
    return written;
}

void MaximizerState::adjust_limiter(int channel, float threshold, float ceilingDb, float releaseMs)
{
    if (channelLink != 0) {
        for (int ch = 0; ch < channels; ch++)
            set_limiter(ch, threshold, ceilingDb, releaseMs);
        return;
    }
    // An index outside the two-entry arrays would write past them: nothing to change.
    if (channel < 0 || channel >= kMaximizerMaxChannels)
        return;
    set_limiter(channel, threshold, ceilingDb, releaseMs);
}

void MaximizerState::destroy()
{
    for (int ch = 0; ch < channels; ch++) {
        std::free(max_tables[ch]);
        max_tables[ch] = nullptr;
    }
    std::free(max_tables);
    max_tables = nullptr;
    for (int ch = 0; ch < channels; ch++) {
        std::free(agc_tables[ch]);
        agc_tables[ch] = nullptr;
    }
    std::free(agc_tables);
    agc_tables = nullptr;
    std::free(agc_cur_gain);
    std::free(max_cur_gain);
    std::free(this);
}
