// Ten-band equaliser: slot packing across channels, link, live retuning, read-back
// and the caller-misuse paths.
#include <cmath>
#include <regex>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using eqdrc_test::Planar;
using eqdrc_test::same_bits;

constexpr int kFs = 48000;
constexpr int kFrame = 480;

struct Band {
    float enable, type, fc, q, boost;
};

// A section for up to three channels (the third block lies past the two-block section).
struct Section {
    std::vector<float> words = std::vector<float>(150, 0.0f);
    Section &band(int ch, int b, Band v)
    {
        float *g = &words[static_cast<size_t>(50 * ch + 5 * b)];
        g[0] = v.enable, g[1] = v.type, g[2] = v.fc, g[3] = v.q, g[4] = v.boost;
        return *this;
    }
    const float *data() const { return words.data(); }
};

Band peak(float enable, float boostDb) { return {enable, 0.0f, 1000.0f, 1.0f, boostDb}; }

// Gain in dB of each channel for a 1 kHz sine, measured once the sections have settled.
std::vector<double> gain_at_1k(EQ10State *st, int channels, int frames = 20)
{
    std::vector<double> gain(static_cast<size_t>(channels), 0.0);
    for (int f = 0; f < frames; f++) {
        std::vector<float> s = eqdrc_test::sine(kFrame, 1000.0f, kFs, 1000.0f, f * kFrame);
        Planar buf(channels, kFrame);
        for (auto &d : buf.data)
            std::copy(s.begin(), s.end(), d.begin());
        EQ10_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        if (f == frames - 1)
            for (int c = 0; c < channels; c++)
                gain[c] = eqdrc_test::rms_db(buf.ptr[c], kFrame) - eqdrc_test::rms_db(s.data(), kFrame);
    }
    return gain;
}

// Fills a stereo buffer with two different noise-like signals.
void fill(Planar &p, int seed)
{
    for (size_t c = 0; c < p.data.size(); c++)
        for (size_t i = 0; i < p.data[c].size(); i++)
            p.data[c][i] = static_cast<float>(
                std::fmod((i + 1) * 7919.0 * (seed + 3) + c * 104729.0, 20001.0) - 10000.0);
}

// ---------------------------------------------------------------------------------

TEST(EqualiserPacking, EachChannelRunsItsOwnBandsFromSharedSlots)
{
    // Channel 0 uses bands 2 and 7 (slots 0, 1), channel 1 band 0 (slot 2).
    Section s;
    s.band(0, 2, peak(1, 6.0f)).band(0, 7, peak(1, 6.0f)).band(1, 0, peak(1, -9.0f));
    EQ10State *st = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0);
    std::vector<double> g = gain_at_1k(st, 2);
    EXPECT_NEAR(g[0], 12.0, 0.1);
    EXPECT_NEAR(g[1], -9.0, 0.1);
    EQ10_Destroy(st);
}

TEST(EqualiserPacking, EnablesCountAsWrittenAndShiftLaterChannels)
{
    // Channel 0: enable -1 designs +12 dB into slot 0 and 2 designs -12 dB into slot 1,
    // but their sum runs one slot.  Channel 1 then starts at slot 1: channel 0's -12 dB
    // band, not its own +3 dB one.
    Section shift;
    shift.band(0, 0, peak(-1, 12.0f)).band(0, 1, peak(2, -12.0f)).band(1, 0, peak(1, 3.0f));
    EQ10State *st = EQ10_Init(shift.data(), 16, kFs, 2, kFrame, 0);
    std::vector<double> g = gain_at_1k(st, 2);
    EXPECT_NEAR(g[0], 12.0, 0.1);
    EXPECT_NEAR(g[1], -12.0, 0.1);
    EQ10_Destroy(st);

    // Enable 2 on channel 0 runs channel 1's slot as well; channel 1 then runs a slot
    // nobody designed, whose zero record silences it.  0.9 truncates to off.
    Section twice;
    twice.band(0, 0, peak(2, 6.0f)).band(0, 1, peak(0.9f, 20.0f)).band(1, 0, peak(1, 6.0f));
    st = EQ10_Init(twice.data(), 16, kFs, 2, kFrame, 0);
    g = gain_at_1k(st, 2);
    EXPECT_NEAR(g[0], 12.0, 0.1);
    EXPECT_LT(g[1], -200.0);
    EQ10_Destroy(st);
}

TEST(EqualiserPacking, EnablesPastTheLastSlotStopThere)
{
    // Every band of both channels at 2: channel 0 counts 20 passes, all twenty slots, and
    // channel 1 would start past the allocation.  Runs clean under ASan.
    Section s;
    for (int c = 0; c < 2; c++)
        for (int b = 0; b < 10; b++)
            s.band(c, b, peak(2, 1.0f));
    EQ10State *st = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0);
    std::vector<double> g = gain_at_1k(st, 2);
    EXPECT_NEAR(g[0], 20.0, 0.1);  // twenty +1 dB sections at the same centre
    EXPECT_NEAR(g[1], 0.0, 1e-9);

    Planar in(2, kFrame), out(2, kFrame);
    fill(in, 1);
    EQ10_Process(st, in.ptrs(), out.ptrs(), kFrame);
    EXPECT_TRUE(same_bits(out.data[1], in.data[1]));
    EQ10_Destroy(st);
}

TEST(EqualiserPacking, LinkedChannelsUseBlockZeroWithTheirOwnMemories)
{
    // Channel 1's block holds a type the designer would reject: linked, it is never read.
    Section s;
    s.band(0, 3, peak(1, 6.0f)).band(0, 5, {1, 1, 200.0f, 1.0f, -4.0f}).band(1, 0, {1, 8, 1000, 1, 0});
    EQ10State *st = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 1);
    Planar buf(2, kFrame);
    for (int f = 0; f < 3; f++) {
        fill(buf, f);
        buf.data[1] = buf.data[0];
        EQ10_Process(st, buf.ptrs(), buf.ptrs(), kFrame);
        // Same input, same sections, separate memories: the same bits.
        ASSERT_TRUE(same_bits(buf.data[0], buf.data[1])) << "frame " << f;
    }
    EQ10_Destroy(st);
}

// ---------------------------------------------------------------------------------

TEST(EqualiserPassThrough, AllBandsOffIsBitExactIncludingCopies)
{
    Section off;
    off.band(0, 4, {0.9f, 0, 1000, 1, 12}).band(1, 9, {-0.5f, 2, 5000, 1, 12});
    for (const float *section : {off.data(), static_cast<const float *>(nullptr)}) {
        EQ10State *st = EQ10_Init(section, 16, kFs, 2, kFrame, 0);
        Planar in(2, kFrame), out(2, kFrame), inCopy(2, kFrame), outCopy(2, kFrame);
        for (int f = 0; f < 3; f++) {
            fill(in, f);
            in.data[0][0] = NAN;
            in.data[1][1] = -0.0f;
            EQ10_Process(st, in.ptrs(), out.ptrs(), kFrame);
        }
        EQ10_GetData(st, inCopy.ptrs(), outCopy.ptrs());
        for (int c = 0; c < 2; c++) {
            EXPECT_TRUE(same_bits(out.data[c], in.data[c]));
            EXPECT_TRUE(same_bits(inCopy.data[c], in.data[c]));
            EXPECT_TRUE(same_bits(outCopy.data[c], in.data[c]));
        }
        EQ10_Destroy(st);
    }
}

// ---------------------------------------------------------------------------------

TEST(EqualiserRetuning, SetParaKeepsTheFilterMemories)
{
    Section s;
    s.band(0, 0, peak(1, 9.0f)).band(0, 1, {1, 1, 150.0f, 0.8f, 6.0f}).band(1, 2, {1, 4, 300.0f, 0.7f, 0.0f});
    EQ10State *steady = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0);
    EQ10State *retuned = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0);
    Planar a(2, kFrame), b(2, kFrame);
    for (int f = 0; f < 6; f++) {
        fill(a, f);
        b.data = a.data;
        b.ptr = {b.data[0].data(), b.data[1].data()};
        if (f == 3)
            EQ10_SetPara(retuned, s.data());  // same settings: no audible seam
        EQ10_Process(steady, a.ptrs(), a.ptrs(), kFrame);
        EQ10_Process(retuned, b.ptrs(), b.ptrs(), kFrame);
        for (int c = 0; c < 2; c++)
            ASSERT_TRUE(same_bits(a.data[c], b.data[c])) << "frame " << f << " channel " << c;
    }

    // New settings take effect at the next frame.
    Section cut;
    cut.band(0, 0, peak(1, -6.0f)).band(1, 0, peak(1, 4.0f));
    EQ10_SetPara(retuned, cut.data());
    std::vector<double> g = gain_at_1k(retuned, 2);
    EXPECT_NEAR(g[0], -6.0, 0.1);
    EXPECT_NEAR(g[1], 4.0, 0.1);
    EQ10_Destroy(steady);
    EQ10_Destroy(retuned);
}

// ---------------------------------------------------------------------------------

TEST(EqualiserReadBack, GetParaWritesEveryChannelBlockAsStored)
{
    std::vector<float> words(200, -7.0f);
    EQ10State *st = EQ10_Init(nullptr, 16, kFs, 2, kFrame, 0);
    EQ10_GetPara(st, words.data() + 50);
    for (int i = 0; i < 100; i += 5) {
        const std::vector<float> group(words.begin() + 50 + i, words.begin() + 55 + i);
        EXPECT_EQ(group, (std::vector<float>{0.0f, 0.0f, 1000.0f, 1.0f, 0.0f})) << "word " << i;
    }
    EXPECT_EQ(words[49], -7.0f);
    EXPECT_EQ(words[150], -7.0f);
    EQ10_Destroy(st);

    // Truncated integers read back; linked channels repeat block 0.
    Section s;
    s.band(0, 0, {0.7f, 2.9f, 90.0f, 0.5f, 3.0f}).band(0, 1, {2.5f, 0, 1000, 1, 1}).band(1, 0, {1, 1, 1, 1, 1});
    st = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 1);
    EQ10_GetPara(st, words.data());
    EXPECT_EQ(std::vector<float>(words.begin(), words.begin() + 10),
              (std::vector<float>{0.0f, 2.0f, 90.0f, 0.5f, 3.0f, 2.0f, 0.0f, 1000.0f, 1.0f, 1.0f}));
    EXPECT_EQ(std::vector<float>(words.begin(), words.begin() + 50),
              std::vector<float>(words.begin() + 50, words.begin() + 100));
    EQ10_Destroy(st);
}

TEST(EqualiserReadBack, GetDataHoldsTheLastFrames)
{
    Section s;
    s.band(0, 0, peak(1, 6.0f)).band(1, 0, peak(1, -6.0f));
    EQ10State *st = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0);
    Planar inCopy(2, kFrame, 5.0f), outCopy(2, kFrame, 5.0f);
    EQ10_GetData(st, inCopy.ptrs(), outCopy.ptrs());
    for (int c = 0; c < 2; c++) {
        EXPECT_EQ(inCopy.data[c], std::vector<float>(kFrame, 0.0f));
        EXPECT_EQ(outCopy.data[c], std::vector<float>(kFrame, 0.0f));
    }

    Planar in(2, kFrame), out(2, kFrame);
    fill(in, 4);
    EQ10_Process(st, in.ptrs(), out.ptrs(), kFrame);
    EQ10_GetData(st, inCopy.ptrs(), outCopy.ptrs());
    for (int c = 0; c < 2; c++) {
        EXPECT_TRUE(same_bits(inCopy.data[c], in.data[c]));
        EXPECT_TRUE(same_bits(outCopy.data[c], out.data[c]));
        EXPECT_FALSE(same_bits(out.data[c], in.data[c]));
    }
    EQ10_Destroy(st);
}

TEST(EqualiserReadBack, PrintParaListsBandsEnabledWithOne)
{
    Section s;
    s.band(0, 0, {1, 0, 1000.0f, 0.7f, 3.0f})
        .band(0, 1, {2, 1, 100.0f, 1.0f, 1.0f})       // runs, not listed
        .band(0, 2, {1, 5, 2000.0f, 1.0f, -2.0f})      // listed without a type label
        .band(1, 9, {1, 2, 8000.0f, 0.5f, 1.255f});
    EQ10State *st = EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0);
    std::string text = eqdrc_test::capture_stderr([&] { EQ10_PrintPara(st); });
    text = std::regex_replace(text, std::regex(R"(LOG \(EQ10_PrintPara\(\): ,\d+\), )"), "");
    EXPECT_EQ(text,
              "EQ Param\n=====================\n==== channel:0 ====\n"
              "filterTypes:Parametric\nfc:1000.00\nQ:0.70\nboost:3.00\n"
              "fc:2000.00\nQ:1.00\nboost:-2.00\n"
              "==== channel:1 ====\nfilterTypes:HighShelf\nfc:8000.00\nQ:0.50\nboost:1.25\n");
    EXPECT_EQ(EQ10_Destroy(nullptr), -3);
    EXPECT_EQ(EQ10_Destroy(st), 0);
}

// ---------------------------------------------------------------------------------

TEST(EqualiserMisuse, LongerFrameThanCreatedIsCutToTheCreationLength)
{
    constexpr int kShort = 64;
    Section s;
    s.band(0, 0, peak(1, 6.0f)).band(1, 0, peak(1, -6.0f));
    EQ10State *st = EQ10_Init(s.data(), 16, kFs, 2, kShort, 0);
    EQ10State *twin = EQ10_Init(s.data(), 16, kFs, 2, kShort, 0);
    Planar in(2, 2 * kShort), out(2, 2 * kShort, 123.0f), expect(2, kShort);
    fill(in, 2);
    for (int c = 0; c < 2; c++)
        std::copy(in.data[c].begin(), in.data[c].begin() + kShort, expect.data[c].begin());
    EQ10_Process(st, in.ptrs(), out.ptrs(), 2 * kShort);  // clean under ASan
    EQ10_Process(twin, expect.ptrs(), expect.ptrs(), kShort);
    for (int c = 0; c < 2; c++) {
        EXPECT_TRUE(same_bits(std::vector<float>(out.data[c].begin(), out.data[c].begin() + kShort),
                              expect.data[c]));
        EXPECT_EQ(std::vector<float>(out.data[c].begin() + kShort, out.data[c].end()),
                  std::vector<float>(kShort, 123.0f));
    }
    EQ10_Destroy(st);
    EQ10_Destroy(twin);
}

TEST(EqualiserMisuse, UnknownBandTypeEndsTheProcess)
{
    Section s;
    s.band(1, 3, {1, 8, 1000, 1, 0});
    EXPECT_EXIT(EQ10_Init(s.data(), 16, kFs, 2, kFrame, 0), testing::ExitedWithCode(255),
                "You should choose a filter type!");
}

}  // namespace
