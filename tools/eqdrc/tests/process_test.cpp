// `eqdrc process` end to end: the same samples as the library called directly whatever the
// input format, the conversion to 16 bits, the loudness summary, and one clear message for
// each kind of bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <sndfile.h>
#include <sstream>
#include <tqaudio_eqdrc.h>

#include "loudness.h"
#include "tool_test_support.h"
#include "tuning.h"

using namespace eqdrc_tool;
using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";
constexpr int kFrame = 768;
const std::string kBypassAll = "auto_gain,bass_enhancer,exciter,de_esser,eq10,multiband_drc,agc,maximizer";
constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

std::vector<int16_t> read_audio(const std::string &path, SF_INFO &info)
{
    info = SF_INFO{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f)
        return {};
    std::vector<int16_t> pcm(static_cast<size_t>(info.frames * info.channels));
    sf_readf_short(f, pcm.data(), info.frames);
    sf_close(f);
    return pcm;
}

// Music-like test material: a few partials under a slow swell, with some noise.
std::vector<int16_t> programme(int frames, int channels, int rate)
{
    std::vector<int16_t> pcm(static_cast<size_t>(frames * channels));
    uint32_t noise = 12345;
    for (size_t i = 0; i < pcm.size(); ++i) {
        const double w = 2.0 * M_PI * static_cast<double>(i / channels) / rate;  // the phase of 1 Hz
        noise = noise * 1664525u + 1013904223u;
        double v = 0.25 * std::sin((60.0 + 20 * (i % channels)) * w) + 0.15 * std::sin(440.0 * w) +
                   0.08 * std::sin(3150.0 * w) + 0.02 * ((noise >> 8) / 8388608.0 - 1.0);
        pcm[i] = static_cast<int16_t>(std::lround(v * (0.3 + 0.7 * std::fabs(std::sin(0.4 * w))) * 32767.0));
    }
    return pcm;
}

// The chain over the samples frame by frame, the last frame padded with silence and trimmed.
std::vector<int16_t> run_library(const Record &rec, std::vector<int16_t> pcm, int channels)
{
    const size_t length = pcm.size(), frame = static_cast<size_t>(kFrame * channels);
    pcm.resize((length + frame - 1) / frame * frame);
    capture_stderr([&] {
        AudioPostState *st = AudioPost_Init(rec.data(), kFrame);
        ASSERT_NE(st, nullptr);
        for (size_t at = 0; at < pcm.size(); at += frame)
            AudioPost_Process(st, &pcm[at], &pcm[at], channels, kFrame);
        AudioPost_Destroy(st);
    });
    pcm.resize(length);
    return pcm;
}

// The summary's input (column 0) or output (1) value on the line of `label`.
std::string summary_value(const std::string &summary, const std::string &label, int column)
{
    size_t at = summary.find(label);
    if (at == std::string::npos)
        return "";
    std::istringstream words(summary.substr(at + label.size()));
    std::string value[2], unit;
    words >> value[0] >> unit >> value[1];
    return value[column];
}

}  // namespace

// Whatever the container and sample format, the music gives the library's output bits; a
// mono file, or one at another rate, runs channel 0's settings designed for the file's rate.
TEST(ProcessFile, EveryInputGivesTheLibrarysSamples)
{
    struct Case {
        const char *name;
        int format, channels, rate;
        bool floating;       // full scale is 1.0, not the top bits of an integer
        std::string tuning;  // "": the built-in default, the reference tuning
    };
    const Case cases[] = {
        {"pcm16.wav", kWav16, 2, 48000, false, "reference.bin"},
        {"pcm24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 48000, false, ""},
        {"pcm32.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 2, 48000, false, ""},
        {"float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, true, ""},
        {"double.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 2, 48000, true, ""},
        {"pcm16.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, false, ""},
        {"float.aiff", SF_FORMAT_AIFF | SF_FORMAT_FLOAT, 2, 48000, true, ""},
        {"mono.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1, 44100, false, "speech.json"},
    };
    ScratchDir dir;
    std::map<int, std::string> inputLoudness;  // by channel count
    for (const Case &c : cases) {
        const std::vector<int16_t> pcm = programme(kFrame * 40 + 1, c.channels, c.rate);  // the last frame: 1 sample
        std::vector<int> wide(pcm.begin(), pcm.end());
        std::vector<double> unit(pcm.begin(), pcm.end());
        for (size_t i = 0; i < pcm.size(); ++i)
            wide[i] *= 65536, unit[i] /= 32768.0;  // libsndfile keeps the top bits a format holds
        const std::string in = dir / c.name, out = in + ".out.wav", tuning = kTunings + c.tuning;
        ASSERT_TRUE(c.floating ? write_sound(in, unit, c.channels, c.rate, c.format)
                               : write_sound(in, wide, c.channels, c.rate, c.format)) << c.name;

        RunResult r = run_tool(c.tuning.empty() ? std::vector<std::string>{"process", in, out}
                                                : std::vector<std::string>{"process", in, out, "--tuning", tuning});
        ASSERT_EQ(r.status, 0) << c.name << ": " << r.err;
        Record rec = read_tuning(c.tuning.empty() ? kTunings + "reference.bin" : tuning);
        rec[Layout::embedded().word("header.sample_rate")] = static_cast<float>(c.rate);
        rec[Layout::embedded().word("header.channels")] = static_cast<float>(c.channels);
        SF_INFO info;
        EXPECT_TRUE(read_audio(out, info) == run_library(rec, pcm, c.channels)) << c.name;
        EXPECT_EQ(info.format, kWav16);
        // Notes only for the adapted tuning: the library's banner is kept off the terminal.
        const std::string note = "eqdrc: " + tuning + ": note: the tuning is for ";
        EXPECT_EQ(r.err, c.channels == 2 ? "" : note + "48000 Hz; its filters are designed for the file's 44100 Hz\n" +
                                                   note + "2 channel(s); the file has 1 (channel 0's settings apply)\n");

        // Each input is measured at its real level, not as near-silence.
        std::string &level = inputLoudness[c.channels];
        if (level.empty())
            level = summary_value(r.out, "integrated loudness", 0);
        EXPECT_EQ(summary_value(r.out, "integrated loudness", 0), level) << c.name;
        for (const char *label : {"integrated loudness", "loudness range", "true peak"})
            EXPECT_NE(summary_value(r.out, label, 1), "") << label << " missing from\n" << r.out;
        EXPECT_NE(r.out.find("x real time"), std::string::npos) << r.out;
    }
    // A FLAC output holds the same samples.
    ASSERT_EQ(run_tool({"process", dir / "pcm16.wav", dir / "out.flac"}).status, 0);
    SF_INFO info, flacInfo;
    EXPECT_TRUE(read_audio(dir / "out.flac", flacInfo) == read_audio(dir / "pcm16.wav.out.wav", info));
    EXPECT_EQ(flacInfo.format, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
}

// With every stage bypassed the output is the input as the chain got it: wider samples
// rounded to the nearest 16-bit step, a tie to the even one, and floating point beyond
// full scale clipped.
TEST(ProcessFile, BypassedStagesLeaveTheSamplesAsRead)
{
    ScratchDir dir;
    // Music in 24 bits, then values of a 16-bit step and a low byte below it, around even and
    // odd steps (lrint rounds a tie to the even neighbour: 100.5 to 100, 101.5 to 102).
    std::vector<int16_t> expected = programme(48000, 2, 48000);
    std::vector<int> wide(expected.begin(), expected.end());
    for (int &s : wide)
        s *= 65536;
    for (int step : {100, 101, -100, -101, 32767, -32768})
        for (int low : {0x00, 0x7f, 0x80, 0x81, 0xff}) {
            wide.push_back((step * 256 + low) * 256);
            expected.push_back(static_cast<int16_t>(std::clamp<long>(std::lrint(step + low / 256.0), -32768, 32767)));
        }
    ASSERT_TRUE(write_sound(dir / "wide.wav", wide, 2, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_24));
    RunResult r = run_tool({"process", dir / "wide.wav", dir / "wide-out.wav", "--bypass", kBypassAll});
    ASSERT_EQ(r.status, 0) << r.err;
    SF_INFO info;
    EXPECT_TRUE(read_audio(dir / "wide-out.wav", info) == expected);
    for (const char *label : {"integrated loudness", "loudness range", "true peak"})
        EXPECT_EQ(summary_value(r.out, label, 0), summary_value(r.out, label, 1)) << r.out;

    const std::vector<double> hot{1.5, -1.5, 0.99999, -1.0, 0.5, -0.25};
    ASSERT_TRUE(write_sound(dir / "hot.wav", hot, 2, 48000, SF_FORMAT_WAV | SF_FORMAT_FLOAT));
    ASSERT_EQ(run_tool({"process", dir / "hot.wav", dir / "hot-out.wav", "--bypass", kBypassAll}).status, 0);
    EXPECT_EQ(read_audio(dir / "hot-out.wav", info), (std::vector<int16_t>{32767, -32768, 32767, -32768, 16384, -8192}));
}

// The summary's numbers come from libebur128, not from the chain's own meter of the
// same function names: a -20 dBFS sine on one channel measures -23 LUFS.
TEST(LoudnessSummary, SineOfKnownLevel)
{
    const int rate = 48000;
    std::vector<int16_t> pcm(static_cast<size_t>(rate * 5));
    for (size_t i = 0; i < pcm.size(); ++i)
        pcm[i] = static_cast<int16_t>(std::lround(3276.7 * std::sin(2.0 * M_PI * 997.0 * i / rate)));
    LoudnessMeter meter(1, rate);
    meter.add(pcm.data(), pcm.size());
    Loudness l = meter.result();
    EXPECT_NEAR(l.integratedLufs, -23.0, 0.2);
    EXPECT_NEAR(l.truePeakDbtp, -20.0, 0.2);
    EXPECT_NEAR(l.rangeLu, 0.0, 0.1);
}

TEST(ProcessFile, BadInputsGiveOneLineAndNoOutput)
{
    ScratchDir dir;
    spit(dir / "notes.txt", "these are not samples\n");
    ASSERT_TRUE(write_sound(dir / "three.wav", std::vector<int16_t>(14400), 3, 48000, kWav16));
    ASSERT_TRUE(write_sound(dir / "eight.wav", std::vector<int16_t>(9600), 2, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_U8));
    ASSERT_TRUE(write_sound(dir / "fine.wav", programme(4800, 2, 48000), 2, 48000, kWav16));
    spit(dir / "short-step.json", R"({"header": {"sample_rate": 48000, "bit_depth": 16, "channels": 2, "tool_version": 2,
        "enable": {"auto_gain": 1}}, "auto_gain": {"attack_time": 100, "release_time": 100, "r128_wins": 400, "r128_steps": 10}})");
    const size_t before = dir.entries().size();

    struct Case {
        std::vector<std::string> args;
        std::string err;
    };
    const std::string out = dir / "out.wav", fine = dir / "fine.wav";
    const std::vector<Case> cases = {
        {{dir / "missing.wav", out}, dir / "missing.wav" + ": cannot open: No such file or directory"},
        {{dir / "notes.txt", out}, dir / "notes.txt" + ": not an audio file libsndfile can read (Format not recognised.)"},
        {{dir / "three.wav", out}, dir / "three.wav" + ": 3 channels; eqdrc processes mono and stereo files"},
        {{dir / "eight.wav", out}, dir / "eight.wav" + ": 8-bit samples; eqdrc processes audio of 16 bits or more"},
        {{fine, dir / "out.mp3"},
         dir / "out.mp3" + ": cannot tell the output format from the name; end it in .wav, .flac, .aiff, .caf, .w64 or .au"},
        {{fine, dir / "no-such-folder/out.wav"},
         dir / "no-such-folder/out.wav" + ": cannot create: No such file or directory"},
        {{fine, out, "--bypass", "limiter"}, "--bypass: no stage 'limiter'; the stages are auto_gain, bass_enhancer, "
                                              "exciter, de_esser, eq10, multiband_drc, agc, maximizer"},
        // The problems in a tuning are listed first, one line each; the last line says why it stopped.
        {{fine, out, "--tuning", dir / "short-step.json"},
         dir / "short-step.json" + ": error: auto_gain.r128_steps = 10: a step of 480 samples is shorter than the frame "
                                   "(768 samples): the auto gain ends the process\neqdrc: " +
             dir / "short-step.json" + ": 1 error(s) above; the library would reject it or stop"},
    };
    for (const Case &c : cases) {
        std::vector<std::string> args{"process"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        RunResult r = run_tool(args);
        EXPECT_EQ(r.status, 2) << c.err;
        EXPECT_EQ(r.err, "eqdrc: " + c.err + "\n");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(dir.entries().size(), before) << "output left behind for " << c.err;
    }
}
