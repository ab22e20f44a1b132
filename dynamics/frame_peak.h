// A frame's peak (and mean square) as the gain stages measure it.
#ifndef EQDRC_DYNAMICS_FRAME_PEAK_H
#define EQDRC_DYNAMICS_FRAME_PEAK_H

#include <cmath>

#include "filters/lanes.h"

namespace eqdrc {

// The running peak after x[0..n): `if (|x[i]| > peak) peak = |x[i]|` in turn.  Being the
// largest magnitude (a NaN is never taken), it is found four samples at a time.  With
// `meanSquare`, also adds |x[i]|^2 / frames to it, one term after the other.
inline float running_peak(const float *x, int n, float peak, float frames, float *meanSquare)
{
    int i = 0;
    if (n >= kLanes) {
        f32x4 lanePeak = splat(peak);
        const f32x4 frameCount = splat(frames);
        float sum = meanSquare ? *meanSquare : 0.0f;
        for (; i + kLanes <= n; i += kLanes) {
            const f32x4 mag = abs(load(x + i));
            if (meanSquare) {
                const f32x4 t = mag * mag / frameCount;
                sum = sum + t[0];
                sum = sum + t[1];
                sum = sum + t[2];
                sum = sum + t[3];
            }
            lanePeak = select(greater(mag, lanePeak), mag, lanePeak);
        }
        for (int lane = 0; lane < kLanes; lane++)
            if (lanePeak[lane] > peak)
                peak = lanePeak[lane];
        if (meanSquare)
            *meanSquare = sum;
    }
    for (; i < n; i++) {
        const float mag = std::fabs(x[i]);
        if (meanSquare)
            *meanSquare = *meanSquare + mag * mag / frames;
        if (mag > peak)
            peak = mag;
    }
    return peak;
}

}  // namespace eqdrc

#endif
