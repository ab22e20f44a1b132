// `eqdrc tuning check`: each group of rules on a record with that problem, and the
// library confirming the consequences the errors announce.
#include <gtest/gtest.h>

#include <cmath>
#include <tqaudio_eqdrc.h>

#include "check.h"
#include "tool_test_support.h"
#include "tuning.h"

using namespace eqdrc_tool;
using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";
constexpr int kFrame = 768;

class TuningCheck : public ::testing::Test {
protected:
    TuningCheck() : rec_(read_tuning(kTunings + "reference.bin")) {}

    float &at(const std::string &path) { return rec_[Layout::embedded().word(path)]; }

    // The issues reported for `path`, as "error"/"warning" plus the message.
    std::vector<std::string> issues_for(const std::string &path, int frame = kFrame)
    {
        std::vector<std::string> found;
        for (const Issue &i : check_tuning(rec_, frame))
            if (i.path == path)
                found.push_back(std::string(i.severity == Severity::Error ? "error: " : "warning: ") + i.message);
        return found;
    }
    bool has(const std::string &path, Severity s, const std::string &part, int frame = kFrame)
    {
        for (const Issue &i : check_tuning(rec_, frame))
            if (i.path == path && i.severity == s && i.message.find(part) != std::string::npos)
                return true;
        return false;
    }
    bool clean(int frame = kFrame) { return check_tuning(rec_, frame).empty(); }

    Record rec_;
};

}  // namespace

TEST_F(TuningCheck, ShippedTuningsAreClean)
{
    for (const char *name : {"reference.bin", "bypass.bin", "bypass.json", "speech.json", "music.json",
                             "loud-small-speaker.json"}) {
        std::vector<Issue> issues = check_tuning(read_tuning(kTunings + name), kFrame);
        EXPECT_TRUE(issues.empty()) << name << ": " << (issues.empty() ? "" : format_issue(issues[0]));
    }
}

TEST_F(TuningCheck, HeaderRulesMatchWhatTheLibraryRejects)
{
    at("header.tool_version") = 2.0002f;
    EXPECT_TRUE(has("header.tool_version", Severity::Error, "rejects"));
    capture_stderr([&] { EXPECT_EQ(with_required_leak([&] { return AudioPost_Init(rec_.data(), kFrame); }), nullptr); });
    at("header.tool_version") = 2.00005f;
    EXPECT_TRUE(issues_for("header.tool_version").empty());

    at("header.bit_depth") = 20.0f;
    EXPECT_TRUE(has("header.bit_depth", Severity::Error, "16, 24 or 32"));
    at("header.bit_depth") = 24.9f;
    EXPECT_TRUE(has("header.bit_depth", Severity::Warning, "truncated to 24"));
    EXPECT_TRUE(has("header.bit_depth", Severity::Warning, "wraps the output"));
    at("header.bit_depth") = 16.0f;

    at("header.channels") = 3.0f;
    EXPECT_TRUE(has("header.channels", Severity::Error, "at most 2"));
    at("header.channels") = 0.0f;
    EXPECT_TRUE(has("header.channels", Severity::Error, "no channels"));
    at("header.channels") = 2.0f;
    at("header.sample_rate") = -1.0f;
    EXPECT_TRUE(has("header.sample_rate", Severity::Error, "positive"));
}

TEST_F(TuningCheck, EnableWordsOtherThanZeroAndOne)
{
    at("header.enable.exciter") = 2.0f;
    at("header.enable.de_esser") = 0.5f;
    at("header.enable.eq10") = 1.7f;
    EXPECT_EQ(issues_for("header.enable.exciter"),
              std::vector<std::string>{"warning: only 1 runs a stage; the stage is built but never runs"});
    EXPECT_EQ(issues_for("header.enable.de_esser"),
              std::vector<std::string>{"warning: truncated to 0: the stage is off"});
    EXPECT_EQ(issues_for("header.enable.eq10"), std::vector<std::string>{"warning: truncated to 1: the stage runs"});
}

TEST_F(TuningCheck, AutoGainStepWindowAndTimes)
{
    at("auto_gain.r128_steps") = 10.0f;  // 480 samples at 48 kHz
    EXPECT_TRUE(has("auto_gain.r128_steps", Severity::Error, "shorter than the frame (768 samples)"));
    EXPECT_TRUE(issues_for("auto_gain.r128_steps", 480).empty());
    // The library ends the process on that frame, as announced.
    EXPECT_EXIT(
        {
            AudioPostState *st = AudioPost_Init(rec_.data(), kFrame);
            std::vector<int16_t> pcm(2 * kFrame);
            AudioPost_Process(st, pcm.data(), pcm.data(), 2, kFrame);
        },
        ::testing::ExitedWithCode(255), "frameLen is greater than steps");
    at("auto_gain.r128_steps") = 100.0f;

    at("auto_gain.r128_wins") = 0.0f;
    EXPECT_TRUE(has("auto_gain.r128_wins", Severity::Error, "no samples"));
    at("auto_gain.attack_time") = 0.0f;
    at("auto_gain.release_time") = -5.0f;
    EXPECT_TRUE(has("auto_gain.attack_time", Severity::Warning, "infinite exponent"));
    EXPECT_TRUE(has("auto_gain.release_time", Severity::Error, "negative"));
}

TEST_F(TuningCheck, BassEnhancerDriveBlendAndFrequencies)
{
    at("bass_enhancer.channels[1].drive") = 0.0f;
    at("bass_enhancer.channels[0].blend") = 10.5f;
    at("bass_enhancer.channels[0].freq") = 9000.0f;  // harmonics up to 27 kHz
    at("bass_enhancer.channels[1].floor_active") = 2.0f;
    at("bass_enhancer.channels[1].floor") = 30000.0f;
    EXPECT_TRUE(has("bass_enhancer.channels[1].drive", Severity::Error, "zero drive"));
    EXPECT_TRUE(has("bass_enhancer.channels[0].blend", Severity::Error, "10.5"));
    EXPECT_TRUE(has("bass_enhancer.channels[0].freq", Severity::Error, "3 x freq = 27000 Hz"));
    EXPECT_TRUE(has("bass_enhancer.channels[1].floor_active", Severity::Warning, "read as 2"));
    EXPECT_TRUE(has("bass_enhancer.channels[1].floor", Severity::Error, "half the sample rate (24000 Hz)"));
    // Linked channels read channel 0 only: channel 1's problems no longer count.
    at("header.channel_link") = 1.0f;
    EXPECT_TRUE(issues_for("bass_enhancer.channels[1].drive").empty());
}

TEST_F(TuningCheck, ExciterAndDeEsser)
{
    at("exciter.channels[0].Cutoff") = 24000.0f;
    at("exciter.channels[1].mix") = 1.5f;
    at("de_esser.channels[0].f0") = 0.0f;
    at("de_esser.channels[1].threshold") = -95.0f;
    EXPECT_TRUE(has("exciter.channels[0].Cutoff", Severity::Error, "below half the sample rate"));
    EXPECT_TRUE(has("exciter.channels[1].mix", Severity::Warning, "outside 0-1"));
    EXPECT_TRUE(has("de_esser.channels[0].f0", Severity::Error, "above 0"));
    EXPECT_TRUE(has("de_esser.channels[1].threshold", Severity::Warning, "notch is always in"));
}

TEST_F(TuningCheck, EqualiserTypesFrequenciesAndClamps)
{
    at("eq10.channels[0].bands[4].filterTypes") = 9.0f;
    EXPECT_TRUE(has("eq10.channels[0].bands[4].filterTypes", Severity::Error, "filter designer ends the process"));
    EXPECT_EXIT(AudioPost_Init(rec_.data(), kFrame), ::testing::ExitedWithCode(255), "choose a filter type");
    at("eq10.channels[0].bands[4].enable") = 0.0f;  // a switched-off band's type does not matter
    EXPECT_TRUE(issues_for("eq10.channels[0].bands[4].filterTypes").empty());

    at("eq10.channels[1].bands[0].fc") = 24000.0f;
    at("eq10.channels[1].bands[1].enable") = 2.0f;
    at("eq10.channels[1].bands[2].boost") = 25.0f;
    at("eq10.channels[1].bands[0].Q") = 5.0f;  // a low shelf's slope stops at 2
    EXPECT_TRUE(has("eq10.channels[1].bands[0].fc", Severity::Error, "half the sample rate"));
    EXPECT_TRUE(has("eq10.channels[1].bands[1].enable", Severity::Warning, "counts 2 times"));
    EXPECT_TRUE(has("eq10.channels[1].bands[2].boost", Severity::Warning, "clamps it to 20 dB"));
    EXPECT_TRUE(has("eq10.channels[1].bands[0].Q", Severity::Warning, "lowers it to 2"));
}

TEST_F(TuningCheck, CompressorBandCountCurveAndTimes)
{
    at("multiband_drc.channels[1].crossover_band") = 5.0f;
    EXPECT_TRUE(has("multiband_drc.channels[1].crossover_band", Severity::Error, "more than 4 bands"));
    at("multiband_drc.channels[1].crossover_band") = 1.0f;
    EXPECT_TRUE(has("multiband_drc.channels[1].crossover_band", Severity::Error, "fewer than 2 bands"));
    at("multiband_drc.channels[1].crossover_band") = 4.0f;

    // The consistency rule the compressor warns about, one violation at a time.
    at("multiband_drc.channels[0].low.noise_threshold") = -40.0f;  // above expand_end -50
    at("multiband_drc.channels[0].high.max_peak") = -25.0f;        // below -20 + 0
    EXPECT_TRUE(has("multiband_drc.channels[0].low.noise_threshold", Severity::Warning, "wrong param for MultiDRC"));
    EXPECT_TRUE(has("multiband_drc.channels[0].high.max_peak", Severity::Warning, "below compress_start + max_gain (-20)"));
    std::string log = capture_stderr([&] { AudioPost_Destroy(AudioPost_Init(rec_.data(), kFrame)); });
    EXPECT_NE(log.find("wrong param for MultiDRC"), std::string::npos);

    at("multiband_drc.channels[0].middle_1.attack_time") = 0.0f;
    at("multiband_drc.channels[0].middle_2.release_time") = -10.0f;
    at("multiband_drc.channels[0].middle_1.freq_start") = 2000.0f;  // above its freq_end of 1000
    EXPECT_TRUE(has("multiband_drc.channels[0].middle_1.attack_time", Severity::Warning, "follow at once"));
    EXPECT_TRUE(has("multiband_drc.channels[0].middle_2.release_time", Severity::Error, "negative"));
    EXPECT_TRUE(has("multiband_drc.channels[0].middle_1.freq_start", Severity::Warning, "empty"));
    at("multiband_drc.channels[1].high.noise_threshold") = 4.0f;
    EXPECT_TRUE(has("multiband_drc.channels[1].high.noise_threshold", Severity::Warning, "spans no levels"));
    // With three bands the second middle group is not read.
    at("multiband_drc.channels[0].crossover_band") = 3.0f;
    EXPECT_TRUE(issues_for("multiband_drc.channels[0].middle_2.release_time").empty());
}

TEST_F(TuningCheck, AgcAndMaximizer)
{
    at("agc.channels[0].expand_end") = -10.0f;  // above compress_start -20
    at("agc.channels[1].attack_time") = 0.0f;
    at("maximizer.channels[0].release") = -1.0f;
    at("maximizer.channels[1].max_threshold") = 3.0f;
    at("maximizer.channels[1].ceiling") = 1.0f;
    EXPECT_TRUE(has("agc.channels[0].expand_end", Severity::Warning, "wrong param for agc"));
    EXPECT_TRUE(has("agc.channels[1].attack_time", Severity::Warning, "within one frame"));
    EXPECT_TRUE(has("maximizer.channels[0].release", Severity::Error, "negative"));
    EXPECT_TRUE(has("maximizer.channels[1].max_threshold", Severity::Warning, "knee is empty"));
    EXPECT_TRUE(has("maximizer.channels[1].ceiling", Severity::Warning, "above full scale"));
    // The AGC's curve is read (and warned about) whenever the shared state is built.
    at("header.enable.agc") = 0.0f;
    EXPECT_TRUE(has("agc.channels[0].expand_end", Severity::Warning, "wrong param for agc"));
    EXPECT_TRUE(issues_for("agc.channels[1].attack_time").empty());
    at("header.enable.maximizer") = 0.0f;
    EXPECT_TRUE(clean());
}

TEST_F(TuningCheck, NonFiniteValuesOnlyWhereTheyAreRead)
{
    at("header.pre_gain_dB[1]") = NAN;
    at("eq10.channels[0].bands[3].boost") = INFINITY;
    EXPECT_EQ(issues_for("header.pre_gain_dB[1]"), std::vector<std::string>{"error: not a finite number"});
    EXPECT_EQ(issues_for("eq10.channels[0].bands[3].boost"), std::vector<std::string>{"error: not a finite number"});
    at("header.channel_link") = 1.0f;                    // word 25 is no longer read
    at("header.enable.eq10") = 0.0f;                     // nor is the equaliser
    at("header.parameter_version.minor") = NAN;          // printed, never tested
    EXPECT_TRUE(clean());
}

TEST(TuningCheckCommand, PrintsFieldsAndFailsOnErrors)
{
    ScratchDir dir;
    RunResult ok = run_tool({"tuning", "check", EQDRC_SOURCE_DIR "/tunings/speech.json"});
    EXPECT_EQ(ok.status, 0);
    EXPECT_NE(ok.out.find("speech.json: 0 error(s), 0 warning(s)"), std::string::npos) << ok.out;

    spit(dir / "bad.json", R"({"header": {"sample_rate": 48000, "bit_depth": 16, "channels": 2, "tool_version": 2,
                               "enable": {"auto_gain": 1}},
                               "auto_gain": {"target_i_dB": -16, "attack_time": 1000, "release_time": 1000,
                                             "r128_wins": 400, "r128_steps": 20}})");
    RunResult bad = run_tool({"tuning", "check", dir / "bad.json", "--frame", "1024"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.out.find(dir / "bad.json" + ": error: auto_gain.r128_steps = 20: a step of 960 samples is shorter "
                           "than the frame (1024 samples): the auto gain ends the process"),
              std::string::npos)
        << bad.out;
    EXPECT_EQ(run_tool({"tuning", "check", dir / "bad.json", "--frame", "960"}).status, 0);
}

TEST(TuningCommands, CompileDecompileAndDiff)
{
    ScratchDir dir;
    const std::string ref = EQDRC_SOURCE_DIR "/tunings/reference.bin";
    RunResult json = run_tool({"tuning", "decompile", ref});
    ASSERT_EQ(json.status, 0) << json.err;
    spit(dir / "ref.json", json.out);
    ASSERT_EQ(run_tool({"tuning", "compile", dir / "ref.json", "-o", dir / "ref.bin"}).status, 0);
    EXPECT_EQ(slurp(dir / "ref.bin"), slurp(ref));

    OrderedJson doc = OrderedJson::parse(json.out);
    doc["eq10"]["channels"][1]["bands"][3]["boost"] = 4.5;
    doc["raw"]["9"] = 1;
    spit(dir / "changed.json", doc.dump());
    RunResult diff = run_tool({"tuning", "diff", ref, dir / "changed.json"});
    EXPECT_EQ(diff.status, 1);
    EXPECT_EQ(diff.out, "raw.9: 0 -> 1\neq10.channels[1].bands[3].boost: -0.5 -> 4.5\n");
    EXPECT_EQ(run_tool({"tuning", "diff", ref, dir / "ref.json"}).status, 0);

    // A failed compile leaves nothing behind.
    spit(dir / "typo.json", R"({"header": {"chanels": 2}})");
    RunResult typo = run_tool({"tuning", "compile", dir / "typo.json", "-o", dir / "typo.bin"});
    EXPECT_EQ(typo.status, 2);
    EXPECT_EQ(typo.err, "eqdrc: " + dir / "typo.json" + ": header: unknown field 'chanels'\n");
    EXPECT_EQ(dir.entries().size(), 4u);
}
