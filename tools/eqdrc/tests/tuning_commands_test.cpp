// The commands that read, check and write tunings: their output, exit status and files.
#include <gtest/gtest.h>

#include "tool_test_support.h"
#include "tuning.h"

using namespace eqdrc_tool;
using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";

}  // namespace

TEST(TuningCommands, CheckCompileDecompileAndDiff)
{
    ScratchDir dir;
    for (const char *name : {"reference.bin", "bypass.bin", "bypass.json", "speech.json", "music.json",
                             "loud-small-speaker.json"}) {
        RunResult shipped = run_tool({"tuning", "check", kTunings + name});
        EXPECT_EQ(shipped.status, 0);
        EXPECT_EQ(shipped.out, kTunings + name + ": 0 error(s), 0 warning(s)\n");
    }
    spit(dir / "bad.json", R"({"header": {"sample_rate": 48000, "bit_depth": 16, "channels": 2, "tool_version": 2,
        "enable": {"auto_gain": 1}}, "auto_gain": {"target_i_dB": -16, "attack_time": 1000, "release_time": 1000,
        "r128_wins": 400, "r128_steps": 20}})");
    RunResult bad = run_tool({"tuning", "check", dir / "bad.json", "--frame", "1024"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, dir / "bad.json" + ": error: auto_gain.r128_steps = 20: a step of 960 samples is shorter than the "
                       "frame (1024 samples): the auto gain ends the process\n" + dir / "bad.json" + ": 1 error(s), 0 warning(s)\n");
    EXPECT_EQ(run_tool({"tuning", "check", dir / "bad.json", "--frame", "960"}).status, 0);

    // The shipped records come back byte for byte through their JSON.
    for (const char *name : {"reference.bin", "bypass.bin"}) {
        RunResult json = run_tool({"tuning", "decompile", kTunings + name});
        ASSERT_EQ(json.status, 0) << json.err;
        spit(dir / "back.json", json.out);
        ASSERT_EQ(run_tool({"tuning", "compile", dir / "back.json", "-o", dir / "back.bin"}).status, 0);
        EXPECT_EQ(slurp(dir / "back.bin"), slurp(kTunings + name)) << name;
    }

    OrderedJson doc = OrderedJson::parse(run_tool({"tuning", "decompile", kTunings + "reference.bin"}).out);
    doc["eq10"]["channels"][1]["bands"][3]["boost"] = 4.5;
    doc["raw"]["9"] = 1;
    spit(dir / "changed.json", doc.dump());
    RunResult diff = run_tool({"tuning", "diff", kTunings + "reference.bin", dir / "changed.json"});
    EXPECT_EQ(diff.status, 1);
    EXPECT_EQ(diff.out, "raw.9: 0 -> 1\neq10.channels[1].bands[3].boost: -0.5 -> 4.5\n");
    EXPECT_EQ(run_tool({"tuning", "diff", kTunings + "bypass.bin", kTunings + "bypass.json"}).status, 0);

    // A failed compile leaves nothing behind.
    spit(dir / "typo.json", R"({"header": {"chanels": 2}})");
    RunResult typo = run_tool({"tuning", "compile", dir / "typo.json", "-o", dir / "typo.bin"});
    EXPECT_EQ(typo.status, 2);
    EXPECT_EQ(typo.err, "eqdrc: " + dir / "typo.json" + ": header: unknown field 'chanels'\n");
    EXPECT_EQ(dir.entries().size(), 5u);
}
