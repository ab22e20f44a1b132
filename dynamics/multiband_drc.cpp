// Multi-band compressor.
#include "dynamics/multiband_drc.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "core/time_constant.h"
#include "dsp/buffer_aliasing.h"
#include "dsp/lanes8.h"
#include "dsp/smoothing.h"
#include "dynamics/dynamics_log.h"
#include "dynamics/gain_table.h"

namespace {

using eqdrc::kDrcBandCapacity;
using eqdrc::kDrcChannels;
using eqdrc::kDrcSlots;
using eqdrc::kDrcSlotsPerChannel;

constexpr const char *kCrossoverMessage = "There is something wrong with crossover, please check again\n\n";
constexpr const char *kConsistencyMessage = "wrong param for MultiDRC, please check again\n\n";

constexpr float kTableHeadroomDb = 4.0f;  // tables start this far below noiseThresholdDb
constexpr float kTableTopDb = 0.0f;       // and end at full scale
constexpr int kCrossoverModeOffset = 2;   // crossover band mode = band count - 2

int slot_of(int c, int b) { return kDrcSlotsPerChannel * c + b; }

// The detector's level in dB for an envelope value.
inline float band_level(float e, float log10FullScale) { return 20.0f * (eqdrc::mathf::log10f(e + 1.0f) - log10FullScale); }

// A slot's table grid, for building its level index.
struct LevelGrid {
    float log10FullScale;
    float x0;
    float scale;
};

int grid_entry(const void *ctx, float e)
{
    const LevelGrid *g = static_cast<const LevelGrid *>(ctx);
    return eqdrc::gain_table_entry(band_level(e, g->log10FullScale), g->x0, g->scale);
}

bool known_channel(int ch) { return ch >= 0 && ch < kDrcChannels; }

}  // namespace

MultiBandDRCState *MultiBandDRCState::create(const float *section, int bitDepth, int sampleRate, int channels,
                                             int link)
{
    eqdrc::require_channels(eqdrc::site::kDrcInitChannels, channels, kDrcChannels);
    auto *st = eqdrc::zeroed<MultiBandDRCState>(1);
    st->bitDepth = bitDepth;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->link = link;
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report(eqdrc::site::kDrcInitBitDepth, bitDepth, &scale))
        return nullptr;  // deliberate: the record is not freed on this path, and callers may rely on it
    st->log10FullScale = scale.log10FullScale;
    if (section == nullptr)
        return st;

    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kDrcBlockWords);
        const int32_t count = eqdrc::to_int32(block[eqdrc::kDrcBandCountWord]);
        st->bandCount[c] = count;
        st->bandScale[c] = 1.0f / static_cast<float>(count);
        st->fill_crossover_param(block, count);
        st->crossover[c] = CrossoverState::create(sampleRate, 1, &st->crossoverParam);
    }
    st->load_bands(section, eqdrc::site::kDrcInitCrossover, eqdrc::site::kDrcInitCurve);
    st->build_tables();
    return st;
}

// Bands of channel c that own a parameter slot.  Channel 0 may run past its four slots
// into channel 1's; slots past the eighth do not exist, and their bands are skipped
// (they never reach the output: the sum takes bands 0..3 only).
int MultiBandDRCState::bands_with_slots(int c) const
{
    const int count = bandCount[c];
    const int limit = kDrcSlots - kDrcSlotsPerChannel * c;
    if (count <= 0)
        return 0;
    return count < limit ? count : limit;
}

void MultiBandDRCState::fill_crossover_param(const float *block, int count)
{
    using namespace eqdrc;
    const float *low = block + kDrcGroupOffset[0];
    const float *high = block + kDrcGroupOffset[1];
    const float *mid1 = block + kDrcGroupOffset[2];
    const float *mid2 = block + kDrcGroupOffset[3];
    crossoverParam.bandMode = eqdrc::wrapping_sub(count, kCrossoverModeOffset);
    crossoverParam.freq[kCornerLowLp] = low[kGroupFreqEnd];
    crossoverParam.freq[kCornerHighHp] = high[kGroupFreqStart];
    crossoverParam.freq[kCornerBand2Hp] = mid1[kGroupFreqStart];
    crossoverParam.freq[kCornerBand2Lp] = mid1[kGroupFreqEnd];
    crossoverParam.freq[kCornerBand3Hp] = mid2[kGroupFreqStart];
    crossoverParam.freq[kCornerBand3Lp] = mid2[kGroupFreqEnd];
}

// Band slots of every channel from their groups, in channel order: a channel with more
// than four bands fills the next channel's first slots with its low group, and that
// channel then overwrites them.
void MultiBandDRCState::load_bands(const float *section, eqdrc::LogSite crossoverSite, eqdrc::LogSite curveSite)
{
    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kDrcBlockWords);
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++) {
            int offset;
            if (b < kDrcSlotsPerChannel) {
                offset = eqdrc::kDrcGroupOffset[b];
            } else {
                eqdrc::log_line(crossoverSite, "%s", kCrossoverMessage);
                offset = eqdrc::kDrcLowGroup;
            }
            const int slot = slot_of(c, b);
            load_slot(slot, block + offset);
            derive_slot(slot);
            check_slot(slot, curveSite);
        }
    }
}

void MultiBandDRCState::load_slot(int slot, const float *group)
{
    using namespace eqdrc;
    freqStartHz[slot] = group[kGroupFreqStart];
    freqEndHz[slot] = group[kGroupFreqEnd];
    gainDb[slot] = group[kGroupGainDb];
    drcEnable[slot] = to_int32(group[kGroupDrcEnable]);
    compressStartDb[slot] = group[kGroupCompressStart];
    expandEndDb[slot] = group[kGroupExpandEnd];
    noiseThresholdDb[slot] = group[kGroupNoiseThreshold];
    maxGainDb[slot] = group[kGroupMaxGain];
    maxPeakDb[slot] = group[kGroupMaxPeak];
    attackMs[slot] = to_int32(group[kGroupAttackMs]);
    releaseMs[slot] = to_int32(group[kGroupReleaseMs]);
    holdMs[slot] = to_int32(group[kGroupHoldMs]);
}

void MultiBandDRCState::derive_slot(int slot)
{
    attackCoef[slot] = eqdrc::sample_decay(sampleRate, attackMs[slot]);
    releaseCoef[slot] = eqdrc::sample_decay(sampleRate, releaseMs[slot]);
    bandGain[slot] = eqdrc::mathf::powf(eqdrc::mathf::kTen, gainDb[slot] / 20.0f);
}

eqdrc::CurveSettings MultiBandDRCState::curve_of(int slot) const
{
    return {compressStartDb[slot], expandEndDb[slot], noiseThresholdDb[slot], maxGainDb[slot], maxPeakDb[slot]};
}

// A curve against the rule (its NaN-fails form) is reported and used as given.
void MultiBandDRCState::check_slot(int slot, eqdrc::LogSite site) const
{
    if (!curve_of(slot).consistent_nan_fails())
        eqdrc::log_line(site, "%s", kConsistencyMessage);
}

void MultiBandDRCState::build_tables()
{
    for (int c = 0; c < channels; c++) {
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++)
            build_table(c, b);
    }
}

// Every band gets a table, dynamics on or not, from noiseThresholdDb - 4 dB to 0 dBFS.
void MultiBandDRCState::build_table(int c, int b)
{
    const int slot = slot_of(c, b);
    if (tables[c][b] == nullptr)
        tables[c][b] = eqdrc::zeroed<float>(eqdrc::kGainTableSize);
    const eqdrc::CurveSettings curve = curve_of(slot);
    const eqdrc::GainTableGrid grid = eqdrc::build_gain_table(
        tables[c][b], curve.noiseThresholdDb - kTableHeadroomDb, kTableTopDb,
        [&curve](float x) { return curve.level_db(x); }, eqdrc::GainFloorTest::kFloat);
    tableStart[slot] = grid.x0;
    tableScale[slot] = grid.scale;
    if (levelIndex[slot] == nullptr)
        levelIndex[slot] = eqdrc::zeroed<eqdrc::LevelIndex>(1);
    const LevelGrid g{log10FullScale, grid.x0, grid.scale};
    levelIndex[slot]->build(grid_entry, &g);
}

void MultiBandDRCState::process(const float *const *in, float *const *out, int frameLen)
{
    if (channels <= 0 || frameLen <= 0)
        return;
#if EQDRC_EIGHT_LANES
    // Both channels at once, where that reads and writes what one after the other would.
    if (channels == 2 && lanes_ready(0) && lanes_ready(1) && eqdrc::pair_runs_as_sequence(in, out, frameLen)) {
        process_lanes_stereo(in, out, frameLen);
        return;
    }
#endif
    for (int c = 0; c < channels; c++) {
        CrossoverState *xover = crossover[c];
        if (lanes_ready(c) && eqdrc::reads_stay_ahead(in[c], out[c], frameLen)) {
            process_lanes(c, in[c], out[c], frameLen);
            continue;
        }
        float *buf = bandBuf[c];
        float *env = envelope[c];
        float *smoothed = smoothedGain[c];
        float *const *table = tables[c];
        const int count = bandCount[c];
        const int bands = bands_with_slots(c);
        for (int n = 0; n < frameLen; n++) {
            // A state built without a section has no crossover; its channels sum no
            // bands and output silence.
            if (xover != nullptr)
                xover->process(&in[c][n], buf);
            for (int b = 0; b < bands; b++) {
                const int slot = slot_of(c, b);
                // Make-up gain first: the detector sees the gained band.
                const float x = buf[b] * bandGain[slot];
                buf[b] = x;
                if (drcEnable[slot] == 0)
                    continue;
                const float e = eqdrc::follow_envelope(x, env[b], attackCoef[slot], releaseCoef[slot]);
                const float level = band_level(e, log10FullScale);
                const float target =
                    eqdrc::gain_table_lookup(eqdrc::kGainTableLast, table[b], level, tableStart[slot], tableScale[slot]);
                const float g = eqdrc::smooth_gain(target, smoothed[b], attackCoef[slot], releaseCoef[slot]);
                buf[b] = x * g;
                env[b] = e;
                smoothed[b] = g;
            }
            // Band 3 joins only at exactly four bands.
            float sum = 0.0f;
            if (count >= 1)
                sum = sum + buf[0];
            if (count >= 2)
                sum = sum + buf[1];
            if (count >= 3)
                sum = sum + buf[2];
            if (count == 4)
                sum = sum + buf[3];
            out[c][n] = sum;
        }
    }
}

namespace {

// Samples per block of the lane forms' passes.
constexpr int kLaneBlock = 64;

// A channel's outputs over m samples: its bands from lane `first` on, added in band
// order; band 3 joins only at exactly four bands.  The lane forms run one to four bands;
// one loop per band count keeps the count out of the loop.
template <int Count, class T>
inline T band_sum(T zero, const T *band)
{
    T sum = zero + band[0];
    for (int b = 1; b < Count; b++)
        sum = sum + band[b];
    return sum;
}

template <int Count, int Lanes>
inline void sum_bands_of(const float (*rows)[Lanes], int first, float *out, int m)
{
    int i = 0;
#if !EQDRC_SCALAR_LANES
    // Four samples at a time: their rows, transposed, hold a band each.
    for (; i + eqdrc::kLanes <= m; i += eqdrc::kLanes) {
        eqdrc::f32x4 b0 = eqdrc::load(rows[i] + first), b1 = eqdrc::load(rows[i + 1] + first),
                     b2 = eqdrc::load(rows[i + 2] + first), b3 = eqdrc::load(rows[i + 3] + first);
        eqdrc::transpose(b0, b1, b2, b3);
        const eqdrc::f32x4 band[] = {b0, b1, b2, b3};
        eqdrc::store(out + i, band_sum<Count>(eqdrc::splat(0.0f), band));
    }
#endif
    for (; i < m; i++)
        out[i] = band_sum<Count>(0.0f, rows[i] + first);
}

template <int Lanes>
inline void sum_bands(const float (*rows)[Lanes], int first, int count, float *out, int m)
{
    switch (count) {
    case 1:
        sum_bands_of<1>(rows, first, out, m);
        break;
    case 2:
        sum_bands_of<2>(rows, first, out, m);
        break;
    case 3:
        sum_bands_of<3>(rows, first, out, m);
        break;
    default:
        sum_bands_of<4>(rows, first, out, m);
        break;
    }
}

// One channel's per-band settings in lanes, and which lanes are bands and compress.
struct LaneSettings {
    eqdrc::f32x4 gain, attack, release;
    eqdrc::m32x4 bands, dynamic;
};

LaneSettings lane_settings(const MultiBandDRCState &st, int c)
{
    const int count = st.bandCount[c];
    LaneSettings l{eqdrc::splat(1.0f), eqdrc::splat(0.0f), eqdrc::splat(0.0f), {}, {}};
    bool on[kDrcSlotsPerChannel] = {};
    for (int b = 0; b < count; b++) {
        const int slot = slot_of(c, b);
        l.gain[b] = st.bandGain[slot];
        l.attack[b] = st.attackCoef[slot];
        l.release[b] = st.releaseCoef[slot];
        on[b] = st.drcEnable[slot] != 0;
    }
    l.bands = eqdrc::mask(count >= 1, count >= 2, count >= 3, count >= 4);
    l.dynamic = eqdrc::mask(on[0], on[1], on[2], on[3]);
    return l;
}

// The envelopes and gains of the bands in lanes of V, each lane performing the
// operations of the loop above.  A lane keeps its current table entry's detector interval
// [low, high) and gain (target); NaN bounds make the first sample search.
template <class V, class M>
struct LaneGains {
    V gain, attack, release;
    M bands, dynamic;
    V env, smoothed, buf;
    V low, high, target;

    // Gains rows[0, m) in place, calling before(i) first for each sample.  A sample whose
    // envelope leaves its entry's interval leaves the inner loop for search(moved, e, low,
    // high, target), which sets those lanes' entries, and re-enters it, so that loop makes
    // no call.  Every band compressing (the usual tuning) lets a sample skip the selects.
    template <int W, class Before, class Search>
    void run(float (*rows)[W], int m, Before &&before, Search &&search)
    {
        if (!eqdrc::any(~(bands & dynamic)))
            run_as<true>(rows, m, before, search);
        else
            run_as<false>(rows, m, before, search);
    }

    // The loop works on local copies, which stay in registers: the rows it stores to
    // could otherwise be the members it reads.
    template <bool EveryLane, int W, class Before, class Search>
    void run_as(float (*rows)[W], int m, Before &before, Search &search)
    {
        V env_ = env, smoothed_ = smoothed, buf_ = buf, low_ = low, high_ = high, target_ = target;
        // The gain smoother's target terms, formed again only when a search moves the target.
        const V one = eqdrc::broadcast<V>(1.0f), attackRest = one - attack, releaseRest = one - release;
        V attackTerm = attackRest * target_, releaseTerm = releaseRest * target_;
        auto finish = [&](float *row, V in, V x, V e) EQDRC_LANE_LAMBDA {
            const V g = eqdrc::smooth_gain_towards(target_, attackTerm, releaseTerm, smoothed_, attack, release);
            if constexpr (EveryLane) {
                buf_ = x * g;
                env_ = e;
                smoothed_ = g;
            } else {
                buf_ = eqdrc::select(bands, eqdrc::select(dynamic, x * g, x), in);
                env_ = eqdrc::select(dynamic, e, env_);
                smoothed_ = eqdrc::select(dynamic, g, smoothed_);
            }
            eqdrc::store(row, buf_);
        };
        for (int i = 0; i < m;) {
            V in, x, e;
            M moved;
            bool leaves = false;
            for (; i < m; i++) {
                before(i);
                in = eqdrc::load<V>(rows[i]);
                x = in * gain;
                e = eqdrc::follow_envelope(x, env_, attack, release);
                moved = eqdrc::greater_equal(e, high_) | eqdrc::not_greater_equal(e, low_);
                if constexpr (!EveryLane)
                    moved = moved & dynamic;
                if (eqdrc::any(moved)) {
                    leaves = true;
                    break;
                }
                finish(rows[i], in, x, e);
            }
            if (!leaves)
                break;
            search(moved, e, low_, high_, target_);
            attackTerm = attackRest * target_;
            releaseTerm = releaseRest * target_;
            finish(rows[i], in, x, e);
            i++;
        }
        env = env_;
        smoothed = smoothed_;
        buf = buf_;
        low = low_;
        high = high_;
        target = target_;
    }
};

}  // namespace

// Lane `lane` holds band b of channel c: its table entry for the envelope value e, from
// the slot's level index, which also gives the detector interval [low, high) the entry
// holds for; a negative or NaN envelope, or an index that failed its check, takes the
// logarithm, and a NaN `low` makes the next sample search again.
template <class V>
inline void MultiBandDRCState::find_entry(int c, int b, int lane, float e, V &low, V &high, V &target) const
{
    const int slot = slot_of(c, b);
    const eqdrc::LevelIndex *index = levelIndex[slot];
    if (e >= 0.0f && index->exact) {
        const int entry = index->find(e);
        low[lane] = index->edge[entry];
        high[lane] = index->edge[entry + 1];
        target[lane] = tables[c][b][entry];
    } else {
        target[lane] = eqdrc::gain_table_lookup(eqdrc::kGainTableLast, tables[c][b], band_level(e, log10FullScale),
                                                tableStart[slot], tableScale[slot]);
        low[lane] = std::numeric_limits<float>::quiet_NaN();
    }
}

// Channel c's band memories back from lanes `first` on.
template <class V>
inline void MultiBandDRCState::save_lanes(int c, int first, const V &buf, const V &env, const V &smoothed)
{
    const int count = bandCount[c];
    const int written = eqdrc::crossover_bands(count - 2);
    for (int b = 0; b < written; b++)
        bandBuf[c][b] = buf[first + b];
    for (int b = 0; b < count; b++) {
        envelope[c][b] = env[first + b];
        smoothedGain[c][b] = smoothed[first + b];
    }
}

// One channel with one to four bands, the bands in lanes [low, high, middle 1,
// middle 2], each lane performing the operations of the loop above.  The table entry
// comes from the slot's level index: a lane keeps the detector interval of its current
// entry and searches only when the envelope leaves it.  A block goes through in three
// passes (crossover, envelopes and gains, band sums), each a short chain per sample so
// that the pipeline overlaps many samples; the block is read before it is written, which
// the caller's buffers allow (reads_stay_ahead).
void MultiBandDRCState::process_lanes(int c, const float *in, float *out, int frameLen)
{
    using eqdrc::f32x4;
    const int count = bandCount[c];
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const LaneSettings l = lane_settings(*this, c);
    LaneGains<f32x4, eqdrc::m32x4> lanes{l.gain,
                                         l.attack,
                                         l.release,
                                         l.bands,
                                         l.dynamic,
                                         eqdrc::load(envelope[c]),
                                         eqdrc::load(smoothedGain[c]),
                                         eqdrc::load(bandBuf[c]),
                                         eqdrc::splat(nan),
                                         eqdrc::splat(nan),
                                         eqdrc::splat(0.0f)};
    eqdrc::CrossoverLanes held;
    held.load(*crossover[c], 0);
    eqdrc::CrossoverLanes *const channel[] = {&held};
    eqdrc::SkewedCrossover<f32x4> xover(channel);
    float block[kLaneBlock][eqdrc::kLanes];  // the crossover's bands, then the gained bands
    auto nothing = [](int) {};
    auto search = [&](eqdrc::m32x4 moved, f32x4 e, f32x4 &low, f32x4 &high, f32x4 &target) {
        for (int b = 0; b < count; b++) {
            if (moved[b])
                find_entry(c, b, b, e[b], low, high, target);
        }
    };

    for (int start = 0; start < frameLen; start += kLaneBlock) {
        const int m = frameLen - start < kLaneBlock ? frameLen - start : kLaneBlock;
        xover.first(eqdrc::splat(in[start]));
        for (int i = 1; i < m; i++)
            eqdrc::store(block[i - 1], xover.step(eqdrc::splat(in[start + i])));
        eqdrc::store(block[m - 1], xover.last());
        lanes.run(block, m, nothing, search);
        sum_bands(block, 0, count, out + start, m);
    }

    xover.save(channel);
    held.save(*crossover[c], 0);
    save_lanes(c, 0, lanes.buf, lanes.env, lanes.smoothed);
}

#if EQDRC_EIGHT_LANES
// Both channels at once in eight lanes, channel 0's bands in lanes 0-3 and channel 1's
// in lanes 4-7, each lane performing the operations of process_lanes.  The crossover runs
// a block ahead of the envelopes and gains, in the same loop: two independent chains per
// sample that the pipeline overlaps (LaneGains::run).  The band sums follow per block.  A
// block is read before the block before it is written, which the caller's buffers allow
// (reads_stay_ahead).
void MultiBandDRCState::process_lanes_stereo(const float *const *in, float *const *out, int frameLen)
{
    using eqdrc::f32x8;
    using eqdrc::join;
    constexpr int kLanes8 = 2 * kDrcSlotsPerChannel;
    const int count[2] = {bandCount[0], bandCount[1]};
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const LaneSettings l = lane_settings(*this, 0), r = lane_settings(*this, 1);
    LaneGains<f32x8, eqdrc::m32x8> lanes{join(l.gain, r.gain),
                                         join(l.attack, r.attack),
                                         join(l.release, r.release),
                                         join(l.bands, r.bands),
                                         join(l.dynamic, r.dynamic),
                                         join(eqdrc::load(envelope[0]), eqdrc::load(envelope[1])),
                                         join(eqdrc::load(smoothedGain[0]), eqdrc::load(smoothedGain[1])),
                                         join(eqdrc::load(bandBuf[0]), eqdrc::load(bandBuf[1])),
                                         eqdrc::splat8(nan),
                                         eqdrc::splat8(nan),
                                         eqdrc::splat8(0.0f)};
    eqdrc::CrossoverLanes x0, x1;
    x0.load(*crossover[0], 0);
    x1.load(*crossover[1], 0);
    eqdrc::CrossoverLanes *const channels[] = {&x0, &x1};
    eqdrc::SkewedCrossover<f32x8> xover(channels);
    // Two blocks: the crossover's bands of the next one, and the current one's bands,
    // replaced by its gained bands.
    float blocks[2][kLaneBlock][kLanes8];
    const float *in0 = in[0], *in1 = in[1];
    auto search = [&](eqdrc::m32x8 moved, f32x8 e, f32x8 &low, f32x8 &high, f32x8 &target) {
        for (int lane = 0; lane < kLanes8; lane++) {
            const int c = lane / kDrcSlotsPerChannel, b = lane % kDrcSlotsPerChannel;
            if (b < count[c] && moved[lane])
                find_entry(c, b, lane, e[lane], low, high, target);
        }
    };

    // The skewed crossover gives a sample's bands one step later: each block starts with
    // first() and ends with last().
    auto sample = [in0, in1](int i) { return eqdrc::join_splat(in0[i], in1[i]); };
    int current = 0;
    const int m0 = frameLen < kLaneBlock ? frameLen : kLaneBlock;
    xover.first(sample(0));
    for (int i = 1; i < m0; i++)
        eqdrc::store(blocks[current][i - 1], xover.step(sample(i)));
    eqdrc::store(blocks[current][m0 - 1], xover.last());
    for (int start = 0; start < frameLen; start += kLaneBlock) {
        const int m = frameLen - start < kLaneBlock ? frameLen - start : kLaneBlock;
        const int next = start + kLaneBlock;
        const int ahead = frameLen - next < kLaneBlock ? (frameLen > next ? frameLen - next : 0) : kLaneBlock;
        float(*now)[kLanes8] = blocks[current];
        float(*later)[kLanes8] = blocks[current ^ 1];
        if (ahead > 0)
            xover.first(sample(next));
        auto crossoverAhead = [&](int i) EQDRC_LANE_LAMBDA {
            if (i + 1 < ahead)  // ahead <= m: only the last block is short
                eqdrc::store(later[i], xover.step(sample(next + i + 1)));
        };
        lanes.run(now, m, crossoverAhead, search);
        if (ahead > 0)
            eqdrc::store(later[ahead - 1], xover.last());
        sum_bands(now, 0, count[0], out[0] + start, m);
        sum_bands(now, kDrcSlotsPerChannel, count[1], out[1] + start, m);
        current ^= 1;
    }

    xover.save(channels);
    x0.save(*crossover[0], 0);
    x1.save(*crossover[1], 0);
    save_lanes(0, 0, lanes.buf, lanes.env, lanes.smoothed);
    save_lanes(1, kDrcSlotsPerChannel, lanes.buf, lanes.env, lanes.smoothed);
}
#endif

void MultiBandDRCState::set_para(const float *section)
{
    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kDrcBlockWords);
        const int32_t count = eqdrc::to_int32(block[eqdrc::kDrcBandCountWord]);
        const int32_t old = bandCount[c];
        bandCount[c] = count;
        bandScale[c] = 1.0f / static_cast<float>(count);
        fill_crossover_param(block, count);
        if (count == old) {
            if (crossover[c] != nullptr)  // none after a creation without a section
                crossover[c]->set_param(&crossoverParam);
        } else {
            if (crossover[c] != nullptr)
                crossover[c]->destroy();
            crossover[c] = CrossoverState::create(sampleRate, 1, &crossoverParam);
            std::memset(bandBuf[c], 0, sizeof bandBuf[c]);
            std::memset(envelope[c], 0, sizeof envelope[c]);
            // smoothedGain keeps its values; being sized for every band, a raised count
            // stays inside it.
        }
    }
    load_bands(section, eqdrc::site::kDrcSetParaCrossover, eqdrc::site::kDrcSetParaCurve);
    build_tables();
}

// gainDb and drcEnable are not written back: the caller's words stay as they were.
void MultiBandDRCState::get_para(float *section) const
{
    using namespace eqdrc;
    for (int c = 0; c < channels; c++) {
        float *block = section + kDrcBlockWords * c;  // every channel's own block, linked or not
        block[kDrcBandCountWord] = static_cast<float>(bandCount[c]);
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++) {
            int offset;
            if (b < kDrcSlotsPerChannel) {
                offset = kDrcGroupOffset[b];
            } else {
                log_line(eqdrc::site::kDrcGetParaCrossover, "%s", kCrossoverMessage);
                offset = kDrcLowGroup;
            }
            const int slot = slot_of(c, b);
            float *g = block + offset;
            g[kGroupFreqStart] = freqStartHz[slot];
            g[kGroupFreqEnd] = freqEndHz[slot];
            g[kGroupCompressStart] = compressStartDb[slot];
            g[kGroupExpandEnd] = expandEndDb[slot];
            g[kGroupNoiseThreshold] = noiseThresholdDb[slot];
            g[kGroupMaxGain] = maxGainDb[slot];
            g[kGroupMaxPeak] = maxPeakDb[slot];
            g[kGroupAttackMs] = static_cast<float>(attackMs[slot]);
            g[kGroupReleaseMs] = static_cast<float>(releaseMs[slot]);
            g[kGroupHoldMs] = static_cast<float>(holdMs[slot]);
        }
    }
}

int MultiBandDRCState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kDrcPrintTitle, "MultiBandDRC Param\n");
    for (int c = 0; c < channels; c++) {
        out.heading(eqdrc::site::kDrcPrintChannel, eqdrc::kEquals, "channel", c);
        out.value("crossover_band", bandCount[c]);
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++) {
            const int s = slot_of(c, b);
            out.heading(eqdrc::site::kDrcPrintBand, eqdrc::kDashes, "band", b);
            out.value("freq_start", freqStartHz[s]);
            out.value("freq_end", freqEndHz[s]);
            out.value("gain_dB", gainDb[s]);
            out.value("drc_enable", drcEnable[s]);
            out.value("compress_start", compressStartDb[s]);
            out.value("expand_end", expandEndDb[s]);
            out.value("noise_threshold", noiseThresholdDb[s]);
            out.value("max_gain", maxGainDb[s]);
            out.value("max_peak", maxPeakDb[s]);
            out.value("attack_time", attackMs[s]);
            out.value("release_time", releaseMs[s]);
            out.value("hold_time", holdMs[s]);
        }
    }
    return out.last();
}

// Linked channels all take the corners; the given channel's band count decides which
// slots are rewritten.  The band mode in the scratch record is irrelevant here.
void MultiBandDRCState::adjust_crossover(int ch, const float corners[eqdrc::kCrossoverCorners])
{
    using namespace eqdrc;
    std::memcpy(crossoverParam.freq, corners, sizeof crossoverParam.freq);
    // A channel past the two that exist has no band count, crossover or slots.
    const int count = known_channel(ch) ? bandCount[ch] : 0;
    const int first = link ? 0 : ch;
    const int last = link ? channels : (known_channel(ch) ? ch + 1 : ch);
    for (int c = first; c < last; c++) {
        if (crossover[c] != nullptr)  // a channel never built has none
            crossover[c]->set_param(&crossoverParam);
        const int s = slot_of(c, 0);
        freqEndHz[s] = corners[kCornerLowLp];
        freqStartHz[s + 1] = corners[kCornerHighHp];
        if (count > 2) {
            freqStartHz[s + 2] = corners[kCornerBand2Hp];
            freqEndHz[s + 2] = corners[kCornerBand2Lp];
        }
        if (count == 4) {
            freqStartHz[s + 3] = corners[kCornerBand3Hp];
            freqEndHz[s + 3] = corners[kCornerBand3Lp];
        }
    }
}

void MultiBandDRCState::adjust_band(int ch, int band, const eqdrc::DrcBandSettings &settings)
{
    // Only a warning: the band is written all the same (it may be a slot of the next
    // channel).
    if (!known_channel(ch) || band >= bandCount[ch])
        eqdrc::log_line(eqdrc::site::kDrcAdjustBand, "i_band out of bound\n");
    if (link) {
        for (int c = 0; c < channels; c++)
            retune_band(c, band, settings);
    } else {
        retune_band(ch, band, settings);
    }
}

void MultiBandDRCState::retune_band(int c, int band, const eqdrc::DrcBandSettings &settings)
{
    const int64_t wideSlot = static_cast<int64_t>(kDrcSlotsPerChannel) * c + band;
    if (wideSlot < 0 || wideSlot >= kDrcSlots)
        return;  // no such slot: the write is dropped
    const int slot = static_cast<int>(wideSlot);
    gainDb[slot] = settings.gainDb;
    drcEnable[slot] = settings.drcEnable;
    compressStartDb[slot] = settings.curve.compressStartDb;
    expandEndDb[slot] = settings.curve.expandEndDb;
    noiseThresholdDb[slot] = settings.curve.noiseThresholdDb;
    maxGainDb[slot] = settings.curve.maxGainDb;
    maxPeakDb[slot] = settings.curve.maxPeakDb;
    attackMs[slot] = eqdrc::to_int32(settings.attackMs);
    releaseMs[slot] = eqdrc::to_int32(settings.releaseMs);
    holdMs[slot] = eqdrc::to_int32(settings.holdMs);
    derive_slot(slot);
    check_slot(slot, eqdrc::site::kDrcAdjustCurve);
    // Only a band the channel has owns a table; a slot reached past the band count
    // changes that slot's settings but no table.
    if (known_channel(c) && band >= 0 && band < bands_with_slots(c))
        build_table(c, band);
}

void MultiBandDRCState::destroy()
{
    for (int c = 0; c < kDrcChannels; c++) {
        for (int b = 0; b < kDrcBandCapacity; b++)
            std::free(tables[c][b]);
        for (int s = 0; s < kDrcSlotsPerChannel; s++)
            std::free(levelIndex[kDrcSlotsPerChannel * c + s]);
        if (crossover[c] != nullptr)
            crossover[c]->destroy();
    }
    std::free(this);
}
