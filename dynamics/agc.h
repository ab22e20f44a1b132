// Automatic gain control, run just before the limiter on the maximizer's record.  Each
// frame is measured by peak and by mean square; a peak above compressStartDb governs,
// otherwise the mean square does, and the gain moves across the frame towards the
// curve's value.
#ifndef EQDRC_DYNAMICS_AGC_H
#define EQDRC_DYNAMICS_AGC_H

#include <cstdint>

#include "dynamics/dynamics_format.h"
#include "dynamics/gain_table.h"

namespace eqdrc {

// Words 3..10 of a maximizer channel block, in AgcSettings order.
constexpr int kAgcWordCompressStart = 3;
constexpr int kAgcWords = 8;

// The AGC's curve and times, in section (and Agc_AdjustPara argument) order.
struct AgcSettings {
    CurveSettings curve;
    float attackMs;
    float releaseMs;
    float holdMs;  // kept and printed only

    static AgcSettings from_block(const float *block);
    void to_block(float *block) const
    {
        const float words[kAgcWords] = {curve.compressStartDb, curve.expandEndDb, curve.noiseThresholdDb,
                                        curve.maxGainDb,       curve.maxPeakDb,   attackMs,
                                        releaseMs,             holdMs};
        for (int k = 0; k < kAgcWords; k++)
            block[k] = words[k];
    }
    // The AGC's form of the curve rule: a NaN passes.
    bool consistent() const { return curve.consistent_nan_passes(); }
};

struct Agc {
    AgcSettings settings[kDynamicsMaxChannels];
    float tableX0Db[kDynamicsMaxChannels];  // dB at table entry 0
    float tableScale[kDynamicsMaxChannels];  // entries per dB
    float attackCoef[kDynamicsMaxChannels];
    float releaseCoef[kDynamicsMaxChannels];
    ChannelGains gains;  // linear gains 1 at start

    // Channel `ch` (0 or 1) takes new settings and restarts at unity gain.  Its gain and
    // table exist only below `channels`; a channel beyond them keeps its settings in the
    // two-entry arrays and builds its curve into a scratch table.
    void set(const DynamicsFormat &format, int ch, const AgcSettings &s);
    // Agc_AdjustPara: one channel, or every channel when they are linked.
    void adjust(const DynamicsFormat &format, int channel, const AgcSettings &s);
    void process(const DynamicsFormat &format, const float *const *in, float *const *out, int n);
    void print(const DynamicsFormat &format) const;
    // Agc_GetCurve: the table's gain at each level; the knee width, or -1 for a channel
    // without a table.
    int curve(const DynamicsFormat &format, int ch, const float *levelDb, float *gainDb, int count) const
    {
        if (ch < 0 || ch >= format.channels || ch >= kDynamicsMaxChannels)
            return -1;
        gain_table_curve_db(gains.tables[ch], tableX0Db[ch], tableScale[ch], levelDb, gainDb, count);
        return kGainCurveKnee;
    }
};

}  // namespace eqdrc

#endif
