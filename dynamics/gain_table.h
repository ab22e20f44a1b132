// Static gain curves evaluated once into 201-entry tables, read by nearest entry.
#ifndef EQDRC_DYNAMICS_GAIN_TABLE_H
#define EQDRC_DYNAMICS_GAIN_TABLE_H

#include <cmath>

#include "core/mathf.h"
#include "core/print_out.h"

namespace eqdrc {

constexpr int kGainTableLast = 200;                  // entries 0..200
constexpr int kGainTableSize = kGainTableLast + 1;
constexpr int kGainCurveKnee = 4;                    // knee width the AGC and compressor use
constexpr float kGainFloor = 0.001f;                 // -60 dB: the deepest attenuation a table holds

// Expander / constant gain / compressor curve (dB in, dB out).
float expander_compressor_curve(int knee, float x, float noiseThreshold, float expandEnd, float compressStart,
                                float maxGain, float maxPeak);

// The corners of an expander / constant gain / compressor curve, in the order tuning
// sections and adjust calls hold them.
struct CurveSettings {
    float compressStartDb;
    float expandEndDb;
    float noiseThresholdDb;
    float maxGainDb;
    float maxPeakDb;

    // Its five lines of a parameter print-out, in section order.
    void print(PrintOut &out) const
    {
        out.value("compress_start", compressStartDb);
        out.value("expand_end", expandEndDb);
        out.value("noise_threshold", noiseThresholdDb);
        out.value("max_gain", maxGainDb);
        out.value("max_peak", maxPeakDb);
    }

    // The curve's output level in dB for `x` dB in.
    float level_db(float x) const
    {
        return expander_compressor_curve(kGainCurveKnee, x, noiseThresholdDb, expandEndDb, compressStartDb,
                                         maxGainDb, maxPeakDb);
    }

    // The consistency rule: the curve rises through expansion, flat boost and compression
    // in that order (noise <= expand end <= compress start) and compressStart + maxGain
    // stays at or below maxPeak.  Its two forms differ only for NaN:
    // every comparison must hold, so a NaN anywhere fails (the multi-band compressor's);
    bool consistent_nan_fails() const
    {
        return noiseThresholdDb <= expandEndDb && expandEndDb <= compressStartDb &&
               compressStartDb + maxGainDb <= maxPeakDb;
    }
    // no comparison may show a violation, so a NaN anywhere passes (the AGC's).
    bool consistent_nan_passes() const
    {
        return !(noiseThresholdDb > expandEndDb || expandEndDb > compressStartDb ||
                 maxPeakDb < compressStartDb + maxGainDb);
    }
};

// Limiter curve (dB in, dB out).
float limiter_curve(int knee, float x, float threshold);
// Nearest entry for `level` (dB); below the grid entry 0, above it entry `last`.
float gain_table_lookup(int last, const float *table, float level, float x0, float scale);
// The gain in dB a table gives at each of `count` detector levels: the curve pictures and
// checks read, so that they need not restate how the table was built.
void gain_table_curve_db(const float *table, float x0, float scale, const float *levelDb, float *gainDb, int count);

// Where a table's entry 0 sits and how many entries make one dB.
struct GainTableGrid {
    float x0;
    float scale;
};

// How the owner turns a curve value into an entry.
enum class GainFloorTest {
    kFloat,           // compressor: g > 0.001f in float
    kDouble,          // AGC: g widened to double against 0.001
    kDoubleMakeup,    // limiter: as kDouble, then times the makeup gain in double
};

// Fills table[0..200] over the grid x0..top with linear gains 10^((curve(x) - x) / 20),
// floored at 0.001, and returns the grid.  `curve` maps a level in dB to the curve's
// output level in dB.
template <class Curve>
GainTableGrid build_gain_table(float *table, float x0, float top, Curve curve, GainFloorTest test,
                               float makeup = 1.0f)
{
    float step = (top - x0) / 200.0f;
    GainTableGrid grid{x0, 1.0f / step};
    for (int i = 0; i < kGainTableSize; i++) {
        float x = x0 + static_cast<float>(i) * step;
        float y = curve(x);
        float g = mathf::powf(mathf::kTen, (y - x) / 20.0f);
        switch (test) {
        case GainFloorTest::kFloat: table[i] = g > kGainFloor ? g : kGainFloor; break;
        case GainFloorTest::kDouble:
            table[i] = static_cast<float>(static_cast<double>(g) > 0.001 ? static_cast<double>(g) : 0.001);
            break;
        case GainFloorTest::kDoubleMakeup: {
            double v = static_cast<double>(g) > 0.001 ? static_cast<double>(g) : 0.001;
            table[i] = static_cast<float>(v * static_cast<double>(makeup));
            break;
        }
        }
    }
    return grid;
}

}  // namespace eqdrc

#endif
