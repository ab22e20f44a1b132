// Per-frame gain changes spread across the frame: a linear ramp by repeated addition,
// and the probe that finds where a ramp would drive the signal past a bound.
#ifndef EQDRC_DSP_GAIN_RAMP_H
#define EQDRC_DSP_GAIN_RAMP_H

#include "dsp/buffer_aliasing.h"
#include "dsp/lanes.h"

namespace eqdrc {

// The next four values of the ramp `a = a + step`, added one after the other; `a` is
// left on the last.
inline f32x4 ramp_lanes(float &a, float step)
{
    const float a0 = a + step;
    const float a1 = a0 + step;
    const float a2 = a1 + step;
    a = a2 + step;
    return lanes(a0, a1, a2, a);
}

// y = x × a with a stepping from `from` to `to` over the first m samples by repeated
// addition, then held for the rest of the frame.
inline void ramp_then_hold(const float *x, float *y, int n, int m, float from, float to)
{
    const float delta = (to - from) / static_cast<float>(m);
    float a = from;
    int i = 0;
    const bool blocks = reads_stay_ahead(x, y, n);
    if (blocks)
        for (; i + kLanes <= m; i += kLanes)
            store(y + i, load(x + i) * ramp_lanes(a, delta));
    for (; i < m; i++) {
        a = a + delta;
        y[i] = x[i] * a;
    }
    if (blocks)
        for (; i + kLanes <= n; i += kLanes)
            store(y + i, load(x + i) * splat(a));
    for (; i < n; i++)
        y[i] = x[i] * a;
}

// The overload probe: the first i whose gained sample x[i] × a lies beyond ±bound, where
// a starts at `from` and has `step` added before each sample; n when none does (a NaN
// never counts).
inline int first_overload(const float *x, int n, float from, float step, float bound)
{
    float a = from;
    for (int i = 0; i < n; i++) {
        a = a + step;
        const float v = x[i] * a;
        if (v > bound || v < -bound)
            return i;
    }
    return n;
}

}  // namespace eqdrc

#endif
