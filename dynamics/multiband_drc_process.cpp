// The multi-band compressor's processing: a sample at a time for any band count and
// buffers, and in lanes for one to four bands (a channel in four, both channels in the
// AVX2 build's eight).
#include "dynamics/multiband_drc.h"

#include <limits>
#include <type_traits>

#include "dsp/buffer_aliasing.h"
#include "dsp/lanes8.h"
#include "dsp/smoothing.h"
#include "dynamics/gain_table.h"

namespace {

using eqdrc::drc_slot;
using eqdrc::kDrcSlotsPerChannel;

}  // namespace

void MultiBandDRCState::process(const float *const *in, float *const *out, int frameLen)
{
    if (channels <= 0 || frameLen <= 0)
        return;
#if EQDRC_EIGHT_LANES || EQDRC_REGISTER_PAIRS
    // Both channels at once, where that reads and writes what one after the other would.
    if (channels == 2 && lanes_ready(0) && lanes_ready(1) && eqdrc::pair_runs_as_sequence(in, out, frameLen)) {
        process_lanes_stereo(in, out, frameLen);
        return;
    }
#endif
    for (int c = 0; c < channels; c++) {
        if (lanes_ready(c) && eqdrc::reads_stay_ahead(in[c], out[c], frameLen))
            process_lanes(c, in[c], out[c], frameLen);
        else
            process_samples(c, in[c], out[c], frameLen);
    }
}

// Channel c a sample at a time, every band count and buffer arrangement.
void MultiBandDRCState::process_samples(int c, const float *in, float *out, int frameLen)
{
    eqdrc::DrcChannel &ch = channel[c];
    CrossoverState *xover = ch.crossover;
    float *buf = ch.bandBuf;
    const int count = ch.bandCount;
    const int bands = bands_with_slots(c);
    for (int n = 0; n < frameLen; n++) {
        // A state built without a section has no crossover; its channels sum no bands
        // and output silence.
        if (xover != nullptr)
            xover->process(&in[n], buf);
        for (int b = 0; b < bands; b++) {
            const eqdrc::DrcSlotCoefficients &k = coefficients[drc_slot(c, b)];
            eqdrc::DrcBand &band = ch.band[b];
            // Make-up gain first: the detector sees the gained band.
            const float x = buf[b] * k.bandGain;
            buf[b] = x;
            if (settings[drc_slot(c, b)].drcEnable == 0)
                continue;
            const float e = eqdrc::follow_envelope(x, band.envelope, k.attackCoef, k.releaseCoef);
            const float level = eqdrc::drc_band_level(e, log10FullScale);
            const float target =
                eqdrc::gain_table_lookup(eqdrc::kGainTableLast, band.table, level, k.tableStart, k.tableScale);
            const float g = eqdrc::smooth_gain(target, band.smoothedGain, k.attackCoef, k.releaseCoef);
            buf[b] = x * g;
            band.envelope = e;
            band.smoothedGain = g;
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
        out[n] = sum;
    }
}

namespace {

// Samples per block of the lane forms' passes.
constexpr int kLaneBlock = 256;

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
        eqdrc::f32x4 band[eqdrc::kLanes];
        if constexpr (Lanes == eqdrc::kLanes) {
            eqdrc::load_columns(rows[i], band[0], band[1], band[2], band[3]);
        } else {
            band[0] = eqdrc::load(rows[i] + first);
            band[1] = eqdrc::load(rows[i + 1] + first);
            band[2] = eqdrc::load(rows[i + 2] + first);
            band[3] = eqdrc::load(rows[i + 3] + first);
            eqdrc::transpose(band[0], band[1], band[2], band[3]);
        }
        eqdrc::store(out + i, band_sum<Count>(eqdrc::splat(0.0f), band));
    }
#endif
    for (; i < m; i++)
        out[i] = band_sum<Count>(0.0f, rows[i] + first);
}

// f(std::integral_constant<int, Count>{}) for a band count of one to four (more counts
// as four), so that each count gets a loop of its own.
template <class F>
inline void with_band_count(int count, F &&f)
{
    switch (count) {
    case 1:
        f(std::integral_constant<int, 1>{});
        break;
    case 2:
        f(std::integral_constant<int, 2>{});
        break;
    case 3:
        f(std::integral_constant<int, 3>{});
        break;
    default:
        f(std::integral_constant<int, 4>{});
        break;
    }
}

template <int Lanes>
inline void sum_bands(const float (*rows)[Lanes], int first, int count, float *out, int m)
{
    with_band_count(count, [&](auto bands) { sum_bands_of<decltype(bands)::value>(rows, first, out, m); });
}

#if EQDRC_EIGHT_LANES || EQDRC_REGISTER_PAIRS
// Both channels' outputs from rows of eight lanes (channel 1's bands from lane 4 on).
// Equal band counts sum both at once: two samples' rows, as four columns, hold a band of
// [channel 0, channel 1] for each sample.
template <int Count>
inline void sum_band_pairs_of(const float (*rows)[2 * eqdrc::kLanes], float *out0, float *out1, int m)
{
    using eqdrc::f32x4;
    int i = 0;
    for (; i + eqdrc::kLanes <= m; i += eqdrc::kLanes) {
        f32x4 early[eqdrc::kLanes], late[eqdrc::kLanes];
        eqdrc::load_columns(rows[i], early[0], early[1], early[2], early[3]);
        eqdrc::load_columns(rows[i + 2], late[0], late[1], late[2], late[3]);
        const f32x4 a = band_sum<Count>(eqdrc::splat(0.0f), early), b = band_sum<Count>(eqdrc::splat(0.0f), late);
        eqdrc::store(out0 + i, eqdrc::even_lanes(a, b));
        eqdrc::store(out1 + i, eqdrc::odd_lanes(a, b));
    }
    for (; i < m; i++) {
        out0[i] = band_sum<Count>(0.0f, rows[i]);
        out1[i] = band_sum<Count>(0.0f, rows[i] + eqdrc::kLanes);
    }
}

inline void sum_band_pairs(const float (*rows)[2 * eqdrc::kLanes], const int *count, float *out0, float *out1, int m)
{
    if (count[0] != count[1]) {
        sum_bands(rows, 0, count[0], out0, m);
        sum_bands(rows, eqdrc::kLanes, count[1], out1, m);
        return;
    }
    with_band_count(count[0], [&](auto bands) { sum_band_pairs_of<decltype(bands)::value>(rows, out0, out1, m); });
}
#endif

// One channel's crossover over x[0, m) into rows[0, m), in lanes `first` to first + 3.
// The loop works on a local copy, whose memories stay in registers; four steps a turn
// share the loop's counting and a load.
template <bool EqualOuterTaps, int W>
void split_block_as(eqdrc::SkewedCrossover<eqdrc::f32x4> &crossover, const float *x, int m, float (*rows)[W], int first)
{
    using eqdrc::splat;
    eqdrc::SkewedCrossover<eqdrc::f32x4> xover = crossover;
    auto step = [&](eqdrc::f32x4 in, int i) EQDRC_LANE_LAMBDA {
        eqdrc::store(rows[i - 1] + first, xover.template step<EqualOuterTaps>(in));
    };
    // The skewed crossover gives a sample's bands one step later: a block starts with
    // first() and ends with last().
    xover.first(splat(x[0]));
    int i = 1;
    for (; i + 4 <= m; i += 4) {
#if EQDRC_SCALAR_LANES
        step(splat(x[i]), i);
        step(splat(x[i + 1]), i + 1);
        step(splat(x[i + 2]), i + 2);
        step(splat(x[i + 3]), i + 3);
#else
        const eqdrc::f32x4 four = eqdrc::load(x + i);
        step(eqdrc::splat_lane<0>(four), i);
        step(eqdrc::splat_lane<1>(four), i + 1);
        step(eqdrc::splat_lane<2>(four), i + 2);
        step(eqdrc::splat_lane<3>(four), i + 3);
#endif
    }
    for (; i < m; i++)
        step(splat(x[i]), i);
    eqdrc::store(rows[m - 1] + first, xover.last());
    crossover = xover;
}

template <int W>
void split_block(eqdrc::SkewedCrossover<eqdrc::f32x4> &crossover, bool equalOuterTaps, const float *x, int m,
                 float (*rows)[W], int first)
{
    if (equalOuterTaps)
        split_block_as<true>(crossover, x, m, rows, first);
    else
        split_block_as<false>(crossover, x, m, rows, first);
}

// One channel's first four bands in lanes: their settings, which lanes are bands and
// compress, their memories, and the detector interval [low, high) and gain (target) of
// the table entry each last found, or NaN bounds where the next sample must search.
struct ChannelLanes {
    eqdrc::f32x4 gain, attack, release;
    eqdrc::m32x4 bands, dynamic;
    eqdrc::f32x4 env, smoothed, buf;
    eqdrc::f32x4 low, high, target;
};

ChannelLanes channel_lanes(const MultiBandDRCState &st, int c)
{
    const eqdrc::DrcChannel &ch = st.channel[c];
    const eqdrc::DrcBand *band = ch.band;
    const int count = ch.bandCount;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    ChannelLanes l{eqdrc::splat(1.0f),
                   eqdrc::splat(0.0f),
                   eqdrc::splat(0.0f),
                   {},
                   {},
                   eqdrc::lanes(band[0].envelope, band[1].envelope, band[2].envelope, band[3].envelope),
                   eqdrc::lanes(band[0].smoothedGain, band[1].smoothedGain, band[2].smoothedGain, band[3].smoothedGain),
                   eqdrc::load(ch.bandBuf),
                   eqdrc::splat(nan),
                   eqdrc::splat(nan),
                   eqdrc::splat(0.0f)};
    bool on[kDrcSlotsPerChannel] = {};
    for (int b = 0; b < count; b++) {
        const int slot = drc_slot(c, b);
        const eqdrc::DrcSlotCoefficients &k = st.coefficients[slot];
        l.gain[b] = k.bandGain;
        l.attack[b] = k.attackCoef;
        l.release[b] = k.releaseCoef;
        on[b] = st.settings[slot].drcEnable != 0;
        // Any entry's interval is a true statement about the current table, so the last
        // one found saves the first sample's search.
        if (on[b] && k.levelIndex->exact) {
            const int entry = band[b].entry;
            l.low[b] = k.levelIndex->edge[entry];
            l.high[b] = k.levelIndex->edge[entry + 1];
            l.target[b] = band[b].table[entry];
        }
    }
    l.bands = eqdrc::mask(count >= 1, count >= 2, count >= 3, count >= 4);
    l.dynamic = eqdrc::mask(on[0], on[1], on[2], on[3]);
    return l;
}

// The envelopes and gains of the bands in lanes of V, each lane performing the
// operations of process_samples.  A lane keeps its current table entry's detector interval
// [low, high) and gain (target); the loop tests the interval as bit patterns
// (eqdrc::BitInterval), where a -0 envelope would only search again for the entry it is
// in.
template <class V, class M>
struct LaneGains {
    V gain, attack, release;
    M bands, dynamic;
    V env, smoothed, buf;
    V low, high, target;
    // Every lane a compressing band (the usual tuning), and with it no make-up gain (0 dB,
    // usual too): fixed for the frame, so the loop for them is chosen once.
    bool everyLane, unitGains;

    // One channel in four lanes, or (V of eight) channel 0 in lanes 0-3 and 1 in 4-7.
    explicit LaneGains(const ChannelLanes &l)
        : gain(l.gain), attack(l.attack), release(l.release), bands(l.bands), dynamic(l.dynamic), env(l.env),
          smoothed(l.smoothed), buf(l.buf), low(l.low), high(l.high), target(l.target)
    {
        classify();
    }
#if EQDRC_EIGHT_LANES || EQDRC_REGISTER_PAIRS
    LaneGains(const ChannelLanes &l, const ChannelLanes &r)
        : gain(eqdrc::join(l.gain, r.gain)), attack(eqdrc::join(l.attack, r.attack)),
          release(eqdrc::join(l.release, r.release)), bands(eqdrc::join(l.bands, r.bands)),
          dynamic(eqdrc::join(l.dynamic, r.dynamic)), env(eqdrc::join(l.env, r.env)),
          smoothed(eqdrc::join(l.smoothed, r.smoothed)), buf(eqdrc::join(l.buf, r.buf)),
          low(eqdrc::join(l.low, r.low)), high(eqdrc::join(l.high, r.high)), target(eqdrc::join(l.target, r.target))
    {
        classify();
    }
#endif

    void classify()
    {
        everyLane = !eqdrc::any(~(bands & dynamic));
        unitGains = everyLane;
        for (int i = 0; i < static_cast<int>(sizeof(V) / sizeof(float)); i++)
            unitGains = unitGains && gain[i] == 1.0f;
    }

    // Gains rows[0, m) in place, calling before(i) first for each sample.  A sample whose
    // envelope leaves its entry's interval leaves the inner loop for search(moved, e, low,
    // high, target), moved holding bit i for lane i, which sets those lanes' entries, and
    // re-enters it, so that loop makes no call.  Every band compressing (the usual
    // tuning) lets a sample skip the selects, and no make-up gain (0 dB, usual too) the
    // product x 1, which gives the band back bit for bit: the crossover's bands are sums,
    // never signalling NaNs.
    template <int W, class Before, class Search>
    void run(float (*rows)[W], int m, Before &&before, Search &&search)
    {
        if (!everyLane)
            run_as<false, false>(rows, m, before, search);
        else if (unitGains)
            run_as<true, true>(rows, m, before, search);
        else
            run_as<true, false>(rows, m, before, search);
    }

    // The loop works on local copies, which stay in registers: the rows it stores to
    // could otherwise be the members it reads.
    template <bool EveryLane, bool UnitGains, int W, class Before, class Search>
    void run_as(float (*rows)[W], int m, Before &before, Search &search)
    {
        const V gain_ = gain, attack_ = attack, release_ = release;
        V env_ = env, smoothed_ = smoothed, buf_ = buf, low_ = low, high_ = high, target_ = target;
        // The gain smoother's target terms, formed again only when a search moves the target.
        const V one = eqdrc::broadcast<V>(1.0f), attackRest = one - attack_, releaseRest = one - release_;
        V attackTerm = attackRest * target_, releaseTerm = releaseRest * target_;
        eqdrc::BitInterval<M> interval = eqdrc::bit_interval(low_, high_);
        auto finish = [&](float *row, V in, V x, V e) EQDRC_LANE_LAMBDA {
            const V g = eqdrc::smooth_gain_towards(target_, attackTerm, releaseTerm, smoothed_, attack_, release_);
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
            V x, e;
            M moved;
            bool leaves = false;
            for (; i < m; i++) {
                before(i);
                const V in = eqdrc::load<V>(rows[i]);
                x = UnitGains ? in : in * gain_;
                e = eqdrc::follow_envelope(x, env_, attack_, release_);
                M stays = eqdrc::inside(e, interval);
                if constexpr (!EveryLane)
                    stays = stays | ~dynamic;
                if (!eqdrc::all(stays)) {
                    moved = ~stays;
                    leaves = true;
                    break;
                }
                finish(rows[i], in, x, e);
            }
            if (!leaves)
                break;
            search(eqdrc::lane_bits(moved), e, low_, high_, target_);
            interval = eqdrc::bit_interval(low_, high_);
            attackTerm = attackRest * target_;
            releaseTerm = releaseRest * target_;
            // The row is still the crossover's: its store follows.
            finish(rows[i], eqdrc::load<V>(rows[i]), x, e);
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
inline void MultiBandDRCState::find_entry(int c, int b, int lane, float e, V &low, V &high, V &target)
{
    const eqdrc::DrcSlotCoefficients &k = coefficients[drc_slot(c, b)];
    eqdrc::DrcBand &band = channel[c].band[b];
    const eqdrc::LevelIndex *index = k.levelIndex;
    if (e >= 0.0f && index->exact) {
        band.entry = index->find_from(e, band.entry);
        low[lane] = index->edge[band.entry];
        high[lane] = index->edge[band.entry + 1];
        target[lane] = band.table[band.entry];
    } else {
        target[lane] = eqdrc::gain_table_lookup(eqdrc::kGainTableLast, band.table,
                                                eqdrc::drc_band_level(e, log10FullScale), k.tableStart, k.tableScale);
        low[lane] = std::numeric_limits<float>::quiet_NaN();
    }
}

// find_entry for the lanes whose bits `moved` holds, four lanes a channel from channel c
// on.  Only lanes of compressing bands move.
template <class V>
inline void MultiBandDRCState::find_entries(int c, unsigned moved, const V &e, V &low, V &high, V &target)
{
    for (int lane = 0; moved != 0; lane++, moved >>= 1) {
        if (moved & 1u)
            find_entry(c + lane / kDrcSlotsPerChannel, lane % kDrcSlotsPerChannel, lane, e[lane], low, high, target);
    }
}

// Channel c's band memories back from lanes `first` on.
template <class V>
inline void MultiBandDRCState::save_lanes(int c, int first, const V &buf, const V &env, const V &smoothed)
{
    eqdrc::DrcChannel &ch = channel[c];
    const int count = ch.bandCount;
    const int written = eqdrc::crossover_bands(count - 2);
    for (int b = 0; b < written; b++)
        ch.bandBuf[b] = buf[first + b];
    for (int b = 0; b < count; b++) {
        ch.band[b].envelope = env[first + b];
        ch.band[b].smoothedGain = smoothed[first + b];
    }
}

// One channel with one to four bands, the bands in lanes [low, high, middle 1,
// middle 2], each lane performing the operations of process_samples.  The table entry
// comes from the slot's level index: a lane keeps the detector interval of its current
// entry and searches only when the envelope leaves it.  A block goes through in three
// passes (crossover, envelopes and gains, band sums), each a short chain per sample so
// that the pipeline overlaps many samples; the block is read before it is written, which
// the caller's buffers allow (reads_stay_ahead).
void MultiBandDRCState::process_lanes(int c, const float *in, float *out, int frameLen)
{
    using eqdrc::f32x4;
    const int count = channel[c].bandCount;
    LaneGains<f32x4, eqdrc::m32x4> lanes(channel_lanes(*this, c));
    eqdrc::CrossoverLanes held;
    held.load(*channel[c].crossover, 0);
    eqdrc::CrossoverLanes *const split[] = {&held};
    eqdrc::SkewedCrossover<f32x4> xover(split);
    float block[kLaneBlock][eqdrc::kLanes];  // the crossover's bands, then the gained bands
    auto nothing = [](int) {};
    auto search = [&](unsigned moved, f32x4 e, f32x4 &low, f32x4 &high, f32x4 &target) {
        find_entries(c, moved, e, low, high, target);
    };

    for (int start = 0; start < frameLen; start += kLaneBlock) {
        const int m = frameLen - start < kLaneBlock ? frameLen - start : kLaneBlock;
        split_block(xover, channel[c].crossover->outerTapsEqual, in + start, m, block, 0);
        lanes.run(block, m, nothing, search);
        sum_bands(block, 0, count, out + start, m);
    }

    xover.save(split);
    held.save(*channel[c].crossover, 0);
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
    constexpr int kLanes8 = 2 * kDrcSlotsPerChannel;
    const int count[2] = {channel[0].bandCount, channel[1].bandCount};
    LaneGains<f32x8, eqdrc::m32x8> lanes(channel_lanes(*this, 0), channel_lanes(*this, 1));
    eqdrc::CrossoverLanes x0, x1;
    x0.load(*channel[0].crossover, 0);
    x1.load(*channel[1].crossover, 0);
    eqdrc::CrossoverLanes *const split[] = {&x0, &x1};
    eqdrc::SkewedCrossover<f32x8> xover(split);
    // Two blocks: the crossover's bands of the next one, and the current one's bands,
    // replaced by its gained bands.
    float blocks[2][kLaneBlock][kLanes8];
    const float *in0 = in[0], *in1 = in[1];
    auto search = [&](unsigned moved, f32x8 e, f32x8 &low, f32x8 &high, f32x8 &target) {
        find_entries(0, moved, e, low, high, target);
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
        sum_band_pairs(now, count, out[0] + start, out[1] + start, m);
        current ^= 1;
    }

    xover.save(split);
    x0.save(*channel[0].crossover, 0);
    x1.save(*channel[1].crossover, 0);
    save_lanes(0, 0, lanes.buf, lanes.env, lanes.smoothed);
    save_lanes(1, kDrcSlotsPerChannel, lanes.buf, lanes.env, lanes.smoothed);
}
#endif

#if EQDRC_REGISTER_PAIRS
// Both channels at once on aarch64, channel 0's bands in lanes 0-3 and channel 1's in
// lanes 4-7 of register pairs, each lane performing the operations of process_lanes.  A
// channel's crossover takes every register, so each runs its own pass over the block;
// the envelopes and gains of both then share one loop and its interval check, and the
// band sums follow.  The block is read before it is written, which the caller's buffers
// allow (reads_stay_ahead).
void MultiBandDRCState::process_lanes_stereo(const float *const *in, float *const *out, int frameLen)
{
    using eqdrc::f32x4;
    using eqdrc::f32x4x2;
    constexpr int kLanes8 = 2 * kDrcSlotsPerChannel;
    const int count[2] = {channel[0].bandCount, channel[1].bandCount};
    LaneGains<f32x4x2, eqdrc::m32x4x2> lanes(channel_lanes(*this, 0), channel_lanes(*this, 1));
    eqdrc::CrossoverLanes x0, x1;
    x0.load(*channel[0].crossover, 0);
    x1.load(*channel[1].crossover, 0);
    eqdrc::CrossoverLanes *const split0[] = {&x0}, *const split1[] = {&x1};
    eqdrc::SkewedCrossover<f32x4> xover0(split0), xover1(split1);
    float block[kLaneBlock][kLanes8];  // the crossovers' bands, then the gained bands
    auto nothing = [](int) {};
    auto search = [&](unsigned moved, f32x4x2 e, f32x4x2 &low, f32x4x2 &high, f32x4x2 &target) {
        find_entries(0, moved, e, low, high, target);
    };

    for (int start = 0; start < frameLen; start += kLaneBlock) {
        const int m = frameLen - start < kLaneBlock ? frameLen - start : kLaneBlock;
        split_block(xover0, channel[0].crossover->outerTapsEqual, in[0] + start, m, block, 0);
        split_block(xover1, channel[1].crossover->outerTapsEqual, in[1] + start, m, block,
                    kDrcSlotsPerChannel);
        lanes.run(block, m, nothing, search);
        sum_band_pairs(block, count, out[0] + start, out[1] + start, m);
    }

    xover0.save(split0);
    xover1.save(split1);
    x0.save(*channel[0].crossover, 0);
    x1.save(*channel[1].crossover, 0);
    save_lanes(0, 0, lanes.buf, lanes.env, lanes.smoothed);
    save_lanes(1, kDrcSlotsPerChannel, lanes.buf, lanes.env, lanes.smoothed);
}
#endif
