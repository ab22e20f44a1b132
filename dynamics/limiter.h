// The maximizer's frame-wise peak limiter with makeup gain: above the threshold the
// gain reaches the curve's value within the frame, below it releases as a one-pole.
#ifndef EQDRC_DYNAMICS_LIMITER_H
#define EQDRC_DYNAMICS_LIMITER_H

#include "dynamics/dynamics_format.h"

namespace eqdrc {

// Words 0..2 of a maximizer channel block.
constexpr int kLimiterWordThreshold = 0;  // dB
constexpr int kLimiterWordCeiling = 1;    // dB
constexpr int kLimiterWordRelease = 2;    // ms

struct Limiter {
    float thresholdDb[kDynamicsMaxChannels];
    float ceilingDb[kDynamicsMaxChannels];
    float releaseMs[kDynamicsMaxChannels];
    float makeup[kDynamicsMaxChannels];  // linear, folded into the table
    float tableX0Db[kDynamicsMaxChannels];  // dB at table entry 0
    float tableScale[kDynamicsMaxChannels];  // entries per dB
    float releaseCoef[kDynamicsMaxChannels];
    ChannelGains gains;  // linear gains 0 at start: the first frame fades in

    // Channel `ch` (0 or 1) takes new values; the makeup follows from them.  It keeps its
    // current gain: the new curve takes over through attack and release.
    void set(const DynamicsFormat &format, int ch, float threshold, float ceiling, float release);
    // The built-in tuning for a null section, whose makeup is given rather than derived.
    void set_default(const DynamicsFormat &format, int ch);
    // Maximizer_AdjustPara: one channel, or every channel when they are linked.
    void adjust(const DynamicsFormat &format, int channel, float threshold, float ceiling, float release);
    void process(const DynamicsFormat &format, const float *const *in, float *const *out, int n);
    void to_block(int ch, float *block) const;
    int print(const DynamicsFormat &format) const;
    // Maximizer_GetCurve: the table's gain at each level; the knee width, or -1 for a
    // channel without a table.
    int curve(const DynamicsFormat &format, int ch, const float *levelDb, float *gainDb, int count) const;

private:
    int knee_db(int ch) const;
    void build(const DynamicsFormat &format, int ch);
};

}  // namespace eqdrc

#endif
