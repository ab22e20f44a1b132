// K-weighted gated loudness meter.  Every constant below is the meter's float32, written
// from its bit pattern so no decimal rounding can move it; the static_asserts tie each to
// its decimal.
#include "meters/loudness_meter.h"

#include <cmath>
#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/stage_setup.h"
#include "dsp/lanes.h"
#include "filters/biquad.h"
#include "filters/paired_cascade.h"
#include "filters/skewed_cascade.h"
#include "meters/meters_log.h"

namespace {

// High-frequency shelf of the K-weighting.
constexpr float kShelfOmega = 0x1.4a4142p+12f;  // 0x45A520A1, pi x 1681.97 Hz
constexpr float kShelfQ = 0x1.6a12ep-1f;        // 0x3F350970
constexpr float kShelfVh = 0x1.95b9b2p+0f;      // 0x3FCADCD9, +4 dB
constexpr float kShelfVb = 0x1.423b8ap+0f;      // 0x3FA11DC5
// High-pass of the K-weighting.
constexpr float kHighPassOmega = 0x1.df3978p+6f;  // 0x42EF9CBC, pi x 38.14 Hz
constexpr float kHighPassQ = 0x1.002adep-1f;      // 0x3F00156F
// -70 LUFS as mean energy, after the -0.691 offset.
constexpr float kAbsoluteGate = 0x1.f791ecp-24f;  // 0x33FBC8F6
constexpr float kRelativeGate = 0.1f;             // -10 dB
constexpr float kLn10 = 0x1.26bb1cp+1f;           // 0x40135D8E
constexpr float kLoudnessOffset = 0x1.61cacp-1f;  // 0x3F30E560

static_assert(kShelfOmega == 5284.0786f, "shelf constant");
static_assert(kShelfQ == 0.70717525f, "shelf Q");
static_assert(kShelfVh == 1.5848647f, "shelf Vh");
static_assert(kShelfVb == 1.258721f, "shelf Vb");
static_assert(kHighPassOmega == 119.80612f, "high-pass constant");
static_assert(kHighPassQ == 0.50032705f, "high-pass Q");
static_assert(kAbsoluteGate == 1.1724653e-7f, "absolute gate");
static_assert(kLn10 == 2.3025851f, "ln 10");
static_assert(kLoudnessOffset == 0.691f, "loudness offset");

// Channel weights: L, R, C, and the two surrounds at +1.5 dB.  Channels past the
// table are weighted 1.0 rather than read past its end.
constexpr float kChannelWeights[] = {1.0f, 1.0f, 1.0f, 1.41f, 1.41f};
constexpr int kWeightedChannels = sizeof kChannelWeights / sizeof kChannelWeights[0];

constexpr int kSectionsPerChannel = 2;  // shelf, then high-pass
constexpr int kCoeffsPerChannel = kSectionsPerChannel * eqdrc::kBiquadCoeffs;
constexpr int kStatePerChannel = kSectionsPerChannel * eqdrc::kBiquadState;

void design_shelf(float *c, float fs)
{
    float K = eqdrc::mathf::tanf(kShelfOmega / fs);
    float K2 = K * K;
    float a0 = K / kShelfQ + 1.0f + K2;
    c[0] = (K * kShelfVb / kShelfQ + kShelfVh + K2) / a0;
    c[1] = ((K2 - kShelfVh) + (K2 - kShelfVh)) / a0;
    c[2] = (kShelfVh - K * kShelfVb / kShelfQ + K2) / a0;
    c[3] = ((K2 - 1.0f) + (K2 - 1.0f)) / a0;
    c[4] = (1.0f - K / kShelfQ + K2) / a0;
}

void design_high_pass(float *c, float fs)
{
    float K = eqdrc::mathf::tanf(kHighPassOmega / fs);
    float K2 = K * K;
    float a0 = K / kHighPassQ + 1.0f + K2;
    c[0] = 1.0f;  // the numerator is left unnormalised
    c[1] = -2.0f;
    c[2] = 1.0f;
    c[3] = ((K2 - 1.0f) + (K2 - 1.0f)) / a0;
    c[4] = (1.0f - K / kHighPassQ + K2) / a0;
}

// Energy of one sample after the shelf and the high-pass.
inline float weighted_energy(const float *c, float *z, float x)
{
    float y = eqdrc::biquad_step(c, z, x);
    y = eqdrc::biquad_step(c + eqdrc::kBiquadCoeffs, z + eqdrc::kBiquadState, y);
    return y * y;
}

// The filters' input and output for a chunk whose two channels' ring slots are apart:
// each sample is scaled to full scale as it enters the filters, and each weighted
// sample's energy enters its channel's sum and slot as it leaves them.
struct EnergyRings {
    const float *x0, *x1;
    float divisor;
    eqdrc::f32x4 divisors;  // divisor in every lane
    float *ring0, *ring1;
    eqdrc::Pair sums;

    EQDRC_LANE_INLINE eqdrc::Pair in(int t) const { return eqdrc::pair_lanes(x0[t] / divisor, x1[t] / divisor); }
    EQDRC_LANE_INLINE eqdrc::f32x4 in_two(int t) const { return eqdrc::load_two_pairs(x0 + t, x1 + t) / divisors; }

    EQDRC_LANE_INLINE void out(int i, eqdrc::Pair w)
    {
        const eqdrc::Pair e = w * w;
        sums = (sums - eqdrc::pair_lanes(ring0[i], ring1[i])) + e;
        eqdrc::store_lanes(ring0 + i, ring1 + i, e);
    }

    // Two samples' energies are loaded and stored a row per channel; the sums meet them
    // in their rows, each in both lanes of its row.
    EQDRC_LANE_INLINE void out_two(int i, eqdrc::f32x4 rows)
    {
        const eqdrc::f32x4 e = rows * rows;
        const eqdrc::f32x4 old = eqdrc::load_rows(ring0 + i, ring1 + i);
        const eqdrc::f32x4 sumRows = eqdrc::channel_rows(sums, sums);
        // Sample i in lanes 0 and 2, then sample i + 1 in lanes 1 and 3.
        const eqdrc::f32x4 first = eqdrc::even_lanes_doubled((sumRows - old) + e);
        sums = eqdrc::odd_lanes((first - old) + e);
        eqdrc::store_pairs(ring0 + i, ring1 + i, e);
    }
};

}  // namespace

Ebur128State *eqdrc::LoudnessMeter::create(int bitDepth, int sampleRate, int channels, int windowMs, int stepMs)
{
    auto *m = eqdrc::zeroed<Ebur128State>(1);
    m->bitDepth = bitDepth;
    switch (bitDepth) {
    case 16: m->fullScaleDivisor = 32768; break;
    case 24: m->fullScaleDivisor = 8388608; break;
    case 32: m->fullScaleDivisor = INT32_MIN; break;
    default:
        eqdrc::log_line(eqdrc::site::kMeterInitBitDepth, "bit_rate is wrong!\n");
        return eqdrc::refuse_keeping_record(m);
    }
    m->sampleRate = sampleRate;
    m->channels = channels;
    m->windowMs = windowMs;
    m->windowSamples = eqdrc::ms_to_samples(windowMs, sampleRate);
    m->countdown = m->windowSamples;
    m->stepMs = stepMs;
    m->stepSamples = eqdrc::ms_to_samples(stepMs, sampleRate);
    // A negative count allocates nothing (the buffer is then never indexed).
    m->energyRing = eqdrc::zeroed<float>(m->ring_size());
    m->channelSums = eqdrc::zeroed<float>(channels);
    m->channelWeights = eqdrc::zeroed<float>(channels);
    m->filterCoeffs = eqdrc::zeroed<float>(channels > 0 ? channels * kCoeffsPerChannel : 0);
    m->filterStates = eqdrc::zeroed<float>(channels > 0 ? channels * kStatePerChannel : 0);
    m->historyCapacity = eqdrc::kLoudnessHistory;
    m->blockHistory = eqdrc::zeroed<float>(m->historyCapacity);

    const float fs = static_cast<float>(sampleRate);
    for (int ch = 0; ch < channels; ch++) {
        m->channelWeights[ch] = ch < kWeightedChannels ? kChannelWeights[ch] : 1.0f;
        float *c = m->filterCoeffs + ch * kCoeffsPerChannel;
        design_shelf(c, fs);
        design_high_pass(c + eqdrc::kBiquadCoeffs, fs);
    }
    return m;
}

// channels x window samples.  A window of zero or fewer samples gives a ring without
// slots, which is then neither read nor written (rather than indexed past its end).
int32_t eqdrc::LoudnessMeter::ring_size() const
{
    if (channels <= 0 || windowSamples <= 0)
        return 0;
    const int32_t n = eqdrc::wrapping_mul(channels, windowSamples);
    return n > 0 ? n : 0;
}

void eqdrc::LoudnessMeter::add_frames(const float *const *in, int frameLen)
{
    const int32_t ringSize = ring_size();
    // Channel 1's slots follow channel 0's: with room for both in the ring, neither
    // channel reads a slot the other writes in this frame, and they can run together.
    if (channels == 2 && frameLen >= 1 && static_cast<int64_t>(frameLen) * 2 <= ringSize)
        add_stereo_frames(in, frameLen);
    else
        add_frames_by_channel(in, frameLen);

    countdown = eqdrc::wrapping_sub(countdown, frameLen);
    if (countdown > 0)
        return;
    evaluate_block();
    // One step per call at most: a frame longer than the step leaves the countdown at or
    // below zero and the next calls evaluate again until it recovers.
    countdown = eqdrc::wrapping_add(countdown, stepSamples);
}

// Both channels' shelf and high-pass in lanes, a chunk at a time; then each channel's
// energies enter its sum and its slots exactly as below.
void eqdrc::LoudnessMeter::add_stereo_frames(const float *const *in, int frameLen)
{
    constexpr int kChunk = 256;
    float scaled[2][kChunk], weighted[2][kChunk];
    eqdrc::CascadeSections sections;
    sections.count = kSectionsPerChannel;
    for (int ch = 0; ch < 2; ch++) {
        for (int k = 0; k < kSectionsPerChannel; k++) {
            sections.coeffs[ch][k] = filterCoeffs + ch * kCoeffsPerChannel + k * eqdrc::kBiquadCoeffs;
            sections.state[ch][k] = filterStates + ch * kStatePerChannel + k * eqdrc::kBiquadState;
        }
    }
    const float *const x[2] = {scaled[0], scaled[1]};
    float *const y[2] = {weighted[0], weighted[1]};
    const float divisor = static_cast<float>(fullScaleDivisor);
    const int32_t ringSize = ring_size();
    int32_t slot[2] = {ringIndex, ringIndex + frameLen};
    if (slot[1] >= ringSize)
        slot[1] -= ringSize;
    float sum[2] = {channelSums[0], channelSums[1]};
    const bool apart = ringSize >= 2 * frameLen;
    for (int start = 0, m = 0; start < frameLen; start += m) {
        if (apart) {
            // The two channels' slots of this call are apart, so their sums run side by
            // side, each in its own order, as the weighted samples leave the filters.  A
            // chunk ends where either channel's slots reach the ring's end, so that the
            // sums index the ring without wrapping.
            m = frameLen - start;
            for (int ch = 0; ch < 2; ch++)
                m = ringSize - slot[ch] < m ? ringSize - slot[ch] : m;
            EnergyRings rings{in[0] + start, in[1] + start, divisor, eqdrc::splat(divisor),
                              energyRing + slot[0], energyRing + slot[1], eqdrc::pair_lanes(sum[0], sum[1])};
            eqdrc::skew::SkewedCascade<eqdrc::f32x4, kSectionsPerChannel>().run_io(sections, m, rings);
            sum[0] = rings.sums[0];
            sum[1] = rings.sums[1];
            for (int ch = 0; ch < 2; ch++)
                slot[ch] = slot[ch] + m == ringSize ? 0 : slot[ch] + m;
            continue;
        }
        m = frameLen - start < kChunk ? frameLen - start : kChunk;
        for (int ch = 0; ch < 2; ch++) {
            const float *from = in[ch] + start;
            int i = 0;
            for (; i + eqdrc::kLanes <= m; i += eqdrc::kLanes)
                eqdrc::store(scaled[ch] + i, eqdrc::load(from + i) / eqdrc::splat(divisor));
            for (; i < m; i++)
                scaled[ch][i] = from[i] / divisor;
        }
        eqdrc::run_paired_cascade(sections, x, y, m);
        for (int ch = 0; ch < 2; ch++) {
            float s = sum[ch];
            // In runs that end at the ring's end or the chunk's, whichever comes first.
            for (int i = 0; i < m;) {
                const int run = m - i < ringSize - slot[ch] ? m - i : ringSize - slot[ch];
                float *ring = energyRing + slot[ch];
                const float *w = weighted[ch] + i;
                for (int j = 0; j < run; j++) {
                    const float e = w[j] * w[j];
                    s = s - ring[j];
                    s = s + e;
                    ring[j] = e;
                }
                i += run;
                slot[ch] += run;
                if (slot[ch] == ringSize)
                    slot[ch] = 0;
            }
            sum[ch] = s;
        }
    }
    channelSums[0] = sum[0];
    channelSums[1] = sum[1];
    ringIndex = slot[1];
}

void eqdrc::LoudnessMeter::add_frames_by_channel(const float *const *in, int frameLen)
{
    const float divisor = static_cast<float>(fullScaleDivisor);
    const int32_t ringSize = ring_size();
    for (int ch = 0; ch < channels; ch++) {
        const float *c = filterCoeffs + ch * kCoeffsPerChannel;
        float *z = filterStates + ch * kStatePerChannel;
        const float *x = in[ch];
        float sum = channelSums[ch];
        if (ringSize == 0) {
            for (int i = 0; i < frameLen; i++)
                sum = sum + weighted_energy(c, z, x[i] / divisor);  // no slot to expire
            channelSums[ch] = sum;
            continue;
        }
        for (int i = 0; i < frameLen; i++) {
            const float e = weighted_energy(c, z, x[i] / divisor);
            // The slot may hold another channel's energy: only the weighted total of the
            // sums is meaningful, and that is what is read.
            sum = sum - energyRing[ringIndex];
            sum = sum + e;
            energyRing[ringIndex] = e;
            ringIndex = ringIndex + 1 == ringSize ? 0 : ringIndex + 1;
        }
        channelSums[ch] = sum;
    }
}

void eqdrc::LoudnessMeter::evaluate_block()
{
    float total = 0.0f;
    for (int ch = 0; ch < channels; ch++)
        if (channelWeights[ch] != 0.0f)
            total = total + channelWeights[ch] * channelSums[ch];
    const float mean = total / static_cast<float>(windowSamples);
    if (!(mean >= kAbsoluteGate))  // below -70 LUFS, or NaN
        return;
    blockHistory[historyIndex] = mean;
    historyIndex = historyIndex + 1 == historyCapacity ? 0 : historyIndex + 1;
    if (historyCount < historyCapacity)
        historyCount++;
}

float eqdrc::LoudnessMeter::gated_loudness() const
{
    const int32_t n = historyCount;
    if (n < 1)
        return eqdrc::kNoLoudness;
    float sum = 0.0f;
    for (int i = 0; i < n; i++)
        sum = sum + blockHistory[i];
    const float gate = sum / static_cast<float>(n) * kRelativeGate;

    float gated = 0.0f;
    int32_t count = 0;
    for (int i = 0; i < n; i++) {
        if (blockHistory[i] >= gate) {
            gated = gated + blockHistory[i];
            count++;
        }
    }
    if (count == 0)
        return eqdrc::kNoLoudness;
    return 10.0f * (eqdrc::mathf::logf(gated / static_cast<float>(count)) / kLn10) - kLoudnessOffset;
}

void eqdrc::LoudnessMeter::destroy()
{
    std::free(energyRing);
    std::free(channelSums);
    std::free(channelWeights);
    std::free(filterCoeffs);
    std::free(filterStates);
    std::free(blockHistory);
    std::free(this);
}
