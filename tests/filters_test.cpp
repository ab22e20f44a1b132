// Filter primitives: what the designed sections do at named frequencies, the designer's
// clamps, the gain curves at their knees, the table lookup and the biquad section.
#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include "support/test_support.h"

namespace {

constexpr float kFs = 48000.0f;

struct Coeffs {
    float c[5];
    bool operator==(const Coeffs &o) const { return std::memcmp(c, o.c, sizeof c) == 0; }
};

Coeffs design(int type, float fc, float q, float gainDb, float fs = kFs)
{
    Coeffs r;
    filter_calculateCoeffs(r.c, type, fs, fc, q, gainDb);
    return r;
}

// |H(e^jw)| in dB at `freq`, evaluated in double from the float coefficients.
double response_db(const Coeffs &k, double freq, double fs = kFs)
{
    const std::complex<double> z1 = std::polar(1.0, -2.0 * M_PI * freq / fs);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> num = double(k.c[0]) + double(k.c[1]) * z1 + double(k.c[2]) * z2;
    const std::complex<double> den = 1.0 + double(k.c[3]) * z1 + double(k.c[4]) * z2;
    return 20.0 * std::log10(std::abs(num / den));
}

constexpr double kDc = 0.0;
constexpr double kNyquist = kFs / 2.0;
constexpr double kTol = 0.01;  // dB

// ---------------------------------------------------------------------------------

TEST(FilterDesign, PeakingBandHasItsGainAtTheCentre)
{
    for (float gain : {6.0f, -9.5f, 20.0f})
        for (float fc : {63.0f, 1000.0f, 15000.0f}) {
            const Coeffs k = design(Parametric, fc, 1.4f, gain);
            EXPECT_NEAR(response_db(k, fc), gain, kTol) << fc << " Hz, " << gain << " dB";
            EXPECT_NEAR(response_db(k, kDc), 0.0, 0.05);  // float coefficients, 1 - cos(w0) small
        }
}

TEST(FilterDesign, ShelvesReachTheirGainAtTheBandEdge)
{
    const Coeffs low = design(LowShelf, 200.0f, 1.0f, 8.0f);
    EXPECT_NEAR(response_db(low, kDc), 8.0, kTol);
    EXPECT_NEAR(response_db(low, kNyquist), 0.0, kTol);
    EXPECT_NEAR(response_db(low, 200.0), 4.0, kTol);  // half the gain at the corner

    const Coeffs high = design(HighShelf, 6000.0f, 0.5f, -10.0f);
    EXPECT_NEAR(response_db(high, kNyquist), -10.0, kTol);
    EXPECT_NEAR(response_db(high, kDc), 0.0, kTol);
}

TEST(FilterDesign, PassBandsAndCorners)
{
    for (float fc : {80.0f, 1000.0f, 12000.0f}) {
        EXPECT_NEAR(response_db(design(ButterworthLP, fc, 0, 0), fc), -3.01, kTol);
        EXPECT_NEAR(response_db(design(ButterworthHP, fc, 0, 0), fc), -3.01, kTol);
    }
    EXPECT_NEAR(response_db(design(ButterworthLP, 500, 0, 0), kDc), 0.0, 1e-3);
    EXPECT_NEAR(response_db(design(ButterworthHP, 500, 0, 0), kNyquist), 0.0, 1e-3);
    // General LP/HP: Q = 1/sqrt(2) is Butterworth too, and the gain is the pass-band level.
    EXPECT_NEAR(response_db(design(GeneralLP, 2000, 0.70710678f, 0), 2000), -3.01, kTol);
    EXPECT_NEAR(response_db(design(GeneralLP, 2000, 0.7f, 6.0f), kDc), 6.0, kTol);
    EXPECT_NEAR(response_db(design(GeneralHP, 2000, 0.7f, -4.0f), kNyquist), -4.0, kTol);
    // Band-pass peaks at 0 dB plus gain.
    EXPECT_NEAR(response_db(design(BandPass, 3000, 1.0f, 0), 3000), 0.0, kTol);
    EXPECT_NEAR(response_db(design(BandPass, 3000, 1.0f, 5.0f), 3000), 5.0, kTol);
}

TEST(FilterDesign, ClampsDesignTheSameRecord)
{
    EXPECT_EQ(design(Parametric, 1000, 1, 30), design(Parametric, 1000, 1, 20));
    EXPECT_EQ(design(LowShelf, 1000, 1, -25), design(LowShelf, 1000, 1, -20));
    EXPECT_EQ(design(LowShelf, 1000, 5, 6), design(LowShelf, 1000, 2, 6));
    EXPECT_EQ(design(HighShelf, 1000, 0.001f, 6), design(HighShelf, 1000, 0.01f, 6));
    EXPECT_EQ(design(Parametric, 1000, 100, 6), design(Parametric, 1000, 16, 6));
    EXPECT_EQ(design(BandPass, 1000, 20, 0), design(BandPass, 1000, 11, 0));
    EXPECT_EQ(design(ButterworthLP, 1000, 0.2f, 0), design(ButterworthLP, 1000, 9, 0));
    EXPECT_EQ(design(ButterworthHP, 1000, 0.2f, 0), design(ButterworthHP, 1000, 9, 0));
    // An unclamped design does differ, so the comparisons above can fail.
    EXPECT_FALSE(design(LowShelf, 1000, 1.5f, 6) == design(LowShelf, 1000, 2, 6));
}

TEST(FilterDesign, ExactZerosAndIdentity)
{
    const Coeffs bp = design(BandPass, 2500, 2.0f, 3.0f);
    EXPECT_EQ(bp.c[1], 0.0f);
    EXPECT_FALSE(std::signbit(bp.c[1]));

    const Coeffs flat = design(Parametric, 1000, 1, 0);  // 0 dB peak: an identity section
    EXPECT_EQ(flat.c[0], 1.0f);
    EXPECT_EQ(flat.c[1], flat.c[3]);
    EXPECT_EQ(flat.c[2], flat.c[4]);
}

TEST(FilterDesignDeathTest, UnknownTypeEndsTheProcess)
{
    float c[5];
    for (int type : {8, -1})
        EXPECT_EXIT(filter_calculateCoeffs(c, type, kFs, 1000, 1, 0), testing::ExitedWithCode(255),
                    "^LOG \\(filter_calculateCoeffs\\(\\): ,147\\), ErrorXXX: You should choose a filter "
                    "type!\n\n$");
}

// ---------------------------------------------------------------------------------

TEST(GainCurves, LimiterAtItsKnee)
{
    // knee 12 around -3 dB: straight up to -9, flat at -3 from +3 on.
    EXPECT_EQ(max_table_caculate(12, -3.0f, -3.0f), -4.5f);
    EXPECT_EQ(max_table_caculate(12, -9.0f, -3.0f), -9.0f);
    EXPECT_EQ(max_table_caculate(12, 3.0f, -3.0f), -3.0f);  // top of the knee meets the ceiling
    EXPECT_EQ(max_table_caculate(12, 5.0f, -3.0f), -3.0f);
    EXPECT_EQ(max_table_caculate(0, -9.0f, -3.0f), 0.0f);
    EXPECT_EQ(max_table_caculate(-4, -9.0f, -3.0f), 0.0f);
}

TEST(GainCurves, ExpanderCompressorRegions)
{
    // Noise -60, expansion to -40, +6 dB make-up, compression from -20 to a -6 dB peak.
    auto curve = [](float x) { return table_caculate(4, x, -60, -40, -20, 6, -6); };
    EXPECT_FLOAT_EQ(curve(-60), -60.0f);    // expansion line through (noise, noise)
    EXPECT_FLOAT_EQ(curve(-42), -36.6f);    // knee start: the expansion line's value
    EXPECT_FLOAT_EQ(curve(-38), -32.0f);    // knee end: constant gain
    EXPECT_EQ(curve(-30), -24.0f);          // constant gain
    EXPECT_EQ(curve(-22), -16.0f);          // constant gain up to the upper knee
    EXPECT_FLOAT_EQ(curve(-18), -13.2f);    // upper knee end: on the compression line
    EXPECT_FLOAT_EQ(curve(0), -6.0f);       // compression reaches max_peak at 0 dB
    EXPECT_EQ(table_caculate(0, -30, -60, -40, -20, 6, -6), 0.0f);
}

TEST(GainTableLookup, NearestEntryWithinTheGrid)
{
    std::vector<float> table(202);
    for (size_t i = 0; i < table.size(); i++)
        table[i] = static_cast<float>(i);
    auto at = [&](float level) { return table_search(200, table.data(), level, -100.0f, 1.0f); };
    EXPECT_EQ(at(-150.0f), 0.0f);  // below the grid
    EXPECT_EQ(at(-100.0f), 0.0f);
    EXPECT_EQ(at(-99.75f), 0.0f);
    EXPECT_EQ(at(-99.5f), 1.0f);   // half-way takes the upper entry
    EXPECT_EQ(at(-50.5f), 50.0f);
    EXPECT_EQ(at(100.0f), 200.0f);
    EXPECT_EQ(at(1e9f), 200.0f);   // never entry 201
    EXPECT_EQ(table_search(200, table.data(), -40.05f, -50.0f, 10.0f), 100.0f);  // 0.1 dB grid
}

// ---------------------------------------------------------------------------------

TEST(BiquadSection, ImpulseResponseAndReset)
{
    const float k[5] = {0.5f, 0.0f, 0.0f, -0.5f, 0.0f};
    float z[2] = {0.0f, 0.0f};
    BiquadState *b = biquad_init();
    biquad_setCoefficients(b, k);
    const float expect[] = {0.5f, 0.25f, 0.125f, 0.0625f};
    for (int i = 0; i < 4; i++) {
        const float x = i == 0 ? 1.0f : 0.0f;
        EXPECT_EQ(update_biquad_filter(k, z, x), expect[i]);
        EXPECT_EQ(biquad_processAudioSample(b, x), expect[i]);
    }
    biquad_reset(b);
    EXPECT_EQ(biquad_processAudioSample(b, 2.0f), 1.0f);  // only the current input counts
    biquad_reset(b);
    EXPECT_EQ(biquad_1st_processAudioSample(b, 1.0f), 0.5f);
    EXPECT_EQ(biquad_1st_processAudioSample(b, 0.0f), 0.25f);
    EXPECT_EQ(biquad_destroy(b), 0);
    EXPECT_EQ(biquad_destroy(nullptr), 0);
}

}  // namespace
