// A frame's peak (and mean square) as the gain stages measure it.
#ifndef EQDRC_DSP_FRAME_PEAK_H
#define EQDRC_DSP_FRAME_PEAK_H

#include <cmath>

#include "dsp/lanes.h"

namespace eqdrc {

// C channels' running sums, four terms per channel added one after the other.
template <int C>
struct InOrderSums {
    float sum[C];

    explicit InOrderSums(const float *start)
    {
        for (int c = 0; c < C; c++)
            sum[c] = start[c];
    }
    void add(const f32x4 *t)
    {
        for (int c = 0; c < C; c++)
            for (int k = 0; k < kLanes; k++)
                sum[c] = sum[c] + t[c][k];
    }
    float operator[](int c) const { return sum[c]; }
};

#if !EQDRC_SCALAR_LANES
// Where lanes are vectors, two channels' sums run in two lanes of one vector, kept there
// across the loop.
template <>
struct InOrderSums<2> {
    f32x4 sums;

    explicit InOrderSums(const float *start) : sums(pair_lanes(start[0], start[1])) {}
    void add(const f32x4 *t)
    {
        const f32x4 first = interleave_low(t[0], t[1]), second = interleave_high(t[0], t[1]);
        sums = sums + first;
        sums = sums + upper_pair(first);
        sums = sums + second;
        sums = sums + upper_pair(second);
    }
    float operator[](int c) const { return sums[c]; }
};
#endif

// The running peaks of C channels after x[c][0..n): `if (|x[i]| > peak) peak = |x[i]|` in
// turn, from peak[c].  Being the largest magnitude (a NaN is never taken), each is found
// four samples at a time.  With `meanSquare`, also adds |x[i]|^2 / frames to
// meanSquare[c], one term after the other; the channels' sums run side by side.
template <int C, bool MeanSquare>
inline int running_peaks_lanes(const float *const *x, int n, float *peak, float frames, float *meanSquare)
{
    f32x4 lanePeak[C];
    float start[C];
    for (int c = 0; c < C; c++) {
        lanePeak[c] = splat(peak[c]);
        start[c] = MeanSquare ? meanSquare[c] : 0.0f;
    }
    InOrderSums<C> sum(start);
    const f32x4 frameCount = splat(frames);
    int i = 0;
    for (; i + kLanes <= n; i += kLanes) {
        f32x4 t[C];
        for (int c = 0; c < C; c++) {
            const f32x4 mag = abs(load(x[c] + i));
            if constexpr (MeanSquare)
                t[c] = mag * mag / frameCount;
            lanePeak[c] = max_ordered(mag, lanePeak[c]);
        }
        if constexpr (MeanSquare)
            sum.add(t);
    }
    for (int c = 0; c < C; c++) {
        for (int lane = 0; lane < kLanes; lane++)
            if (lanePeak[c][lane] > peak[c])
                peak[c] = lanePeak[c][lane];
        if constexpr (MeanSquare)
            meanSquare[c] = sum[c];
    }
    return i;
}

template <int C>
inline void running_peaks(const float *const *x, int n, float *peak, float frames, float *meanSquare)
{
    int i = 0;
    if (n >= kLanes)
        i = meanSquare ? running_peaks_lanes<C, true>(x, n, peak, frames, meanSquare)
                       : running_peaks_lanes<C, false>(x, n, peak, frames, meanSquare);
    for (int c = 0; c < C; c++) {
        for (int j = i; j < n; j++) {
            const float mag = std::fabs(x[c][j]);
            if (meanSquare)
                meanSquare[c] = meanSquare[c] + mag * mag / frames;
            if (mag > peak[c])
                peak[c] = mag;
        }
    }
}

// One channel's running peak from `peak`, as above.
inline float running_peak(const float *x, int n, float peak, float frames, float *meanSquare)
{
    running_peaks<1>(&x, n, &peak, frames, meanSquare);
    return peak;
}

}  // namespace eqdrc

#endif
