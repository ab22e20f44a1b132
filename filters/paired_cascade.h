// Two channels' cascades of biquad sections run together in lanes.  Each channel's
// cascade is cut into groups of consecutive sections, two groups in four lanes or four in
// eight: lanes 0 and 1 take the first group of channel 0 and 1 at sample i, lanes 2 and 3
// the second group at an earlier sample, fed by what the first gave for it, and so on.
// Every lane performs biquad_step's operations in order, so the output is exactly that of
// running each channel's sections one after the other, in a fraction of the vector steps
// of a two-lane run.  Eight lanes are used in the AVX2 build only.
#ifndef EQDRC_FILTERS_PAIRED_CASCADE_H
#define EQDRC_FILTERS_PAIRED_CASCADE_H

#include "dsp/lanes.h"

namespace eqdrc {

constexpr int kMaxCascadeSections = 10;

// Where the sections live: section k of channel c has its five coefficients at
// coeffs[c][k] and its two memories at state[c][k].
struct CascadeSections {
    int count;  // per channel, 1..kMaxCascadeSections
    const float *coeffs[2][kMaxCascadeSections];
    float *state[2][kMaxCascadeSections];
};

// Channel c from x[c] to y[c], n >= 1 samples; y[c] may be x[c] (in place), but neither
// channel's output may overlap the other's input.  The memories are read at the start and written back at the end.
void run_paired_cascade(const CascadeSections &sections, const float *const x[2], float *const y[2], int n);

}  // namespace eqdrc

#endif
