// The de-esser's processing: the frame's band energy, the gain it moves towards, and
// the crossfade to the notch, a channel at a time or both channels in lanes.
#include "enhance/de_esser.h"

#include "core/mathf.h"
#include "dsp/buffer_aliasing.h"
#include "dsp/gain_ramp.h"
#include "dsp/lanes.h"
#include "dsp/repeating_state.h"
#include "filters/biquad.h"

namespace {

// sum + t[0] + t[2] + ... + t[2(n - 1)], the first of n pairs added one after the other;
// unrolled only to spare the loop its counting.
float sum_in_order(float sum, const float *t, int n)
{
    constexpr int kStride = 2;
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

// Pairs of channels over blocks of samples pay where lanes are vectors; scalar lanes
// take the loops a sample at a time.
constexpr bool kBlocks = !EQDRC_SCALAR_LANES;

}  // namespace

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
    if (settings[ch].thresholdDb < levelDb)
        return gain[ch] * attackCoef;  // towards the notch
    return (1.0f - releaseCoef) + releaseCoef * gain[ch];  // back towards dry, also on NaN
}

// Both channels at once in lanes [band-pass 0, band-pass 1, notch 0, notch 1], all fed
// the frame before any output is written; then the energy is summed in the order of
// process's one-channel loop and both channels crossfaded in pairs [channel 0,
// channel 1].
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
    // Per sample the pairs of the two energy terms and of the two notch outputs.
    float terms[eqdrc::kDeEsserPairFrames][2], notched[eqdrc::kDeEsserPairFrames][2];
    const f32x4 frames = eqdrc::splat(static_cast<float>(n));
    // The filters on the input pair in lanes 0 and 1 of x, repeated in 2 and 3.
    const auto filter = [&c](Memories &m, f32x4 x) EQDRC_LANE_LAMBDA { return eqdrc::biquad_step(c, m.z1, m.z2, x); };
    const auto step = [&](Memories &m, float a, float b, int i) EQDRC_LANE_LAMBDA {
        const f32x4 y = filter(m, eqdrc::lanes(a, b, a, b));
        const f32x4 t = eqdrc::divide_low_pair(y * y, frames, y);
        eqdrc::store_pairs(terms[i], notched[i], t);
        return t[0];
    };
    const float *x0 = in[0], *x1 = in[1];
    // Channel 0's energy is summed as the terms come, beside the filters' recursion;
    // channel 1's sum continues from its total, so it follows.
    float energy = 0.0f;
    const int from = eqdrc::watched_tail_start(in, 2, n);
    Memories m = z;  // a copy the watch below never sees, so it can stay in registers
    int i = 0;
    // Four samples of each channel read as pairs, the results of two samples a vector.
    for (; kBlocks && i + eqdrc::kLanes <= from; i += eqdrc::kLanes) {
        f32x4 x01, x23, band[2], notch[2];
        eqdrc::load_channel_pairs(x0 + i, x1 + i, x01, x23);
        eqdrc::four_pair_steps(
            x01, x23, [&](f32x4 x) EQDRC_LANE_LAMBDA { return filter(m, x); }, band, notch);
        const f32x4 t01 = band[0] * band[0] / frames, t23 = band[1] * band[1] / frames;
        eqdrc::store(terms[i], t01);
        eqdrc::store(terms[i + 2], t23);
        eqdrc::store(notched[i], notch[0]);
        eqdrc::store(notched[i + 2], notch[1]);
        energy = energy + t01[0];
        energy = energy + t01[2];
        energy = energy + t23[0];
        energy = energy + t23[2];
    }
    for (; i < from; i++)
        energy = energy + step(m, x0[i], x1[i], i);
    z = m;
    // On silence both filters ring down into a fixed point or short cycle of denormals
    // and stay there: copied once it repeats.  Channel 0's terms are summed afterwards,
    // in the same order.
    if (from < n) {
        const float a = x0[from], b = x1[from];
        eqdrc::run_held(
            z, from, n, [&](Memories &s, int j) { step(s, a, b, j); },
            [&](int j, int period) {
                eqdrc::repeat_rows(terms[0], 2, j, n, period);
                eqdrc::repeat_rows(notched[0], 2, j, n, period);
            });
    }
    energy = sum_in_order(energy, terms[from], n - from);
    for (int ch = 0; ch < 2; ch++) {
        bandPassState[ch][0] = z.z1[ch];
        bandPassState[ch][1] = z.z2[ch];
        notchState[ch][0] = z.z1[2 + ch];
        notchState[ch][1] = z.z2[2 + ch];
    }

    const float target0 = next_gain(0, energy);
    energy = sum_in_order(energy, &terms[0][1], n);
    const float target1 = next_gain(1, energy);
    crossfade_pair(target0, target1, in, notched, out, n);
}

void DeEsserState::crossfade_pair(float target0, float target1, const float *const *in, const float (*notched)[2],
                                  float *const *out, int n)
{
    using eqdrc::f32x4;
    // Sized for the creation frame length: a shorter frame stops short of the target.
    const float step0 = (target0 - gain[0]) * inverseFrameLen, step1 = (target1 - gain[1]) * inverseFrameLen;
    const f32x4 step = eqdrc::widen(eqdrc::pair_lanes(step0, step1)), one = eqdrc::splat(1.0f);
    f32x4 g = eqdrc::widen(eqdrc::pair_lanes(gain[0], gain[1]));
    const float *x0 = in[0], *x1 = in[1];
    float *y0 = out[0], *y1 = out[1];
    int i = 0;
    // Four samples of each channel as pairs, the gains ramped in pairs.
    for (; kBlocks && i + eqdrc::kLanes <= n; i += eqdrc::kLanes) {
        const f32x4 g0 = g + step, g1 = g0 + step, g2 = g1 + step;
        g = g2 + step;
        const f32x4 g01 = eqdrc::low_pairs(g0, g1), g23 = eqdrc::low_pairs(g2, g);
        f32x4 x01, x23;
        eqdrc::load_channel_pairs(x0 + i, x1 + i, x01, x23);
        eqdrc::store_channel_pairs(y0 + i, y1 + i, x01 * g01 + (one - g01) * eqdrc::load(notched[i]),
                                   x23 * g23 + (one - g23) * eqdrc::load(notched[i + 2]));
    }
    for (int ch = 0; ch < 2; ch++) {
        float gc = g[ch];
        const float stepc = ch == 0 ? step0 : step1;
        for (int j = i; j < n; j++) {
            gc = gc + stepc;
            out[ch][j] = in[ch][j] * gc + (1.0f - gc) * notched[j][ch];
        }
    }
    gain[0] = target0;
    gain[1] = target1;
}
