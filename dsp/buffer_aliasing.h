// Whether a caller's input and output buffers let a stage run ahead of its writes: a
// block of samples at a time, or two channels together.  Hosts may pass the same buffer
// for both, or overlapping ones, and must get what the sample-by-sample form gives.
#ifndef EQDRC_DSP_BUFFER_ALIASING_H
#define EQDRC_DSP_BUFFER_ALIASING_H

#include <cstdint>

namespace eqdrc {

// A loop that reads x[i] before it writes y[i] gives the same as one that reads a block
// of x ahead of its writes, unless y starts inside x past its first element.
inline bool reads_stay_ahead(const float *x, const float *y, int n)
{
    const uintptr_t xi = reinterpret_cast<uintptr_t>(x), yi = reinterpret_cast<uintptr_t>(y);
    return !(yi > xi && yi < xi + static_cast<uintptr_t>(n) * sizeof(float));
}

// A stage's scalar form runs channel 0 sample by sample, then channel 1.  A form that
// runs the two together and reads ahead of its writes (a sample, a block) gives the same
// unless a channel's output overlaps the other channel's input, or starts inside its own
// input past the first sample.
inline bool pair_runs_as_sequence(const float *const *in, const float *const *out, int n)
{
    const uintptr_t bytes = static_cast<uintptr_t>(n) * sizeof(float);
    auto disjoint = [bytes](const float *a, const float *b) {
        const uintptr_t x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
        return x >= y + bytes || y >= x + bytes;
    };
    return disjoint(out[0], in[1]) && disjoint(out[1], in[0]) && reads_stay_ahead(in[0], out[0], n) &&
           reads_stay_ahead(in[1], out[1], n);
}

}  // namespace eqdrc

#endif
