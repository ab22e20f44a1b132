// `eqdrc process` end to end: the same samples as the library called directly, the
// loudness summary, and one clear message for each kind of bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sndfile.h>
#include <tqaudio_eqdrc.h>

#include "loudness.h"
#include "tool_test_support.h"
#include "tuning.h"

using namespace eqdrc_tool;
using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";
constexpr int kFrame = 768;

void write_audio(const std::string &path, const std::vector<int16_t> &pcm, int channels, int rate,
                 int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16)
{
    ASSERT_TRUE(write_sound(path, pcm, channels, rate, format)) << path << ": " << sf_strerror(nullptr);
}

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
    for (int i = 0; i < frames; ++i) {
        double t = static_cast<double>(i) / rate;
        double swell = 0.3 + 0.7 * std::fabs(std::sin(2.0 * M_PI * 0.4 * t));
        for (int c = 0; c < channels; ++c) {
            noise = noise * 1664525u + 1013904223u;
            double v = 0.25 * std::sin(2.0 * M_PI * (60.0 + 20 * c) * t) + 0.15 * std::sin(2.0 * M_PI * 440.0 * t) +
                       0.08 * std::sin(2.0 * M_PI * 3150.0 * t) + 0.02 * ((noise >> 8) / 8388608.0 - 1.0);
            pcm[static_cast<size_t>(i * channels + c)] = static_cast<int16_t>(std::lround(v * swell * 32767.0));
        }
    }
    return pcm;
}

// The chain over the samples frame by frame, the last frame padded with silence and trimmed.
std::vector<int16_t> run_library(const Record &rec, std::vector<int16_t> pcm, int channels)
{
    std::vector<int16_t> out;
    capture_stderr([&] {
        AudioPostState *st = AudioPost_Init(rec.data(), kFrame);
        ASSERT_NE(st, nullptr);
        std::vector<int16_t> frame(static_cast<size_t>(kFrame * channels));
        for (size_t at = 0; at < pcm.size(); at += frame.size()) {
            size_t n = std::min(frame.size(), pcm.size() - at);
            std::fill(frame.begin(), frame.end(), int16_t{0});
            std::copy_n(pcm.begin() + static_cast<long>(at), n, frame.begin());
            AudioPost_Process(st, frame.data(), frame.data(), channels, kFrame);
            out.insert(out.end(), frame.begin(), frame.begin() + static_cast<long>(n));
        }
        AudioPost_Destroy(st);
    });
    return out;
}

// The column of the summary line `label` (0: input, 1: output).
std::string summary_value(const std::string &summary, const std::string &label, int column)
{
    size_t at = summary.find(label);
    if (at == std::string::npos)
        return "";
    std::string line = summary.substr(at + label.size(), summary.find('\n', at) - at - label.size());
    std::istringstream words(line);
    std::string value, unit;
    for (int i = 0; i <= column; ++i)
        words >> value >> unit;
    return value;
}

}  // namespace

TEST(ProcessFile, StereoMatchesTheLibraryCalledDirectly)
{
    ScratchDir dir;
    const int frames = kFrame * 90 + 333;  // ends with a partial frame
    std::vector<int16_t> pcm = programme(frames, 2, 48000);
    write_audio(dir / "in.wav", pcm, 2, 48000);

    RunResult r = run_tool({"process", dir / "in.wav", dir / "out.wav", "--tuning", kTunings + "reference.bin"});
    ASSERT_EQ(r.status, 0) << r.err;
    SF_INFO info;
    std::vector<int16_t> out = read_audio(dir / "out.wav", info);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(info.samplerate, 48000);
    ASSERT_EQ(out.size(), pcm.size());
    EXPECT_TRUE(out == run_library(read_tuning(kTunings + "reference.bin"), pcm, 2));

    for (const char *label : {"integrated loudness", "loudness range", "true peak"})
        EXPECT_NE(summary_value(r.out, label, 1), "") << label << " missing from\n" << r.out;
    EXPECT_NE(r.out.find("x real time"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");  // the library's banner is kept off the terminal

    // The built-in default is the reference tuning; FLAC output holds the same samples.
    ASSERT_EQ(run_tool({"process", dir / "in.wav", dir / "default.flac"}).status, 0);
    std::vector<int16_t> flac = read_audio(dir / "default.flac", info);
    EXPECT_EQ(info.format, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    EXPECT_TRUE(flac == out);
}

TEST(ProcessFile, MonoFileAtAnotherRateUsesChannelZerosSettings)
{
    ScratchDir dir;
    std::vector<int16_t> pcm = programme(44100 * 2, 1, 44100);
    write_audio(dir / "in.flac", pcm, 1, 44100, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);

    RunResult r = run_tool({"process", dir / "in.flac", dir / "out.wav", "--tuning", kTunings + "speech.json"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("note: the tuning is for 48000 Hz; its filters are designed for the file's 44100 Hz"),
              std::string::npos) << r.err;
    EXPECT_NE(r.err.find("the file has 1 (channel 0's settings apply)"), std::string::npos) << r.err;

    Record rec = read_tuning(kTunings + "speech.json");
    rec[Layout::embedded().word("header.sample_rate")] = 44100.0f;
    rec[Layout::embedded().word("header.channels")] = 1.0f;
    SF_INFO info;
    EXPECT_TRUE(read_audio(dir / "out.wav", info) == run_library(rec, pcm, 1));
}

TEST(ProcessFile, BypassedStagesLeaveTheSignalAlone)
{
    ScratchDir dir;
    std::vector<int16_t> pcm = programme(48000, 2, 48000);
    write_audio(dir / "in.wav", pcm, 2, 48000);
    RunResult r = run_tool({"process", dir / "in.wav", dir / "out.wav", "--bypass",
                            "auto_gain,bass_enhancer,exciter,de_esser,eq10,multiband_drc,agc,maximizer"});
    ASSERT_EQ(r.status, 0) << r.err;
    SF_INFO info;
    EXPECT_TRUE(read_audio(dir / "out.wav", info) == pcm);
    for (const char *label : {"integrated loudness", "loudness range", "true peak"})
        EXPECT_EQ(summary_value(r.out, label, 0), summary_value(r.out, label, 1)) << r.out;

    RunResult typo = run_tool({"process", dir / "in.wav", dir / "x.wav", "--bypass", "limiter"});
    EXPECT_EQ(typo.status, 2);
    EXPECT_EQ(typo.err, "eqdrc: --bypass: no stage 'limiter'; the stages are auto_gain, bass_enhancer, exciter, "
                        "de_esser, eq10, multiband_drc, agc, maximizer\n");
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
    write_audio(dir / "three.wav", std::vector<int16_t>(3 * 4800), 3, 48000);
    write_audio(dir / "eight.wav", std::vector<int16_t>(2 * 4800), 2, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    write_audio(dir / "fine.wav", programme(4800, 2, 48000), 2, 48000);
    spit(dir / "short-step.json", R"({"header": {"sample_rate": 48000, "bit_depth": 16, "channels": 2, "tool_version": 2,
        "enable": {"auto_gain": 1}}, "auto_gain": {"attack_time": 100, "release_time": 100, "r128_wins": 400, "r128_steps": 10}})");
    const size_t before = dir.entries().size();

    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    const std::string out = dir / "out.wav";
    const std::vector<Case> cases = {
        {{dir / "missing.wav", out}, dir / "missing.wav" + ": cannot open: No such file or directory"},
        {{dir / "notes.txt", out}, dir / "notes.txt" + ": not an audio file libsndfile can read (Format not recognised.)"},
        {{dir / "three.wav", out}, dir / "three.wav" + ": 3 channels; eqdrc processes mono and stereo files"},
        {{dir / "eight.wav", out}, dir / "eight.wav" + ": 8-bit samples; eqdrc processes audio of 16 bits or more"},
        {{dir / "fine.wav", dir / "out.mp3"},
         dir / "out.mp3" + ": cannot tell the output format from the name; end it in .wav, .flac, .aiff, .caf, .w64 or .au"},
        {{dir / "fine.wav", dir / "no-such-folder/out.wav"},
         dir / "no-such-folder/out.wav" + ": cannot create: No such file or directory"},
        {{dir / "fine.wav", out, "--tuning", dir / "short-step.json"},
         dir / "short-step.json" + ": 1 error(s) above; the library would reject it or stop"},
    };
    for (const Case &c : cases) {
        std::vector<std::string> args{"process"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        RunResult r = run_tool(args);
        EXPECT_EQ(r.status, 2) << c.message;
        // Problems in a tuning are listed first, one line each; the last line says why it stopped.
        std::string last = r.err.substr(r.err.rfind('\n', r.err.size() - 2) == std::string::npos
                                            ? 0 : r.err.rfind('\n', r.err.size() - 2) + 1);
        EXPECT_EQ(last, "eqdrc: " + c.message + "\n");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(dir.entries().size(), before) << "output left behind for " << c.message;
    }
}

namespace {

// `pcm` written in another sample format: integers scaled up to their width, floating
// point scaled to full scale 1.0.
void write_as(const std::string &path, const std::vector<int16_t> &pcm, int format)
{
    int subtype = format & SF_FORMAT_SUBMASK;
    bool ok;
    if (subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE) {
        std::vector<double> v(pcm.begin(), pcm.end());
        for (double &x : v)
            x /= 32768.0;
        ok = write_sound(path, v, 2, 48000, format);
    } else {
        std::vector<int> v(pcm.begin(), pcm.end());
        for (int &x : v)
            x *= 65536;  // libsndfile keeps the top bits the format holds
        ok = write_sound(path, v, 2, 48000, format);
    }
    ASSERT_TRUE(ok) << path << ": " << sf_strerror(nullptr);
}

const std::string kBypassAll = "auto_gain,bass_enhancer,exciter,de_esser,eq10,multiband_drc,agc,maximizer";

}  // namespace

// Whatever the container and sample format, the same music gives the same output bits.
TEST(InputFormats, SameMusicInEveryFormatGivesTheSameOutput)
{
    ScratchDir dir;
    std::vector<int16_t> pcm = programme(kFrame * 40 + 123, 2, 48000);
    const std::pair<const char *, int> formats[] = {
        {"pcm16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},   {"pcm24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
        {"pcm32.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32},   {"float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
        {"double.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE},  {"pcm16.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"pcm24.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24}, {"float.aiff", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
    };
    const std::vector<int16_t> expected = run_library(read_tuning(kTunings + "reference.bin"), pcm, 2);
    std::string inputLoudness;
    for (const auto &[name, format] : formats) {
        write_as(dir / name, pcm, format);
        RunResult r = run_tool({"process", dir / name, dir / (std::string(name) + ".out.wav")});
        ASSERT_EQ(r.status, 0) << name << ": " << r.err;
        if (inputLoudness.empty())
            inputLoudness = summary_value(r.out, "integrated loudness", 0);
        SF_INFO info;
        EXPECT_TRUE(read_audio(dir / (std::string(name) + ".out.wav"), info) == expected) << name;
        // The input is measured at its real level, not as near-silence.
        EXPECT_EQ(summary_value(r.out, "integrated loudness", 0), inputLoudness) << name;
    }
}

// Wider samples reach 16 bits by rounding to the nearest step, a tie to the even one;
// floating point beyond full scale is clipped.
TEST(InputFormats, WiderSamplesRoundToNearestTiesToEven)
{
    ScratchDir dir;
    // 24-bit values: a 16-bit part and a low byte below, around both even and odd steps.
    const int steps[] = {100, 101, -100, -101, 32767, -32768};
    const int lows[] = {0x00, 0x7f, 0x80, 0x81, 0xff};
    std::vector<int> wide;
    std::vector<int16_t> expected;
    for (int s : steps)
        for (int lo : lows) {
            int v24 = s * 256 + lo;
            wide.push_back(v24 * 256);
            long r = std::lrint(v24 / 256.0);  // the default rounding: to nearest, ties to even
            expected.push_back(static_cast<int16_t>(std::clamp<long>(r, -32768, 32767)));
        }
    if (wide.size() % 2)
        wide.push_back(0), expected.push_back(0);
    ASSERT_TRUE(write_sound(dir / "wide.wav", wide, 2, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_24));
    EXPECT_EQ(expected[2], 100) << "100 + 0x80/256 is a tie, to the even 100";
    EXPECT_EQ(expected[7], 102) << "101 + 0x80/256 is a tie, to the even 102";

    const std::vector<float> hot{1.5f, -1.5f, 0.99999f, -1.0f, 0.5f, -0.25f};
    ASSERT_TRUE(write_sound(dir / "hot.wav", hot, 2, 48000, SF_FORMAT_WAV | SF_FORMAT_FLOAT));

    SF_INFO outInfo;
    ASSERT_EQ(run_tool({"process", dir / "wide.wav", dir / "wide-out.wav", "--bypass", kBypassAll}).status, 0);
    EXPECT_TRUE(read_audio(dir / "wide-out.wav", outInfo) == expected);
    ASSERT_EQ(run_tool({"process", dir / "hot.wav", dir / "hot-out.wav", "--bypass", kBypassAll}).status, 0);
    EXPECT_EQ(read_audio(dir / "hot-out.wav", outInfo), (std::vector<int16_t>{32767, -32768, 32767, -32768, 16384, -8192}));
}

// Peaks the limiter lets through above its ceiling are reported with their count.
TEST(ProcessSummary, WarnsOfOutputPeaksAboveTheCeiling)
{
    ScratchDir dir;
    std::vector<int16_t> noise(48000 * 2 * 3);
    uint32_t state = 7;
    for (int16_t &s : noise) {  // loud noise, roughly Gaussian from the sum of four uniforms
        int sum = 0;
        for (int k = 0; k < 4; ++k) {
            state = state * 1664525u + 1013904223u;
            sum += static_cast<int>(state >> 20) - 2048;
        }
        s = static_cast<int16_t>(std::clamp(sum * 9, -32768, 32767));
    }
    write_audio(dir / "noise.wav", noise, 2, 48000);
    RunResult r = run_tool({"process", dir / "noise.wav", dir / "out.wav", "--tuning", kTunings + "music.json"});
    ASSERT_EQ(r.status, 0) << r.err;

    // The count, recounted from the output file against the tuning's ceiling.
    Record rec = read_tuning(kTunings + "music.json");
    SF_INFO info;
    std::vector<int16_t> out = read_audio(dir / "out.wav", info);
    int warned = 0;
    for (int c = 0; c < 2; ++c) {
        float ceiling = rec[Layout::embedded().word("maximizer.channels[" + std::to_string(c) + "].ceiling")];
        double limit = 32768.0 * std::pow(10.0, ceiling / 20.0);
        long long above = 0;
        for (size_t i = static_cast<size_t>(c); i < out.size(); i += 2)
            above += std::abs(static_cast<int>(out[i])) > limit;
        std::string line = "warning: channel " + std::to_string(c) + ": " + std::to_string(above) +
                           " output sample(s) above the maximizer's ceiling of " + shortest_text(ceiling) + " dBFS";
        if (above) {
            ++warned;
            EXPECT_NE(r.out.find(line), std::string::npos) << line << "\nmissing from\n" << r.out;
        } else {
            EXPECT_EQ(r.out.find("warning: channel " + std::to_string(c)), std::string::npos) << r.out;
        }
    }
    EXPECT_GT(warned, 0) << "the material no longer drives the limiter past its ceiling";

    // Without the maximizer there is no ceiling to report against.
    RunResult off = run_tool({"process", dir / "noise.wav", dir / "off.wav", "--tuning", kTunings + "music.json",
                              "--bypass", "maximizer"});
    EXPECT_EQ(off.out.find("warning"), std::string::npos) << off.out;
}
