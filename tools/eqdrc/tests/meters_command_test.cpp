// `eqdrc meters --once` on a file a writer published: the reading as JSON (only the
// metered channels, floats in their shortest form) and as lines; no reading is status 2.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "meter_file.h"
#include "tool_test_support.h"

using namespace eqdrc_tool_test;

TEST(MetersCommand, OnceGivesThePublishedReading)
{
    ScratchDir dir;
    std::string error;
    auto writer = eqdrc_plugin::MeterFileWriter::create(dir / "m", error);
    ASSERT_TRUE(writer) << error;
    eqdrc_plugin::MeterReading r;
    r.meters = {1234, EQDRC_STAGE_AUTO_GAIN | EQDRC_STAGE_MAXIMIZER, 1, 768, {-3.2f, -120.0f}, {-0.5f, -120.0f},
                1.5f, {{-6.25f, -1.0f, 0.0f, 0.0f}}, {0.0f}, {-2.0f}};
    r.handoverFrame = 700;
    r.handovers = 2;
    r.sampleRate = 44100;
    r.publishedMs = 1700000000123ull;
    writer->publish(r);

    RunResult json = run_tool({"meters", "--once", "--json", dir / "m"});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out), nlohmann::json::parse(R"({"frames": 1234, "channels": 1,
        "frameLength": 768, "stagesRun": 129, "inputPeakDb": [-3.2], "outputPeakDb": [-0.5], "autoGainDb": 1.5,
        "compressorGainDb": [[-6.25, -1, 0, 0]], "agcGainDb": [0], "limiterGainDb": [-2], "handoverFrame": 700,
        "handovers": 2, "sampleRate": 44100, "publishedMs": 1700000000123})"));
    EXPECT_NE(json.out.find("[-3.2]"), std::string::npos) << json.out;

    RunResult text = run_tool({"meters", "--once", dir / "m"});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char *line : {"stages run: auto_gain, maximizer\n", "last hand-over: at frame 700\n",
                             "channel 0 compressor dB: -6.25 -1.00 0.00 0.00\n", "channel 0 limiter dB: -2.00\n"})
        EXPECT_NE(text.out.find(line), std::string::npos) << line << " in\n" << text.out;
    EXPECT_EQ(text.out.find("channel 1"), std::string::npos);

    RunResult missing = run_tool({"meters", "--once", dir / "none"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "eqdrc: meters: " + dir / "none" + ": No such file or directory\n");
}
