// Lane helpers whose results must equal their one-sample-at-a-time loops bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "dynamics/frame_peak.h"
#include "dynamics/gain_ramp.h"
#include "filters/lanes.h"
#include "filters/paired_cascade.h"

namespace {

uint32_t bits(float f)
{
    uint32_t u;
    std::memcpy(&u, &f, sizeof u);
    return u;
}

// Awkward samples: NaNs of both signs, infinities, signed zeros, subnormals, and values
// whose squares divided by the frame count round differently in another order.
std::vector<float> awkward(int n, uint32_t seed)
{
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(), -0.0f, 0.0f, 1e-40f, -3e-39f, 32767.0f,
                              -32768.5f, 0.1f, 1.0000001f};
    std::vector<float> x(static_cast<size_t>(n));
    for (float &v : x) {
        seed = seed * 1664525u + 1013904223u;
        v = (seed >> 28) < 4 ? specials[(seed >> 8) % (sizeof specials / sizeof specials[0])]
                             : static_cast<float>(static_cast<int32_t>(seed)) * 1e-5f;
    }
    return x;
}

TEST(RunningPeak, EqualsTheSampleBySampleLoop)
{
    for (int n = 0; n < 14; n++) {
        for (uint32_t seed = 1; seed < 40; seed++) {
            const std::vector<float> x = awkward(n, seed);
            for (const float start : {0.0f, 7.0f}) {
                float peak = start, meanSquare = 0.5f;
                const float frames = static_cast<float>(n > 0 ? n : 1);
                for (int i = 0; i < n; i++) {
                    const float mag = std::fabs(x[i]);
                    meanSquare = meanSquare + mag * mag / frames;
                    if (mag > peak)
                        peak = mag;
                }
                float lanesMeanSquare = 0.5f;
                EXPECT_EQ(bits(eqdrc::running_peak(x.data(), n, start, frames, &lanesMeanSquare)), bits(peak));
                EXPECT_EQ(bits(eqdrc::running_peak(x.data(), n, start, frames, nullptr)), bits(peak));
                if (!std::isnan(meanSquare))
                    EXPECT_EQ(bits(lanesMeanSquare), bits(meanSquare)) << "n " << n << " seed " << seed;
                else
                    EXPECT_TRUE(std::isnan(lanesMeanSquare));
            }
        }
    }
}

TEST(RampLanes, AddsOneStepAfterAnother)
{
    for (const float step : {1e-8f, -0.3f, 1.0f / 768.0f}) {
        float a = 1.0f, b = 1.0f;
        for (int block = 0; block < 50; block++) {
            const eqdrc::f32x4 r = eqdrc::ramp_lanes(a, step);
            for (int lane = 0; lane < eqdrc::kLanes; lane++) {
                b = b + step;
                ASSERT_EQ(bits(r[lane]), bits(b));
            }
            ASSERT_EQ(bits(a), bits(b));
        }
    }
}

TEST(ReadsStayAhead, OnlyAnOutputStartingInsideItsInputBreaksBlockedLoops)
{
    float buf[32];
    EXPECT_TRUE(eqdrc::reads_stay_ahead(buf, buf, 16));        // in place
    EXPECT_TRUE(eqdrc::reads_stay_ahead(buf + 8, buf, 16));    // writes trail the reads
    EXPECT_TRUE(eqdrc::reads_stay_ahead(buf, buf + 16, 16));   // apart
    EXPECT_FALSE(eqdrc::reads_stay_ahead(buf, buf + 1, 16));   // a write lands on a later read
    EXPECT_FALSE(eqdrc::reads_stay_ahead(buf, buf + 15, 16));
}

}  // namespace
