// The tuning check: each rule on a record with that one problem, and the settings under
// which a value is no longer read.
#include <gtest/gtest.h>

#include <cmath>

#include "check.h"
#include "tuning.h"

using namespace eqdrc_tool;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";
constexpr int kFrame = 768;
constexpr Severity E = Severity::Error, W = Severity::Warning;

// The reference record with `changes` made.
Record reference_with(const std::vector<std::pair<std::string, float>> &changes)
{
    Record rec = read_tuning(kTunings + "reference.bin");
    for (const auto &[path, value] : changes)
        rec[Layout::embedded().word(path)] = value;
    return rec;
}

// The issues reported for `path`, each as "error: " or "warning: " and its message.
std::vector<std::string> issues_for(const Record &rec, const std::string &path, int frame = kFrame)
{
    std::vector<std::string> found;
    for (const Issue &i : check_tuning(rec, frame))
        if (i.path == path)
            found.push_back(std::string(i.severity == E ? "error: " : "warning: ") + i.message);
    return found;
}

// A value with one problem and the issue it raises; and, for some, a setting under which
// nothing reads the value any more, so the check must then say nothing about it.
struct Rule {
    std::string path;
    float value;
    Severity severity;
    std::string part;  // of the message
    std::string off = {};
    float offValue = 0.0f;
};

const Rule kRules[] = {
    {"header.tool_version", 2.0002f, E, "rejects"},
    {"header.bit_depth", 20.0f, E, "16, 24 or 32"},
    {"header.bit_depth", 24.9f, W, "truncated to 24"},
    {"header.bit_depth", 24.9f, W, "wraps the output"},
    {"header.channels", 3.0f, E, "at most 2"},
    {"header.channels", 0.0f, E, "no channels"},
    {"header.sample_rate", -1.0f, E, "positive"},
    {"auto_gain.r128_steps", 10.0f, E, "shorter than the frame (768 samples)"},  // 480 samples at 48 kHz
    {"auto_gain.r128_wins", 0.0f, E, "no samples"},
    {"auto_gain.attack_time", 0.0f, W, "infinite exponent"},
    {"auto_gain.release_time", -5.0f, E, "negative"},
    {"bass_enhancer.channels[1].drive", 0.0f, E, "zero drive", "header.channel_link", 1.0f},  // linked: channel 0 only
    {"bass_enhancer.channels[0].blend", 10.5f, E, "10.5"},
    {"bass_enhancer.channels[0].freq", 9000.0f, E, "3 x freq = 27000 Hz"},
    {"bass_enhancer.channels[1].floor_active", 2.0f, W, "read as 2"},
    {"bass_enhancer.channels[1].floor", 30000.0f, E, "half the sample rate (24000 Hz)"},
    {"exciter.channels[0].Cutoff", 24000.0f, E, "below half the sample rate"},
    {"exciter.channels[1].mix", 1.5f, W, "outside 0-1"},
    {"de_esser.channels[0].f0", 0.0f, E, "above 0"},
    {"de_esser.channels[1].threshold", -95.0f, W, "notch is always in"},
    {"eq10.channels[0].bands[4].filterTypes", 9.0f, E, "filter designer ends the process",
     "eq10.channels[0].bands[4].enable", 0.0f},
    {"eq10.channels[1].bands[0].fc", 24000.0f, E, "half the sample rate"},
    {"eq10.channels[1].bands[1].enable", 2.0f, W, "counts 2 times"},
    {"eq10.channels[1].bands[2].boost", 25.0f, W, "clamps it to 20 dB"},
    {"eq10.channels[1].bands[0].Q", 5.0f, W, "lowers it to 2"},  // a low shelf's slope stops at 2
    {"multiband_drc.channels[1].crossover_band", 5.0f, E, "more than 4 bands"},
    {"multiband_drc.channels[1].crossover_band", 1.0f, E, "fewer than 2 bands"},
    // The curve the compressor warns about, one violation at a time.
    {"multiband_drc.channels[0].low.noise_threshold", -40.0f, W, "wrong param for MultiDRC"},  // above expand_end
    {"multiband_drc.channels[0].high.max_peak", -25.0f, W, "below compress_start + max_gain (-20)"},
    {"multiband_drc.channels[1].high.noise_threshold", 4.0f, W, "spans no levels"},
    {"multiband_drc.channels[0].middle_1.attack_time", 0.0f, W, "follow at once"},
    {"multiband_drc.channels[0].middle_2.release_time", -10.0f, E, "negative",
     "multiband_drc.channels[0].crossover_band", 3.0f},  // three bands: no middle_2
    {"multiband_drc.channels[0].middle_1.freq_start", 2000.0f, W, "empty"},  // above its freq_end of 1000
    {"agc.channels[0].expand_end", -10.0f, W, "wrong param for agc"},  // above compress_start -20
    {"agc.channels[1].attack_time", 0.0f, W, "within one frame", "header.enable.agc", 0.0f},
    {"maximizer.channels[0].release", -1.0f, E, "negative"},
    {"maximizer.channels[1].max_threshold", 3.0f, W, "knee is empty"},
    {"maximizer.channels[1].ceiling", 1.0f, W, "above full scale", "header.enable.maximizer", 0.0f},
    {"header.pre_gain_dB[1]", NAN, E, "not a finite number", "header.channel_link", 1.0f},
    {"exciter.channels[1].mix", NAN, E, "not a finite number", "header.channel_link", 1.0f},
    {"eq10.channels[1].bands[3].boost", INFINITY, E, "not a finite number", "header.enable.eq10", 0.0f},
};

}  // namespace

TEST(TuningCheck, EachRuleOnARecordWithThatProblem)
{
    for (const Rule &r : kRules) {
        bool found = false;
        for (const Issue &i : check_tuning(reference_with({{r.path, r.value}}), kFrame))
            found |= i.path == r.path && i.severity == r.severity && i.message.find(r.part) != std::string::npos;
        EXPECT_TRUE(found) << r.path << " = " << r.value << ": no issue with \"" << r.part << "\"";
        if (r.off.empty())
            continue;
        EXPECT_EQ(issues_for(reference_with({{r.path, r.value}, {r.off, r.offValue}}), r.path),
                  std::vector<std::string>{}) << r.path << " with " << r.off;
    }
}

TEST(TuningCheck, EdgesOfTheRules)
{
    // Within the tolerance of the version test, at the frame the steps fit, and never tested.
    EXPECT_TRUE(issues_for(reference_with({{"header.tool_version", 2.00005f}}), "header.tool_version").empty());
    EXPECT_TRUE(issues_for(reference_with({{"auto_gain.r128_steps", 10.0f}}), "auto_gain.r128_steps", 480).empty());
    EXPECT_TRUE(check_tuning(reference_with({{"header.parameter_version.minor", NAN}}), kFrame).empty());
    // The AGC's curve is read (and warned about) whenever the state it shares with the limiter is built.
    Record agcOff = reference_with({{"agc.channels[0].expand_end", -10.0f}, {"header.enable.agc", 0.0f}});
    EXPECT_FALSE(issues_for(agcOff, "agc.channels[0].expand_end").empty());
    agcOff[Layout::embedded().word("header.enable.maximizer")] = 0.0f;
    EXPECT_TRUE(check_tuning(agcOff, kFrame).empty());
}

TEST(TuningCheck, ExactMessages)
{
    const std::tuple<const char *, float, const char *> cases[] = {
        {"header.enable.exciter", 2.0f, "warning: only 1 runs a stage; the stage is built but never runs"},
        {"header.enable.de_esser", 0.5f, "warning: truncated to 0: the stage is off"},
        {"header.enable.eq10", 1.7f, "warning: truncated to 1: the stage runs"},
        {"header.pre_gain_dB[1]", NAN, "error: not a finite number"},
        {"eq10.channels[0].bands[3].boost", INFINITY, "error: not a finite number"},
    };
    for (const auto &[path, value, message] : cases)
        EXPECT_EQ(issues_for(reference_with({{path, value}}), path), std::vector<std::string>{message}) << path;
}
