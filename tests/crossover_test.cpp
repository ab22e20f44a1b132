// Crossover bank: what each output carries, the output order, redesign and misuse.
#include <cmath>
#include <cstdlib>
#include <vector>

#include "support/test_support.h"

namespace {

constexpr int kFs = 48000;

CrossoverParam corners(int mode, float lowLp, float highHp, float b2Hp, float b2Lp, float b3Hp, float b3Lp)
{
    CrossoverParam p;
    p.bandMode = mode;
    const float f[6] = {lowLp, highHp, b2Hp, b2Lp, b3Hp, b3Lp};
    for (int i = 0; i < 6; i++)
        p.freq[i] = f[i];
    return p;
}

// Runs one sine per channel through the bank and returns, per output slot, the level in
// dB of that output relative to its input over the second half of the run.
std::vector<double> band_levels(CrossoverState *st, const std::vector<float> &freqs, int bands, int frames = 9600)
{
    const int ch = static_cast<int>(freqs.size());
    std::vector<std::vector<float>> in, out(static_cast<size_t>(ch * bands), std::vector<float>(frames));
    for (float f : freqs)
        in.push_back(eqdrc_test::sine(frames, f, kFs, 10000.0f));
    std::vector<float> x(static_cast<size_t>(ch)), y(static_cast<size_t>(ch * bands) + 1);
    for (int n = 0; n < frames; n++) {
        for (int c = 0; c < ch; c++)
            x[static_cast<size_t>(c)] = in[static_cast<size_t>(c)][static_cast<size_t>(n)];
        Filters_Crossover_filterProcess(st, x.data(), y.data());
        for (int k = 0; k < ch * bands; k++)
            out[static_cast<size_t>(k)][static_cast<size_t>(n)] = y[static_cast<size_t>(k)];
    }
    std::vector<double> levels;
    const int half = frames / 2;
    for (int k = 0; k < ch * bands; k++) {
        const int c = k / bands;
        levels.push_back(eqdrc_test::rms_db(out[static_cast<size_t>(k)].data() + half, half) -
                         eqdrc_test::rms_db(in[static_cast<size_t>(c)].data() + half, half));
    }
    return levels;
}

std::vector<float> run_noise(CrossoverState *st, int channels, int bands, int frames, unsigned seed)
{
    std::srand(seed);
    std::vector<float> out;
    std::vector<float> x(static_cast<size_t>(channels)), y(static_cast<size_t>(channels * bands));
    for (int n = 0; n < frames; n++) {
        for (float &v : x)
            v = static_cast<float>(std::rand() % 20001 - 10000);
        Filters_Crossover_filterProcess(st, x.data(), y.data());
        out.insert(out.end(), y.begin(), y.end());
    }
    return out;
}

// ---------------------------------------------------------------------------------

TEST(CrossoverResponse, DefaultsSplitAt250And3000HzWithLinkwitzRileyCorners)
{
    CrossoverParam *p = Filters_Crossover_paramInit();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->bandMode, 0);
    const float expected[6] = {250.0f, 3000.0f, 250.0f, 1000.0f, 1000.0f, 3000.0f};
    for (int i = 0; i < 6; i++)
        EXPECT_EQ(p->freq[i], expected[i]) << i;

    // A null record means the same defaults, bit for bit.
    CrossoverState *fromNull = Filters_Crossover_filterInit(kFs, 1, nullptr);
    CrossoverState *fromDefaults = Filters_Crossover_filterInit(kFs, 1, p);
    EXPECT_TRUE(eqdrc_test::same_bits(run_noise(fromNull, 1, 2, 2000, 7), run_noise(fromDefaults, 1, 2, 2000, 7)));
    Filters_Crossover_filterDestroy(fromNull);
    Filters_Crossover_filterDestroy(fromDefaults);

    // Each fourth-order Linkwitz-Riley half is 6 dB down at its own corner.
    CrossoverState *st = Filters_Crossover_filterInit(kFs, 2, nullptr);
    std::vector<double> lv = band_levels(st, {250.0f, 3000.0f}, 2);
    EXPECT_NEAR(lv[0], -6.02, 0.1);  // channel 0 low at 250 Hz
    EXPECT_NEAR(lv[3], -6.02, 0.1);  // channel 1 high at 3000 Hz
    Filters_Crossover_filterDestroy(st);
    std::free(p);
}

TEST(CrossoverResponse, FourBandsComeOutLowHighThenTheBandPasses)
{
    // Each channel gets a tone in a different band; the output slot that carries it is
    // the one passing it.
    CrossoverParam p = corners(2, 150.0f, 12000.0f, 300.0f, 700.0f, 2000.0f, 4000.0f);
    CrossoverState *st = Filters_Crossover_filterInit(kFs, 2, &p);
    const float tones[4] = {40.0f, 16000.0f, 458.0f, 2828.0f};
    for (int band = 0; band < 4; band++) {
        std::vector<double> lv = band_levels(st, {tones[band], tones[(band + 1) % 4]}, 4);
        for (int c = 0; c < 2; c++) {
            const int passing = (band + c) % 4;
            for (int k = 0; k < 4; k++) {
                if (k == passing)
                    EXPECT_GT(lv[static_cast<size_t>(4 * c + k)], -6.0) << "channel " << c << " slot " << k;
                else
                    EXPECT_LT(lv[static_cast<size_t>(4 * c + k)], -20.0) << "channel " << c << " slot " << k;
            }
        }
    }
    Filters_Crossover_filterDestroy(st);
}

TEST(CrossoverResponse, OneExtraBandWritesThreeOutputsPerChannel)
{
    CrossoverParam p = corners(1, 150.0f, 12000.0f, 300.0f, 700.0f, 2000.0f, 4000.0f);
    CrossoverState *st = Filters_Crossover_filterInit(kFs, 2, &p);
    const float in[2] = {1000.0f, -1000.0f};
    float out[8] = {0, 0, 0, 0, 0, 0, -7777.0f, -7777.0f};
    Filters_Crossover_filterProcess(st, in, out);
    EXPECT_EQ(out[6], -7777.0f);
    EXPECT_EQ(out[7], -7777.0f);
    EXPECT_GT(band_levels(st, {40.0f, 458.0f}, 3)[5], -6.0);  // channel 1's band 2
    Filters_Crossover_filterDestroy(st);
}

TEST(CrossoverRedesign, SetParamEqualsAFreshBankAndKeepsTheBandCount)
{
    for (int mode = 0; mode <= 2; mode++) {
        const int bands = 2 + (mode > 0) + (mode == 2);
        CrossoverParam first = corners(mode, 150.0f, 4000.0f, 150.0f, 700.0f, 700.0f, 4000.0f);
        CrossoverState *st = Filters_Crossover_filterInit(kFs, 2, &first);
        run_noise(st, 2, bands, 500, 1);  // leaves memories behind

        // The band mode of the new record is ignored.
        CrossoverParam second = corners(mode == 2 ? 0 : 2, 90.0f, 6000.0f, 90.0f, 500.0f, 500.0f, 6000.0f);
        Filters_Crossover_filterSetParam(st, &second);
        second.bandMode = mode;
        CrossoverState *fresh = Filters_Crossover_filterInit(kFs, 2, &second);
        EXPECT_TRUE(eqdrc_test::same_bits(run_noise(st, 2, bands, 800, 2), run_noise(fresh, 2, bands, 800, 2)))
            << "mode " << mode;
        Filters_Crossover_filterDestroy(st);
        Filters_Crossover_filterDestroy(fresh);
    }
}

TEST(CrossoverMisuse, NullHandleAndOddBandModes)
{
    EXPECT_EQ(Filters_Crossover_filterDestroy(nullptr), -3);

    // Modes outside 0..2: 3 and up run three bands, negative ones two; their unused
    // arrays are freed with the bank (clean under the leak checker).
    const struct {
        int mode;
        int bands;
    } cases[] = {{3, 3}, {7, 3}, {-1, 2}, {-5, 2}};
    for (const auto &c : cases) {
        CrossoverParam p = corners(c.mode, 200.0f, 5000.0f, 400.0f, 900.0f, 1400.0f, 2500.0f);
        CrossoverState *st = Filters_Crossover_filterInit(kFs, 2, &p);
        p.bandMode = c.bands == 3 ? 1 : 0;
        CrossoverState *same = Filters_Crossover_filterInit(kFs, 2, &p);
        EXPECT_TRUE(eqdrc_test::same_bits(run_noise(st, 2, c.bands, 300, 3), run_noise(same, 2, c.bands, 300, 3)))
            << "mode " << c.mode;
        EXPECT_EQ(Filters_Crossover_filterDestroy(st), 0);
        Filters_Crossover_filterDestroy(same);
    }

    // No channels: nothing is read or written.
    CrossoverState *none = Filters_Crossover_filterInit(kFs, 0, nullptr);
    float out = -1.0f;
    Filters_Crossover_filterProcess(none, nullptr, &out);
    EXPECT_EQ(out, -1.0f);
    Filters_Crossover_filterDestroy(none);
}

}  // namespace
