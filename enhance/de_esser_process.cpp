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
// process's one-channel loop and each channel crossfaded.
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
    const auto step = [&](Memories &m, float a, float b) EQDRC_LANE_LAMBDA {
        const f32x4 y = eqdrc::biquad_step(c, m.z1, m.z2, eqdrc::lanes(a, b, a, b));
        return eqdrc::divide_low_pair(y * y, frames, y);
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
