#include "dynamics/gain_table.h"

#include "core/mathf.h"
#include "core/numeric.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

float expander_compressor_curve(int knee, float x, float nt, float ee, float cs, float mg, float mp)
{
    if (knee < 1)
        return 0.0f;
    float h = static_cast<float>(knee >> 1);
    float k2 = static_cast<float>(wrapping_mul(knee, 2));  // a huge knee wraps, as the device does
    float r1 = ((ee + mg) - nt) / (ee - nt);
    // A level on a region's boundary belongs to the lower region.
    if (x <= ee - h)
        return nt + (x - nt) * r1;
    if (x <= ee + h) {
        float t = (x - ee) - h;
        return (mg + x) + (1.0f - r1) * t * t / k2;
    }
    if (x <= cs - h)
        return mg + x;
    float r2 = -((mp - mg) - cs) / cs;
    if (x <= cs + h) {
        float t = (x - cs) + h;
        return (mg + x) + (r2 - 1.0f) * t * t / k2;
    }
    return (mg + cs) + r2 * (x - cs);
}

float limiter_curve(int knee, float x, float threshold)
{
    if (knee < 1)
        return 0.0f;
    float h = static_cast<float>(knee >> 1);
    float k2 = static_cast<float>(wrapping_mul(knee, 2));  // a huge knee wraps, as the device does
    if (x <= threshold - h)
        return x;
    if (x > threshold + h)
        return threshold;
    float t = (x - threshold) + h;
    return x - t * t / k2;
}

float gain_table_lookup(int last, const float *table, float level, float x0, float scale)
{
    if (level < x0)
        return table[0];
    float p = (level - x0) * scale;
    int32_t index = to_int32(static_cast<double>(p) + 0.5);  // round half up
    if (index >= last)
        index = last;
    // A grid whose top lies below its origin has a negative scale; the index would
    // then point before the table.  Entry 0 is the safe stand-in.
    if (index < 0)
        index = 0;
    return table[index];
}

void gain_table_curve_db(const float *table, float x0, float scale, const float *levelDb, float *gainDb, int count)
{
    for (int i = 0; i < count; i++)
        gainDb[i] = 20.0f * mathf::log10f(gain_table_lookup(kGainTableLast, table, levelDb[i], x0, scale));
}

}  // namespace eqdrc
