// The one-pole smoothers the gain stages share: the per-frame gain step, and the
// compressor's per-sample envelope follower and gain smoother, each in a scalar form and
// a four-lane form doing the same operations in the same order.
#ifndef EQDRC_DSP_SMOOTHING_H
#define EQDRC_DSP_SMOOTHING_H

#include <cmath>

#include "dsp/lanes.h"
#include "dsp/lanes8.h"

namespace eqdrc {

// `coefficient` of the way from `prev` to `target` (a 1 - decay coefficient, as
// one_pole_coefficient gives).  The AGC, the auto gain's gain and its loudness.
inline float one_pole_step(float prev, float target, float coefficient)
{
    return coefficient * target + (1.0f - coefficient) * prev;
}

// Peak envelope follower with per-sample decays: the attack decay while the signed
// sample lies above the envelope, the release decay otherwise (so a negative sample
// always releases).
inline float follow_envelope(float x, float env, float attackDecay, float releaseDecay)
{
    const float k = x > env ? attackDecay : releaseDecay;
    return (1.0f - k) * std::fabs(x) + k * env;
}

// The same in every lane of four (or eight): the decay picked per lane, then one
// envelope step, which keeps no 1 - decay constants in registers.
template <class V>
EQDRC_LANE_INLINE V follow_envelope(V x, V env, V attackDecay, V releaseDecay)
{
    const V k = select(greater(x, env), attackDecay, releaseDecay);
    return (broadcast<V>(1.0f) - k) * abs(x) + k * env;
}

// Gain smoother with per-sample decays: a gain rising towards its target follows the
// attack decay, a falling one the release decay.
inline float smooth_gain(float target, float gain, float attackDecay, float releaseDecay)
{
    const float k = target > gain ? attackDecay : releaseDecay;
    return k * gain + (1.0f - k) * target;
}

// Both decays' results, as for follow_envelope, with the target's terms
// (1 - decay) target formed beforehand: they change only with the target.
template <class V>
EQDRC_LANE_INLINE V smooth_gain_towards(V target, V attackTerm, V releaseTerm, V gain, V attackDecay, V releaseDecay)
{
    const V attack = attackDecay * gain + attackTerm;
    const V release = releaseDecay * gain + releaseTerm;
    return select(greater(target, gain), attack, release);
}

template <class V>
EQDRC_LANE_INLINE V smooth_gain(V target, V gain, V attackDecay, V releaseDecay)
{
    const V one = broadcast<V>(1.0f);
    return smooth_gain_towards(target, (one - attackDecay) * target, (one - releaseDecay) * target, gain, attackDecay,
                               releaseDecay);
}

}  // namespace eqdrc

#endif
