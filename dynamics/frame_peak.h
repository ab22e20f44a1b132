// A frame's peak (and mean square) as the gain stages measure it.
#ifndef EQDRC_DYNAMICS_FRAME_PEAK_H
#define EQDRC_DYNAMICS_FRAME_PEAK_H

#include <cmath>

#include "filters/lanes.h"

namespace eqdrc {

// The running peaks of C channels after x[c][0..n): `if (|x[i]| > peak) peak = |x[i]|` in
// turn, from peak[c].  Being the largest magnitude (a NaN is never taken), each is found
// four samples at a time.  With `meanSquare`, also adds |x[i]|^2 / frames to
// meanSquare[c], one term after the other; the channels' sums run side by side.
template <int C>
inline void running_peaks(const float *const *x, int n, float *peak, float frames, float *meanSquare)
{
    int i = 0;
    if (n >= kLanes) {
        f32x4 lanePeak[C];
        float sum[C];
        for (int c = 0; c < C; c++) {
            lanePeak[c] = splat(peak[c]);
            sum[c] = meanSquare ? meanSquare[c] : 0.0f;
        }
        const f32x4 frameCount = splat(frames);
        for (; i + kLanes <= n; i += kLanes) {
            for (int c = 0; c < C; c++) {
                const f32x4 mag = abs(load(x[c] + i));
                if (meanSquare) {
                    const f32x4 t = mag * mag / frameCount;
                    sum[c] = sum[c] + t[0];
                    sum[c] = sum[c] + t[1];
                    sum[c] = sum[c] + t[2];
                    sum[c] = sum[c] + t[3];
                }
                lanePeak[c] = max_ordered(mag, lanePeak[c]);
            }
        }
        for (int c = 0; c < C; c++) {
            for (int lane = 0; lane < kLanes; lane++)
                if (lanePeak[c][lane] > peak[c])
                    peak[c] = lanePeak[c][lane];
            if (meanSquare)
                meanSquare[c] = sum[c];
        }
    }
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
