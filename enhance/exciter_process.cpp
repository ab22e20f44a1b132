// The exciter's processing: a channel a sample at a time, or both channels in lanes,
// and on a held input the input high-pass's ring-down copied once it repeats.
#include "enhance/exciter.h"

#include "dsp/buffer_aliasing.h"
#include "dsp/repeating_state.h"
#include "filters/biquad.h"

float ExciterState::Channel::step(Memories &m, float sample) const
{
    const float x = sample / fullScale;
    const float h = eqdrc::biquad_step(inputHigh, m.input, x);
    const float s = soft_clip((h + offset) * drive);
    const float z = eqdrc::biquad_step(outputHigh, m.output, s);
    return (dry * x + wet * z) * fullScale;
}

ExciterState::Channel ExciterState::channel(int ch) const
{
    return {inputHighCoeffs + ch * eqdrc::kBiquadCoeffs,
            outputHighCoeffs + ch * eqdrc::kBiquadCoeffs,
            settings[ch].evenHarmonics,
            driveGain[ch],
            1.0f - settings[ch].mix,
            settings[ch].mix * inverseDriveGain[ch],
            fullScale};
}

ExciterState::Memories ExciterState::memories(int ch) const
{
    const float *zIn = inputHighState + ch * eqdrc::kBiquadState;
    const float *zOut = outputHighState + ch * eqdrc::kBiquadState;
    return {{zIn[0], zIn[1]}, {zOut[0], zOut[1]}};
}

void ExciterState::keep(int ch, const Memories &m)
{
    float *zIn = inputHighState + ch * eqdrc::kBiquadState;
    float *zOut = outputHighState + ch * eqdrc::kBiquadState;
    zIn[0] = m.input[0];
    zIn[1] = m.input[1];
    zOut[0] = m.output[0];
    zOut[1] = m.output[1];
}

// Nothing here depends on frameLen beyond the caller's buffers, so any length is safe.
void ExciterState::process(const float *const *in, float *const *out, int frameLen)
{
    if (channels < 1 || frameLen < 1)
        return;
    const bool pair = channels == 2 && eqdrc::pair_runs_as_sequence(in, out, frameLen);
    if (!pair && !(channels == 1 && eqdrc::reads_stay_ahead(in[0], out[0], frameLen))) {
        for (int ch = 0; ch < channels; ch++)
            run_channel(ch, in[ch], out[ch], frameLen);
        return;
    }
    // From here no output lands on an input not yet read, so the constant tail read now
    // is what the samples will be.  On silence the input high-pass rings down into a
    // fixed point or short cycle of denormals, and stays there: copied once it repeats.
    const int from = eqdrc::watched_tail_start(in, channels, frameLen);
    float held[eqdrc::kExciterMaxChannels] = {};
    for (int ch = 0; ch < channels && from < frameLen; ch++)
        held[ch] = in[ch][from];
    bool active[eqdrc::kExciterMaxChannels] = {true, true};
    run(in, out, 0, from, active, pair);
    const auto watch = [&](int t, int watched, int left) {
        bool done = true;
        for (int ch = 0; ch < channels; ch++) {
            if (!active[ch])
                continue;
            const Channel c = channel(ch);
            const float sample = held[ch];
            Memories m = memories(ch);
            if (eqdrc::run_until_repeating(m, [&](Memories &z) { return c.step(z, sample); }, out[ch] + t, watched,
                                           left) == left)
                active[ch] = false;
            keep(ch, m);
            done = done && !active[ch];
        }
        return done;
    };
    eqdrc::run_watching(from, frameLen, watch, [&](int t, int end) { run(in, out, t, end, active, pair); });
}

// Samples [from, to) of the active channels, both at once when the buffers allow it.
void ExciterState::run(const float *const *in, float *const *out, int from, int to, const bool *active, bool pair)
{
    if (to <= from)
        return;
    if (pair && active[0] && active[1]) {
        const float *const inPart[2] = {in[0] + from, in[1] + from};
        float *const outPart[2] = {out[0] + from, out[1] + from};
        process_pair(inPart, outPart, to - from);
        return;
    }
    for (int ch = 0; ch < channels; ch++)
        if (active[ch])
            run_channel(ch, in[ch] + from, out[ch] + from, to - from);
}

void ExciterState::run_channel(int ch, const float *in, float *out, int n)
{
    const Channel c = channel(ch);
    Memories m = memories(ch);
    for (int i = 0; i < n; i++)
        out[i] = c.step(m, in[i]);
    keep(ch, m);
}

namespace {

// Both channels at once in lanes [input filter 0, input filter 1, output filter 0,
// output filter 1], the output filters two samples behind, fed by the clipper from the
// input filters' result of two steps before.  The two-step distance lets the pipeline
// overlap one step's clipper with the next step's filters.  Every lane performs the
// operations of Channel::step.
struct PairPipeline {
    eqdrc::BiquadLanes c;
    eqdrc::f32x4 z1, z2;
    eqdrc::f32x4 offset, drive;  // lanes 0 and 1
    eqdrc::f32x4 dry, wet;       // for two samples' pairs at once
    eqdrc::f32x4 scale;
    eqdrc::f32x4 hOlder, hNewer;  // the input filters' results of the last two steps

    // The filters' step on the scaled input pair in lanes 0 and 1 of x (2 and 3 when
    // `upper`), the output filters' on the clipped result of two steps before.
    EQDRC_LANE_INLINE eqdrc::f32x4 filters(eqdrc::f32x4 x, bool upper)
    {
        const eqdrc::f32x4 s = ExciterState::soft_clip((hOlder + offset) * drive);
        const eqdrc::f32x4 h =
            eqdrc::biquad_step(c, z1, z2, upper ? eqdrc::upper_pair_below(x, s) : eqdrc::low_pairs(x, s));
        hOlder = hNewer;
        hNewer = h;
        return h;
    }
    // The output pairs from the scaled input pairs and the output filters' result pairs.
    EQDRC_LANE_INLINE eqdrc::f32x4 mix(eqdrc::f32x4 x, eqdrc::f32x4 z) const { return (dry * x + wet * z) * scale; }
};

}  // namespace

// The first and last two steps one at a time, where one pair of lanes has no sample (its
// memories stay); between them four steps at a time, reading four samples of each channel
// as pairs and writing four outputs of each.
void ExciterState::process_pair(const float *const *in, float *const *out, int n)
{
    using eqdrc::f32x4;
    using eqdrc::lanes;
    constexpr int kBehind = 2;
    constexpr int kBlock = eqdrc::kLanes;
    PairPipeline pipe;
    for (int lane = 0; lane < eqdrc::kLanes; lane++) {
        const int ch = lane & 1;
        const float *coeffs = lane < 2 ? inputHighCoeffs : outputHighCoeffs;
        const float *state = lane < 2 ? inputHighState : outputHighState;
        pipe.c.set(lane, coeffs + ch * eqdrc::kBiquadCoeffs);
        pipe.z1[lane] = state[ch * eqdrc::kBiquadState];
        pipe.z2[lane] = state[ch * eqdrc::kBiquadState + 1];
    }
    const eqdrc::ExciterSettings &s0 = settings[0], &s1 = settings[1];
    pipe.offset = lanes(s0.evenHarmonics, s1.evenHarmonics, 0.0f, 0.0f);
    pipe.drive = lanes(driveGain[0], driveGain[1], 0.0f, 0.0f);
    pipe.dry = lanes(1.0f - s0.mix, 1.0f - s1.mix, 1.0f - s0.mix, 1.0f - s1.mix);
    const float wet0 = s0.mix * inverseDriveGain[0], wet1 = s1.mix * inverseDriveGain[1];
    pipe.wet = lanes(wet0, wet1, wet0, wet1);
    pipe.scale = eqdrc::splat(fullScale);
    pipe.hOlder = pipe.hNewer = eqdrc::splat(0.0f);

    // The scaled inputs of the last two steps.
    f32x4 xOlder = eqdrc::splat(0.0f), xNewer = xOlder;
    // Step t: sample t through the input filters, sample t - 2 through the output filters.
    auto step = [&](int t, const f32x4 x) EQDRC_LANE_LAMBDA {
        const f32x4 h = pipe.filters(x, false);
        if (t >= kBehind) {
            const f32x4 y = pipe.mix(xOlder, eqdrc::widen(eqdrc::upper_pair(h)));
            eqdrc::store_lanes(out[0] + t - kBehind, out[1] + t - kBehind, eqdrc::lower_pair(y));
        }
        xOlder = xNewer;
        xNewer = x;
    };
    auto partial_step = [&](int t) {
        const bool inputs = t < n, outputs = t >= kBehind && t - kBehind < n;
        const eqdrc::m32x4 live = eqdrc::mask(inputs, inputs, outputs, outputs);
        const f32x4 keep1 = pipe.z1, keep2 = pipe.z2;
        step(t, inputs ? eqdrc::widen(eqdrc::pair_lanes(in[0][t], in[1][t])) / pipe.scale : eqdrc::splat(0.0f));
        pipe.z1 = eqdrc::select(live, pipe.z1, keep1);
        pipe.z2 = eqdrc::select(live, pipe.z2, keep2);
    };
    int t = 0;
    for (; t < kBehind; t++)
        partial_step(t);
    if (t + kBlock <= n) {
        // Copies in registers, which the stores cannot alias.
        PairPipeline p = pipe;
        const float *x0 = in[0], *x1 = in[1];
        float *y0 = out[0], *y1 = out[1];
        f32x4 xBefore = eqdrc::low_pairs(xOlder, xNewer);  // the last two steps' input pairs
        for (; t + kBlock <= n; t += kBlock) {
            f32x4 x01, x23;
            eqdrc::load_channel_pairs(x0 + t, x1 + t, x01, x23);
            x01 = x01 / p.scale;
            x23 = x23 / p.scale;
            const f32x4 h0 = p.filters(x01, false), h1 = p.filters(x01, true);
            const f32x4 h2 = p.filters(x23, false), h3 = p.filters(x23, true);
            // Outputs t - 2 .. t + 1.
            eqdrc::store_channel_pairs(y0 + t - kBehind, y1 + t - kBehind, p.mix(xBefore, eqdrc::upper_pairs(h0, h1)),
                                       p.mix(x01, eqdrc::upper_pairs(h2, h3)));
            xBefore = x23;
        }
        pipe = p;
        xOlder = xBefore;
        xNewer = eqdrc::widen(eqdrc::upper_pair(xBefore));
    }
    for (; t < n; t++)
        step(t, eqdrc::widen(eqdrc::pair_lanes(in[0][t], in[1][t])) / pipe.scale);
    for (; t < n + kBehind; t++)
        partial_step(t);

    for (int lane = 0; lane < eqdrc::kLanes; lane++) {
        const int ch = lane & 1;
        float *state = lane < 2 ? inputHighState : outputHighState;
        state[ch * eqdrc::kBiquadState] = pipe.z1[lane];
        state[ch * eqdrc::kBiquadState + 1] = pipe.z2[lane];
    }
}
