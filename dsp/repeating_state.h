// A recursion fed a constant input (silence, most often) either keeps moving or settles
// into a state that repeats: a fixed point or a short cycle.  Quantisation makes that
// common in the denormal range, where a high-pass ringing down on silence can sit for
// ever on a few multiples of the smallest denormal, each operation on them costing x86
// a microcode assist.  Once a state repeats bit for bit, every later state and output
// repeats with it (same operations on the same bits), so the rest can be copied instead
// of computed: the same bits, without the denormal arithmetic.
#ifndef EQDRC_DSP_REPEATING_STATE_H
#define EQDRC_DSP_REPEATING_STATE_H

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace eqdrc {

// Cycles longer than this are run out like any other input.
constexpr int kMaxRepeatPeriod = 8;

// A constant tail is looked for in runs of at least this many samples; while it lasts, a
// few samples are stepped one by one watching for a repeating state between blocks run
// as usual, so a recursion still ringing down pays little for the watching.
constexpr int kWatchSteps = 2 * kMaxRepeatPeriod;
constexpr int kBlockBetweenWatches = 64;

// Runs `step(state, i)` (the input held constant inside it; it writes output i itself)
// for i = 0 .. steps - 1, stopping as soon as the state equals one of the last
// kMaxRepeatPeriod states, at step i with that period: then outputs [i, total) repeat the
// ones `period` before each, and `repeat(i, period)` lets the caller fill them (or keep
// the work that made them just once).  The state is left where `total` steps would have
// left it.  Returns `total` when a repeat was found, else `steps`.  steps <= total.
template <class State, class Step, class Repeat>
int step_until_repeating(State &state, Step step, Repeat repeat, int steps, int total)
{
    static_assert(std::is_trivially_copyable<State>::value, "states are compared as bits");
    State before[kMaxRepeatPeriod];  // before[i % kMaxRepeatPeriod]: the state before step i
    for (int i = 0; i < steps; i++) {
        const int back = i < kMaxRepeatPeriod ? i : kMaxRepeatPeriod;
        for (int period = 1; period <= back; period++) {
            if (std::memcmp(&state, &before[(i - period) % kMaxRepeatPeriod], sizeof(State)) != 0)
                continue;
            repeat(i, period);
            state = before[(i - period + (total - i) % period) % kMaxRepeatPeriod];
            return total;
        }
        before[i % kMaxRepeatPeriod] = state;
        step(state, i);
    }
    return steps;
}

// step_until_repeating with `step` (Out(State &)) giving one output per call into
// out[0..steps), and the repeat copied to out[..total).
template <class State, class Step, class Out>
int run_until_repeating(State &state, Step step, Out *out, int steps, int total)
{
    return step_until_repeating(
        state, [&](State &s, int i) { out[i] = step(s); },
        [&](int from, int period) {
            for (int j = from; j < total; j++)
                out[j] = out[j - period];
        },
        steps, total);
}

// Fills rows [from, to) of `width` floats each with the row `period` before it.
inline void repeat_rows(float *rows, int width, int from, int to, int period)
{
    for (int j = from; j < to; j++)
        std::memcpy(rows + j * width, rows + (j - period) * width, sizeof(float) * static_cast<size_t>(width));
}

// Where the run of identical samples (bit for bit) that ends x[0..n) begins; n >= 1.
inline int constant_tail_start(const float *x, int n)
{
    int start = n - 1;
    while (start > 0 && std::memcmp(&x[start - 1], &x[n - 1], sizeof(float)) == 0)
        start--;
    return start;
}

// Where the constant tail that the first `channels` inputs share begins, or n when it is
// shorter than one watch (not worth watching).
inline int watched_tail_start(const float *const *in, int channels, int n)
{
    int from = 0;
    for (int ch = 0; ch < channels; ch++)
        from = std::max(from, constant_tail_start(in[ch], n));
    return n - from < kWatchSteps ? n : from;
}

// Samples [from, n) of a constant tail: `watch(t, watched, left)` steps samples
// [t, t + watched) looking for a repeat and returns true once it has filled all `left`
// samples to the end; between watches `run(t, end)` runs a block as usual.
template <class Watch, class Run>
void run_watching(int from, int n, Watch watch, Run run)
{
    for (int t = from; t < n;) {
        const int left = n - t, watched = std::min(kWatchSteps, left);
        if (watch(t, watched, left))
            return;
        t += watched;
        const int block = std::min(kBlockBetweenWatches, n - t);
        run(t, t + block);
        t += block;
    }
}

// Samples [from, n) of a constant tail through one recursion: `step(state, j)` writes
// output j, watched for a repeat between blocks stepped as usual; once the state repeats
// at sample j, `repeat(j, period)` fills [j, n) (or keeps where it begins).
template <class State, class Step, class Repeat>
void run_held(State &state, int from, int n, Step step, Repeat repeat)
{
    run_watching(
        from, n,
        [&](int t, int watched, int left) {
            return step_until_repeating(
                       state, [&](State &s, int i) { step(s, t + i); },
                       [&](int i, int period) { repeat(t + i, period); }, watched, left) == left;
        },
        [&](int t, int end) {
            for (int j = t; j < end; j++)
                step(state, j);
        });
}

}  // namespace eqdrc

#endif
