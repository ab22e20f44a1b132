// `eqdrc fit` end to end: an impulse response is read through its spectrum and gives a
// tuning the check accepts, with its report; a file that is not a measurement is refused
// with one line naming it, and nothing is written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tool_test_support.h"

using namespace eqdrc_tool_test;

TEST(FitCommand, ImpulseResponseGivesACheckedTuningAndReport)
{
    ScratchDir dir;
    std::vector<double> ir(4096, 0.0);
    for (size_t n = 0; n < 64; ++n)  // a decaying 3 kHz ring over the impulse: a peak to correct
        ir[n] = (n == 0 ? 0.5 : 0.0) + 0.1 * std::exp(-0.05 * n) * std::sin(2 * M_PI * 3000.0 * n / 48000.0);
    ASSERT_TRUE(write_sound(dir / "ir.wav", ir, 1, 48000, SF_FORMAT_WAV | SF_FORMAT_FLOAT));
    RunResult r = run_tool({"fit", dir / "ir.wav", "-o", dir / "t.json", "--report", dir / "r.json", "--bands", "4"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err.rfind("eqdrc: fit: " + dir / "ir.wav" + ": 4 band(s)", 0), 0u) << r.err;
    EXPECT_NE(slurp(dir / "r.json").find("\"after\""), std::string::npos);
    EXPECT_EQ(run_tool({"tuning", "check", dir / "t.json"}).status, 0);
}

TEST(FitCommand, RefusesWhatIsNotAMeasurementInOneLine)
{
    ScratchDir dir;
    ASSERT_TRUE(write_sound(dir / "silent.wav", std::vector<int16_t>(4800, 0), 1, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_16));
    spit(dir / "few.txt", "100 80\n200 81\n");
    spit(dir / "nan.txt", "* REW\n20 80\n40 nan\n");
    const std::pair<std::string, std::string> cases[] = {
        {"silent.wav", "the impulse response is silent"}, {"few.txt", "2 point(s)"}, {"nan.txt", ":3: "}};
    for (const auto &[file, reason] : cases) {
        RunResult r = run_tool({"fit", dir / file, "-o", dir / "out.json"});
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err.rfind("eqdrc: " + dir / file, 0), 0u) << r.err;
        EXPECT_NE(r.err.find(reason), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(dir.entries().size(), 3u) << "nothing written for " << file;
    }
}
