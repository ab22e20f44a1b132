// Breakpoint search for gain-table entries: the proof that it picks the entry the
// detector's own logarithm would, for every detector value.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/mathf.h"
#include "core/numeric.h"
#include "dynamics/gain_table.h"
#include "dynamics/level_index.h"

namespace {

using eqdrc::bits_of;
using eqdrc::float_of;


// The compressor's detector: level = 20 (log10(e + 1) - full scale), then the nearest
// entry of a grid from noise_threshold - 4 dB to 0 dB.
struct Detector {
    float log10FullScale;
    float x0;
    float scale;

    static Detector for_threshold(float noiseThreshold, float log10FullScale)
    {
        const float x0 = noiseThreshold - 4.0f;
        const float step = (0.0f - x0) / 200.0f;
        return {log10FullScale, x0, 1.0f / step};
    }
    int direct(float e) const
    {
        const float level = 20.0f * (eqdrc::mathf::log10f(e + 1.0f) - log10FullScale);
        return eqdrc::gain_table_entry(level, x0, scale);
    }
    static int entry_of(const void *ctx, float e) { return static_cast<const Detector *>(ctx)->direct(e); }
};

// Every non-negative float at a prime stride, the breakpoints with their neighbours,
// and the ends: the search must agree with the direct computation at each.
void expect_agreement(const Detector &d)
{
    eqdrc::LevelIndex index;
    index.build(&Detector::entry_of, &d);
    ASSERT_TRUE(index.exact);
    const uint32_t kInf = 0x7f800000u;
    for (uint32_t b = 0; b <= kInf - 8191u; b += 8191u)
        ASSERT_EQ(index.find(float_of(b)), d.direct(float_of(b))) << float_of(b);
    for (int i = 1; i <= eqdrc::kGainTableLast; i++) {
        if (std::isnan(index.edge[i]))
            break;
        const uint32_t e = bits_of(index.edge[i]);
        for (uint32_t b = e < 3 ? 0 : e - 3; b <= e + 3 && b <= kInf; b++)
            ASSERT_EQ(index.find(float_of(b)), d.direct(float_of(b))) << float_of(b);
    }
    EXPECT_EQ(index.find(std::numeric_limits<float>::infinity()), d.direct(std::numeric_limits<float>::infinity()));
    EXPECT_EQ(index.find(-0.0f), d.direct(-0.0f));
    EXPECT_EQ(index.find(std::numeric_limits<float>::quiet_NaN()), d.direct(std::numeric_limits<float>::quiet_NaN()));
}

// ---------------------------------------------------------------------------------

// The whole argument rests on this: log10f never decreases over [1, +inf], every float
// of it.  (Unoptimised builds check every 61st float to stay quick.)
TEST(LevelIndexProof, Log10fNeverDecreasesFromOne)
{
#ifdef __OPTIMIZE__
    const uint32_t stride = 1;
#else
    const uint32_t stride = 61;
#endif
    float previous = eqdrc::mathf::log10f(1.0f);
    uint32_t bad = 0;
    for (uint32_t b = 0x3f800000u + stride; b <= 0x7f800000u; b += stride) {
        const float y = eqdrc::mathf::log10f(float_of(b));
        bad += y < previous;
        previous = y;
    }
    EXPECT_EQ(bad, 0u);
}

TEST(LevelIndexProof, BreakpointsGiveTheDirectEntryForEveryBitDepthAndThreshold)
{
    for (float fullScale : {4.51545f, 6.92369f, 9.33193f})
        for (float threshold : {-60.0f, -96.0f, -40.5f, -13.0f, -4.0f, 3.0f})
            expect_agreement(Detector::for_threshold(threshold, fullScale));
}

// Grids that are no grid at all (threshold at the top, beyond it, or not a number):
// the entry is constant or jumps straight to the end, and the search still agrees.
TEST(LevelIndexProof, DegenerateGridsAgreeToo)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    expect_agreement(Detector::for_threshold(4.0f, 4.51545f));  // x0 = 0: an infinite scale
    expect_agreement(Detector::for_threshold(50.0f, 4.51545f));
    expect_agreement(Detector::for_threshold(nan, 4.51545f));
    expect_agreement(Detector::for_threshold(-inf, 4.51545f));
    expect_agreement(Detector::for_threshold(inf, 4.51545f));
}

// A detector whose entries fall instead of rise is caught by the check at the
// breakpoints rather than searched wrongly.
TEST(LevelIndexProof, FallingDetectorIsNotTrusted)
{
    eqdrc::LevelIndex index;
    index.build([](const void *, float e) { return e < 1.0f ? 200 : 0; }, nullptr);
    EXPECT_FALSE(index.exact);
}

}  // namespace
