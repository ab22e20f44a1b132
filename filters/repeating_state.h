// A recursion fed a constant input (silence, most often) either keeps moving or settles
// into a state that repeats: a fixed point or a short cycle.  Quantisation makes that
// common in the denormal range, where a high-pass ringing down on silence can sit for
// ever on a few multiples of the smallest denormal, each operation on them costing x86
// a microcode assist.  Once a state repeats bit for bit, every later state and output
// repeats with it (same operations on the same bits), so the rest can be copied instead
// of computed: the same bits, without the denormal arithmetic.
#ifndef EQDRC_FILTERS_REPEATING_STATE_H
#define EQDRC_FILTERS_REPEATING_STATE_H

#include <cstring>
#include <type_traits>

namespace eqdrc {

// Cycles longer than this are run out like any other input.
constexpr int kMaxRepeatPeriod = 8;

// Runs `step` (float(State &), one output per call, the input held constant inside it)
// for at most `steps` outputs out[0..steps), stopping as soon as the state equals one of
// the last kMaxRepeatPeriod states; from there it fills out[..total) by repetition and
// leaves the state where `total` steps would have.  Returns the outputs written: `total`
// when a repeat was found, else `steps`.  steps <= total.
template <class State, class Step>
int run_until_repeating(State &state, Step step, float *out, int steps, int total)
{
    static_assert(std::is_trivially_copyable<State>::value, "states are compared as bits");
    State before[kMaxRepeatPeriod];  // before[i % kMaxRepeatPeriod]: the state before step i
    for (int i = 0; i < steps; i++) {
        const int back = i < kMaxRepeatPeriod ? i : kMaxRepeatPeriod;
        for (int period = 1; period <= back; period++) {
            if (std::memcmp(&state, &before[(i - period) % kMaxRepeatPeriod], sizeof(State)) != 0)
                continue;
            for (int j = i; j < total; j++)
                out[j] = out[j - period];
            state = before[(i - period + (total - i) % period) % kMaxRepeatPeriod];
            return total;
        }
        before[i % kMaxRepeatPeriod] = state;
        out[i] = step(state);
    }
    return steps;
}

// Where the run of identical samples (bit for bit) that ends x[0..n) begins; n >= 1.
inline int constant_tail_start(const float *x, int n)
{
    int start = n - 1;
    while (start > 0 && std::memcmp(&x[start - 1], &x[n - 1], sizeof(float)) == 0)
        start--;
    return start;
}

}  // namespace eqdrc

#endif
