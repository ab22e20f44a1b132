// The static curves the dynamics stages report are what they do: a steady level settles
// at the gain the curve gives for it. A channel or band a stage does not run reports
// nothing.
#include <cmath>
#include <vector>

#include "support/test_support.h"

namespace {

constexpr int kFrame = 768;
constexpr float kFullScale = 32768.0f;

TEST(StaticCurves, TheLimiterSettlesOnTheGainItsCurveGives)
{
    const std::vector<float> rec = eqdrc_test::reference_record();
    MaximizerState *mx = Maximizer_Init(rec.data() + 400, 16, 48000, 2, kFrame, 0);
    for (float v : {30000.0f, 3000.0f}) {  // above and below the threshold
        const float level = 20.0f * (std::log10(v + 1.0f) - std::log10(kFullScale));
        float gainDb = 0.0f;
        ASSERT_GT(Maximizer_GetCurve(mx, 1, &level, &gainDb, 1), 0);
        eqdrc_test::Planar pcm(2, kFrame);
        for (int f = 0; f < 400; f++) {
            pcm = eqdrc_test::Planar(2, kFrame, v);
            Maximizer_Process(mx, pcm.ptrs(), pcm.ptrs(), kFrame);
        }
        EXPECT_NEAR(20.0f * std::log10(pcm.data[1][kFrame - 1] / v), gainDb, 0.01f) << v;
    }
    float level = -10.0f, untouched = 123.0f;
    EXPECT_EQ(Maximizer_GetCurve(mx, 2, &level, &untouched, 1), -1);
    EXPECT_EQ(Agc_GetCurve(nullptr, 0, &level, &untouched, 1), -1);
    Maximizer_Destroy(mx);
    MultiBandDRCState *drc = MultiBandDRC_Init(rec.data() + 200, 16, 48000, 2, 0);
    float written = 0.0f;
    EXPECT_GE(MultiBandDRC_GetCurve(drc, 1, 3, &level, &written, 1), 0);
    EXPECT_EQ(MultiBandDRC_GetCurve(drc, 1, 4, &level, &untouched, 1), -1);  // four bands
    MultiBandDRC_Destroy(drc);
    EXPECT_EQ(untouched, 123.0f);
}

}  // namespace
