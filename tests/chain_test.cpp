// The chain through its public interface: record validation, file loading, sample
// conversion, messages, live update and the fatal paths.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <regex>

#include "support/test_support.h"

using eqdrc_test::blank_record;
using eqdrc_test::capture_stderr;
using eqdrc_test::with_required_leak;

namespace {

constexpr int kFrame = 768;

std::string escaped(const std::string &s) { return std::regex_replace(s, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)"); }

// Runs frames of interleaved stereo through a chain made from `rec`.
std::vector<int16_t> run(const std::vector<float> &rec, const std::vector<int16_t> &in, bool inPlace = false)
{
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    EXPECT_NE(st, nullptr);
    std::vector<int16_t> out(in.size());
    std::vector<int16_t> work(in);
    const int ch = static_cast<int>(rec[3]);
    const size_t frameSamples = static_cast<size_t>(kFrame * ch);
    for (size_t off = 0; off + frameSamples <= in.size(); off += frameSamples) {
        int16_t *dst = inPlace ? work.data() + off : out.data() + off;
        EXPECT_EQ(AudioPost_Process(st, work.data() + off, dst, ch, kFrame), kFrame * ch * 2);
    }
    eqdrc_test::destroy_quietly(st);
    return inPlace ? work : out;
}

std::vector<int16_t> constant_frame(int16_t left, int16_t right, int frames = 1)
{
    std::vector<int16_t> v(static_cast<size_t>(kFrame * 2 * frames));
    for (size_t i = 0; i < v.size(); i += 2) {
        v[i] = left;
        v[i + 1] = right;
    }
    return v;
}

std::vector<int16_t> noise(int frames, unsigned seed)
{
    std::vector<int16_t> v(static_cast<size_t>(kFrame * 2 * frames));
    for (auto &s : v) {
        seed = seed * 1103515245u + 12345u;
        s = static_cast<int16_t>(seed >> 16);
    }
    return v;
}

}  // namespace

// The tool version is accepted within one ten-thousandth and printed without decimals.
TEST(RecordValidation, ToolVersionToleranceIsOneTenThousandth)
{
    auto rec = blank_record();
    rec[4] = 2.00005f;
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    ASSERT_NE(st, nullptr);
    eqdrc_test::destroy_quietly(st);

    for (auto [version, shown] : {std::pair{2.0002f, "2"}, std::pair{1.0f, "1"}}) {
        rec[4] = version;
        std::string err = capture_stderr([&] { st = with_required_leak([&] { return AudioPost_Init(rec.data(), kFrame); }); });
        EXPECT_EQ(st, nullptr);
        EXPECT_NE(err.find(std::string("LOG (AudioPost_Init(): ,121), AudioPost_Init - The Version(") + shown +
                           ") of Tuning Tool is Wrong, you should use version 2.00!\n"),
                  std::string::npos);
    }
}

TEST(RecordValidation, BitDepthIsTruncatedThenChecked)
{
    auto rec = blank_record();
    rec[1] = 24.9f;
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    ASSERT_NE(st, nullptr);
    std::vector<float> back(EQDRC_RECORD_WORDS, 0.0f);
    AudioPost_GetPara(st, back.data());
    EXPECT_EQ(back[1], 24.0f);
    eqdrc_test::destroy_quietly(st);

    rec[1] = 17.0f;
    std::string err = capture_stderr(
        [&] { EXPECT_EQ(with_required_leak([&] { return AudioPost_Init(rec.data(), kFrame); }), nullptr); });
    EXPECT_NE(err.find("LOG (AudioPost_Init(): ,162), bit_rate is wrong!\n"), std::string::npos);
}

TEST(RecordValidation, BannerAndParameterVersion)
{
    auto rec = blank_record();
    rec[5] = 1.9f;
    rec[6] = 0.0f;
    rec[7] = 7.6f;
    AudioPostState *st = nullptr;
    std::string err = capture_stderr([&] { st = AudioPost_Init(rec.data(), kFrame); });
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(err.rfind("LOG (dump_version(): ,47), ----", 0), 0u);
    EXPECT_NE(err.find("LOG (AudioPost_Init(): ,95), TQ_AudioEffect-RELEASE-VERSION 2.00, RELEASE DATE "),
              std::string::npos);
    EXPECT_NE(err.find("LOG (AudioPost_Init(): ,130), The Version of Parameter is 1.0.7\n"), std::string::npos);
    eqdrc_test::destroy_quietly(st);
}

// Every chain entry point gives a null chain -1: the calls with a message for it print
// it, the pass-throughs return quietly rather than reading through it.
TEST(RecordValidation, NullArgumentsAreReported)
{
    std::vector<float> section(100, 0.0f);
    float *frames[2] = {section.data(), section.data() + 50};
    std::string err = capture_stderr([&] {
        EXPECT_EQ(AudioPost_EQ10_SetPara(nullptr, section.data()), -1);
        EXPECT_EQ(AudioPost_EQ10_GetPara(nullptr, section.data()), -1);
        EXPECT_EQ(AudioPost_EQ10_GetData(nullptr, frames, frames), -1);
        EXPECT_EQ(AudioPost_MultiBandDRC_Crossover_AdjustPara(nullptr, 0, 250, 3000, 250, 1000, 1000, 3000), -1);
        EXPECT_EQ(AudioPost_MultiBandDRC_DRC_AdjustPara(nullptr, 0, 0, 1, 0, -20, -40, -60, 6, -1, 10, 100, 0), -1);
        EXPECT_EQ(AudioPost_Maximizer_AdjustPara(nullptr, 0, -3, -1, 10), -1);
        EXPECT_EQ(AudioPost_Agc_AdjustPara(nullptr, 0, -20, -40, -45, 16, -1, 200, 400, 200), -1);
    });
    EXPECT_EQ(err, "");
    err = capture_stderr([] {
        EXPECT_EQ(AudioPost_Init(nullptr, kFrame), nullptr);
        EXPECT_EQ(AudioPost_InitByPath(nullptr, kFrame), nullptr);
        EXPECT_EQ(AudioPost_Destroy(nullptr), -1);
        EXPECT_EQ(AudioPost_Process(nullptr, nullptr, nullptr, 2, kFrame), -1);
        EXPECT_EQ(AudioPost_SetPara(nullptr, nullptr, kFrame), -1);
        EXPECT_EQ(AudioPost_GetPara(nullptr, nullptr), -1);
    });
    // After AudioPost_Init's banner, the six messages in turn.
    EXPECT_NE(err.find("LOG (AudioPost_Init(): ,99), error (AudioPost_Init) - Param is NULL\n\n"
                       "LOG (AudioPost_InitByPath(): ,224), error (AudioPost_InitByPath) - pfParaPath is NULL\n\n"
                       "LOG (AudioPost_Destroy(): ,257), error (AudioPost_Destroy) - st_ is NULL\n\n"
                       "LOG (AudioPost_Process(): ,315), error, st is NULL!\n\n"
                       "LOG (AudioPost_SetPara(): ,395), error, st or pfPara is NULL!\n\n"
                       "LOG (AudioPost_GetPara(): ,505), error, EQ_DRC doesn't init!\n\n"),
              std::string::npos);
}

TEST(RecordFile, ShortFileFailsLongFileUsesItsFirstRecord)
{
    auto rec = blank_record();
    rec[20] = -6.0206f;
    std::vector<char> bytes(3000, 0x7f);
    std::memcpy(bytes.data(), rec.data(), 2176);
    const std::string longPath = eqdrc_test::temp_path("long.rec");
    eqdrc_test::write_file(longPath, bytes.data(), bytes.size());
    AudioPostState *st = nullptr;
    std::string err = capture_stderr([&] { st = AudioPost_InitByPath(longPath.c_str(), kFrame); });
    ASSERT_NE(st, nullptr);
    EXPECT_NE(err.find("LOG (AudioPost_InitByPath(): ,251), AudioPost_InitByPath - success\n\n"), std::string::npos);
    std::vector<float> back(EQDRC_RECORD_WORDS, 0.0f);
    AudioPost_GetPara(st, back.data());
    EXPECT_EQ(back[20], -6.0206f);
    eqdrc_test::destroy_quietly(st);

    const std::string shortPath = eqdrc_test::temp_path("short.rec");
    eqdrc_test::write_file(shortPath, bytes.data(), 2175);
    err = capture_stderr([&] { EXPECT_EQ(AudioPost_InitByPath(shortPath.c_str(), kFrame), nullptr); });
    EXPECT_EQ(err, "LOG (AudioPost_InitByPath(): ,242), error (AudioPost_InitByPath) - fread pfPara failed\n\n");

    err = capture_stderr([&] { EXPECT_EQ(AudioPost_InitByPath("/nonexistent/x.rec", kFrame), nullptr); });
    EXPECT_EQ(err, "LOG (AudioPost_InitByPath(): ,230), error (AudioPost_InitByPath) - fopen pfParaPath: "
                   "/nonexistent/x.rec failed\n\n");
    std::remove(longPath.c_str());
    std::remove(shortPath.c_str());
}

TEST(SampleConversion, AllStagesOffIsBitIdentical)
{
    auto in = noise(3, 7);
    EXPECT_EQ(run(blank_record(), in), in);
    EXPECT_EQ(run(blank_record(), in, true), in);
}

TEST(SampleConversion, PreGainClampsAndTruncates)
{
    auto rec = blank_record();
    rec[20] = rec[25] = 6.0f;
    auto out = run(rec, constant_frame(32767, -32768));
    EXPECT_EQ(out[0], 32767);
    EXPECT_EQ(out[1], -32768);

    rec[20] = rec[25] = -6.0206f;  // a factor of 0.5: 1.5 truncates to 1
    out = run(rec, constant_frame(3, -3));
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], -1);
}

TEST(SampleConversion, LinkedChannelsTakeTheFirstGain)
{
    auto rec = blank_record();
    rec[2] = 1.0f;
    rec[20] = -6.0206f;
    rec[25] = 6.0f;
    auto out = run(rec, constant_frame(1000, 1000));
    EXPECT_EQ(out[0], 500);
    EXPECT_EQ(out[1], 500);
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    std::vector<float> back(EQDRC_RECORD_WORDS, 7.0f);
    AudioPost_GetPara(st, back.data());
    EXPECT_EQ(back[20], -6.0206f);
    EXPECT_EQ(back[25], -6.0206f);
    for (int w : {5, 6, 7, 8, 9, 18, 19, 21, 24})
        EXPECT_EQ(back[static_cast<size_t>(w)], 7.0f) << "word " << w;
    eqdrc_test::destroy_quietly(st);
}

TEST(SampleConversion, WideBitDepthsKeepTheLow16Bits)
{
    auto rec = blank_record(48000, 24);
    rec[20] = rec[25] = 12.0f;  // 32767 x 3.98 passes 16 bits and wraps
    auto out = run(rec, constant_frame(32767, -32768));
    const float g = powf(10.0f, 12.0f / 20.0f);
    EXPECT_EQ(out[0], static_cast<int16_t>(static_cast<int32_t>(32767.0f * g) & 0xffff));
    EXPECT_EQ(out[1], static_cast<int16_t>(static_cast<int32_t>(-32768.0f * g) & 0xffff));
}

TEST(SampleConversion, ZeroChannelsGiveAnEmptyWorkingChain)
{
    auto rec = blank_record(48000, 16, 0);
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(AudioPost_Process(st, nullptr, nullptr, 0, kFrame), 0);
    capture_stderr([&] { EXPECT_EQ(AudioPost_Destroy(st), 0); });
}

TEST(LiveUpdate, RejectedRecordStillReplacesTheHeaderWords)
{
    AudioPostState *st = eqdrc_test::quiet_chain(blank_record().data(), kFrame);
    auto next = blank_record(44100, 24);
    next[4] = 3.0f;
    next[20] = 9.0f;
    std::string err = capture_stderr([&] { EXPECT_EQ(AudioPost_SetPara(st, next.data(), kFrame), -1); });
    EXPECT_NE(err.find("LOG (AudioPost_SetPara(): ,414), AudioPost_SetPara - The Version(3) of Tuning Tool"),
              std::string::npos);
    std::vector<float> back(EQDRC_RECORD_WORDS, 0.0f);
    AudioPost_GetPara(st, back.data());
    EXPECT_EQ(back[0], 44100.0f);
    EXPECT_EQ(back[1], 24.0f);
    EXPECT_EQ(back[4], 3.0f);
    EXPECT_EQ(back[20], 0.0f);  // gains are kept
    eqdrc_test::destroy_quietly(st);
}

TEST(LiveUpdate, ExtraChannelsInALiveRecordStayInsideTheArrays)
{
    AudioPostState *st = eqdrc_test::quiet_chain(blank_record().data(), kFrame);
    auto wide = blank_record(48000, 16, 4);
    wide[20] = wide[25] = wide[30] = wide[35] = -6.0206f;
    EXPECT_EQ(AudioPost_SetPara(st, wide.data(), kFrame), 0);
    std::vector<int16_t> frame(static_cast<size_t>(kFrame * 4), 1000);
    EXPECT_EQ(AudioPost_Process(st, frame.data(), frame.data(), 4, kFrame), kFrame * 4 * 2);
    EXPECT_EQ(frame[0], 500);  // the two allocated channels are processed
    EXPECT_EQ(frame[1], 500);
    EXPECT_EQ(frame[2], 1000);  // the others pass through
    EXPECT_EQ(frame[3], 1000);
    eqdrc_test::destroy_quietly(st);
}

TEST(FatalPaths, WrongFrameLengthsEndTheProcess)
{
    AudioPostState *st = eqdrc_test::quiet_chain(blank_record().data(), kFrame);
    std::vector<int16_t> frame(kFrame * 2);
    EXPECT_EXIT(AudioPost_Process(st, frame.data(), frame.data(), 2, kFrame - 1), testing::ExitedWithCode(255),
                escaped("LOG (AudioPost_Process(): ,324), error, swFrmLen:767 != frameLen:768\n\n"));
    EXPECT_EXIT(AudioPost_SetPara(st, blank_record().data(), kFrame + 1), testing::ExitedWithCode(255),
                escaped("LOG (AudioPost_SetPara(): ,402), error, swFrmLen is wrong!\n\n"));
    eqdrc_test::destroy_quietly(st);
}

TEST(FatalPaths, CallsForStagesThatDoNotExistEndTheProcess)
{
    AudioPostState *st = eqdrc_test::quiet_chain(blank_record().data(), kFrame);
    std::vector<float> section(100);
    EXPECT_EXIT(AudioPost_EQ10_GetPara(st, section.data()), testing::ExitedWithCode(255),
                escaped("LOG (AudioPost_EQ10_GetPara(): ,578), error, EQ10 doesn't init!"));
    EXPECT_EXIT(AudioPost_MultiBandDRC_Crossover_AdjustPara(st, 0, 1, 2, 3, 4, 5, 6), testing::ExitedWithCode(255),
                escaped("LOG (AudioPost_MultiBandDRC_Crossover_AdjustPara(): ,599), error "
                        "(AudioPost_MultiBandDRC_Crossover_AdjustPara), MBDRC doesn't init!"));
    EXPECT_EXIT(AudioPost_MultiBandDRC_DRC_AdjustPara(st, 0, 0, 1, 0, -20, -40, -50, 0, -3, 10, 100, 0),
                testing::ExitedWithCode(255), escaped("AdjustPara(): ,612), error"));
    EXPECT_EXIT(AudioPost_Maximizer_AdjustPara(st, 0, -3, -1, 100), testing::ExitedWithCode(255),
                escaped("LOG (AudioPost_Maximizer_AdjustPara(): ,625), error, Maximizer doesn't init!"));
    EXPECT_EXIT(AudioPost_Agc_AdjustPara(st, 0, -20, -40, -50, 6, -3, 50, 500, 0), testing::ExitedWithCode(255),
                escaped("LOG (AudioPost_Agc_AdjustPara(): ,638), error, Agc doesn't init!"));
    eqdrc_test::destroy_quietly(st);
}

namespace {

// A record whose equaliser boosts 1 kHz by 12 dB on both channels, with enable word `flag`.
std::vector<float> eq_record(float flag)
{
    auto rec = blank_record();
    rec[14] = flag;
    for (int ch = 0; ch < 2; ch++) {
        float *band = &rec[static_cast<size_t>(100 + 50 * ch)];
        band[0] = 1.0f;      // enable
        band[1] = 0.0f;      // Parametric
        band[2] = 1000.0f;   // fc
        band[3] = 1.0f;      // Q
        band[4] = 12.0f;     // boost
    }
    return rec;
}

std::vector<int16_t> tone_frames(int frames)
{
    std::vector<int16_t> v(static_cast<size_t>(kFrame * 2 * frames));
    for (size_t i = 0; i < v.size() / 2; i++)
        v[2 * i] = v[2 * i + 1] = static_cast<int16_t>(4000.0 * std::sin(2.0 * M_PI * 1000.0 * i / 48000.0));
    return v;
}

}  // namespace

TEST(StageLifecycle, FlagTwoBuildsAStageThatNeverRuns)
{
    auto in = tone_frames(4);
    EXPECT_EQ(run(eq_record(2.0f), in), in);
    EXPECT_NE(run(eq_record(1.7f), in), in);  // 1.7 truncates to 1: built and run
}

TEST(StageLifecycle, LiveUpdateCreatesOnFirstEnableAndReusesAfterwards)
{
    AudioPostState *st = eqdrc_test::quiet_chain(eq_record(0.0f).data(), kFrame);
    auto in = tone_frames(1);
    std::vector<int16_t> out(in.size());
    AudioPost_Process(st, in.data(), out.data(), 2, kFrame);
    EXPECT_EQ(out, in);

    ASSERT_EQ(AudioPost_SetPara(st, eq_record(1.0f).data(), kFrame), 0);
    AudioPost_Process(st, in.data(), out.data(), 2, kFrame);
    EXPECT_GT(eqdrc_test::rms_db(std::vector<float>(out.begin(), out.end()).data(), kFrame * 2),
              eqdrc_test::rms_db(std::vector<float>(in.begin(), in.end()).data(), kFrame * 2) + 6.0);

    // Off, then on again with a different boost: the existing equaliser is retuned.
    ASSERT_EQ(AudioPost_SetPara(st, eq_record(0.0f).data(), kFrame), 0);
    auto cut = eq_record(1.0f);
    cut[104] = cut[154] = -12.0f;
    ASSERT_EQ(AudioPost_SetPara(st, cut.data(), kFrame), 0);
    std::vector<float> section(100, 0.0f);
    AudioPost_EQ10_GetPara(st, section.data());
    EXPECT_EQ(section[4], -12.0f);
    eqdrc_test::destroy_quietly(st);
}

TEST(StageLifecycle, EqualiserPassThroughsFollowTheEnableWord)
{
    AudioPostState *st = eqdrc_test::quiet_chain(eq_record(0.0f).data(), kFrame);
    auto rec = eq_record(1.0f);
    EXPECT_EQ(AudioPost_EQ10_SetPara(st, rec.data() + 100), 0);  // disabled: nothing is created
    EXPECT_DEATH(AudioPost_EQ10_GetPara(st, rec.data() + 100), "EQ10 doesn't init");
    eqdrc_test::destroy_quietly(st);

    st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    auto in = tone_frames(1);
    std::vector<int16_t> out(in.size());
    AudioPost_Process(st, in.data(), out.data(), 2, kFrame);
    eqdrc_test::Planar inCopy(2, kFrame), outCopy(2, kFrame);
    EXPECT_EQ(AudioPost_EQ10_GetData(st, inCopy.ptrs(), outCopy.ptrs()), 0);
    EXPECT_EQ(inCopy.data[1][10], static_cast<float>(in[21]));
    EXPECT_EQ(static_cast<int16_t>(outCopy.data[0][10]), out[20]);
    eqdrc_test::destroy_quietly(st);
}

TEST(DumpSwitch, OnlyTheWordTrueInAnyCaseDumps)
{
    auto rec = eq_record(1.0f);
    rec[16] = 1.0f;  // the Agc alone builds the maximizer's state
    auto dump_with = [&](const char *value) {
        if (value)
            setenv("TQAUDIO_EQDRC_DUMP_CONF", value, 1);
        else
            unsetenv("TQAUDIO_EQDRC_DUMP_CONF");
        AudioPostState *st = nullptr;
        std::string err = capture_stderr([&] { st = AudioPost_Init(rec.data(), kFrame); });
        eqdrc_test::destroy_quietly(st);
        return err;
    };
    for (const char *on : {"true", "TRUE", "True"}) {
        std::string err = dump_with(on);
        EXPECT_NE(err.find("EQ Param"), std::string::npos) << on;
        EXPECT_NE(err.find("Maximizer Param"), std::string::npos) << on;
        EXPECT_LT(err.find("EQ Param"), err.find("AGC Param")) << "dumps follow the chain order";
    }
    for (const char *off : {"1", "yes", static_cast<const char *>(nullptr)})
        EXPECT_EQ(dump_with(off).find("Param\n"), std::string::npos);
    unsetenv("TQAUDIO_EQDRC_DUMP_CONF");
}
