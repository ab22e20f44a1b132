// The fit against what it promises: the predicted curve is what the chain plays, typical
// speakers are corrected to within 1 dB, a known EQ is found again, the same input gives
// the same tuning bits, and a file that is not a response is refused with its line.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <memory>

#include "fit_tuning.h"
#include "tqaudio_eqdrc.h"

using namespace eqdrc_fit;

namespace {

using Analog = std::complex<double>;

// Analog prototypes of a speaker's parts, in dB at `hz` (not the library's designer, so
// the fit cannot simply find its own sections again).
double high_pass_db(double hz, double cornerHz, double q, int order)
{
    const Analog s(0.0, hz / cornerHz);
    const Analog h = s * s / (s * s + s / q + 1.0);
    return order * 10.0 * std::log10(std::norm(h));
}
double resonance_db(double hz, double centreHz, double q, double gainDb)
{
    const Analog s(0.0, hz / centreHz);
    const double a = std::pow(10.0, gainDb / 40.0);
    return 20.0 * std::log10(std::abs((s * s + s * a / q + 1.0) / (s * s + s / (a * q) + 1.0)));
}
double baffle_step_db(double hz, double stepHz) { return 6.0 - 3.0 * std::log2(1.0 + std::pow(stepHz / hz, 2.0)) / 2.0; }

// 1/48-octave points from 20 Hz to 20 kHz, with repeatable +-0.5 dB noise.
Curve speaker(double (*shape)(double))
{
    Curve c;
    uint32_t seed = 12345;
    for (double hz = 20.0; hz <= 20000.0; hz *= std::exp2(1.0 / 48.0)) {
        seed = seed * 1664525u + 1013904223u;
        c.hz.push_back(hz);
        c.db.push_back(85.0 + shape(hz) + (seed >> 8) / double(1 << 24) - 0.5);
    }
    return c;
}

FitResult fit(const Curve &c, double lowHz, double highHz)
{
    FitOptions o;
    o.lowHz = lowHz;
    o.highHz = highHz;
    return fit_tuning(c, "speaker", target_from_option("flat"), o, neutral_tuning());
}

double rms_after(const FitResult &r) { return r.report["after"]["rms_dB"].get<double>(); }

// The chain's gain at `hz`: a steady sine through the chain (EQ on, every other stage
// off), its amplitude taken over one second after one second of settling. A sine rather
// than an impulse: its 16-bit output, averaged over a second, reads to a thousandth of a dB.
double chain_gain_db(const eqdrc_tool::Record &rec, double hz)
{
    constexpr int kFrame = 768, kRate = 48000;
    std::unique_ptr<AudioPostState, int (*)(AudioPostState *)> chain(AudioPost_Init(rec.data(), kFrame),
                                                                     AudioPost_Destroy);
    std::vector<int16_t> pcm(2 * kFrame);
    double in[2] = {0, 0}, out[2] = {0, 0};
    for (int n0 = 0; n0 < 2 * kRate; n0 += kFrame) {
        for (int i = 0; i < kFrame; ++i)
            pcm[2 * i] = pcm[2 * i + 1] = int16_t(std::lround(8000.0 * std::sin(2.0 * M_PI * hz * (n0 + i) / kRate)));
        std::vector<int16_t> x = pcm;
        AudioPost_Process(chain.get(), pcm.data(), pcm.data(), 2, kFrame);
        for (int i = 0; i < kFrame && n0 >= kRate; ++i) {
            const double w = 2.0 * M_PI * hz * (n0 + i) / kRate;
            in[0] += x[2 * i] * std::sin(w), in[1] += x[2 * i] * std::cos(w);
            out[0] += pcm[2 * i] * std::sin(w), out[1] += pcm[2 * i] * std::cos(w);
        }
    }
    return 10.0 * std::log10((out[0] * out[0] + out[1] * out[1]) / (in[0] * in[0] + in[1] * in[1]));
}

}  // namespace

TEST(FitQuality, SyntheticSpeakersComeWithinOneDecibel)
{
    double (*const speakers[])(double) = {
        [](double f) {  // closed box, baffle step, two resonances, tweeter peak
            return high_pass_db(f, 70, 0.7, 1) + baffle_step_db(f, 400) + resonance_db(f, 900, 4, 3) +
                   resonance_db(f, 2500, 3, -4) + resonance_db(f, 12000, 2, 4);
        },
        [](double f) {  // ported box, three resonances, a falling top
            return high_pass_db(f, 50, 0.7, 2) + resonance_db(f, 180, 2, 4) + resonance_db(f, 1500, 5, -5) +
                   resonance_db(f, 4000, 2.5, 3) + resonance_db(f, 9000, 0.7, -3);
        }};
    for (auto shape : speakers) {
        const FitResult r = fit(speaker(shape), 100, 10000);
        EXPECT_LE(rms_after(r), 1.0) << r.summary;
        EXPECT_GT(r.report["below_range"]["shortfall_dB"].get<double>(), 0.0) << "the roll-off is reported";
    }
}

TEST(FitQuality, FindsAKnownEqAgainAndGivesTheSameBitsTwice)
{
    const std::vector<Band> known = {{LowShelf, 150, 0.7f, -4}, {Parametric, 300, 2, 3},   {Parametric, 700, 4, -6},
                                     {Parametric, 1200, 1, 2},  {Parametric, 2000, 5, -3}, {Parametric, 3500, 3, 4},
                                     {Parametric, 5000, 0.8f, -2}, {Parametric, 7000, 4, -5}, {Parametric, 9000, 2, 3},
                                     {HighShelf, 12000, 0.8f, -3}};
    Curve c;
    for (double hz = 20.0; hz <= 20000.0; hz *= std::exp2(1.0 / 48.0))
        c.hz.push_back(hz);
    c.db = cascade_db(known, 48000.0f, c.hz);
    for (double &db : c.db)
        db = 80.0 - db;
    const FitResult first = fit(c, 80, 16000), second = fit(c, 80, 16000);
    EXPECT_LE(rms_after(first), 0.3) << first.summary;
    EXPECT_EQ(std::memcmp(first.tuning.data(), second.tuning.data(), sizeof first.tuning), 0);
}

TEST(FitQuality, PredictedCurveIsWhatTheChainPlays)
{
    const FitResult r = fit(speaker([](double f) {
        return high_pass_db(f, 60, 0.7, 1) + resonance_db(f, 300, 3, -6) + resonance_db(f, 4000, 2, 5);
    }), 80, 16000);
    const FitCurves &c = r.facts.curves;
    ASSERT_GE(r.facts.bands.size(), 3u);
    for (size_t i = 0; i < c.hz.size(); i += 8)
        EXPECT_NEAR(chain_gain_db(r.tuning, c.hz[i]), c.eqDb[i], 0.05) << c.hz[i] << " Hz";
}

TEST(MeasurementFiles, ReadWhatToolsExportAndRefuseTheRestByLine)
{
    const std::string rew = "* Measurement data measured by REW\n* Freq(Hz) SPL(dB) Phase(degrees)\n";
    const std::string csv = "Frequency,SPL\n", points = "100 80\n200 81\n300 82\n400 81\n500 80\n600 79\n700 80\n";
    EXPECT_EQ(parse_curve(rew + "50 79 12.5\n" + points, "m").hz.size(), 8u);
    EXPECT_EQ(parse_curve(csv + "50,79\n" + points, "m").db[0], 79.0);

    const std::pair<std::string, std::string> refused[] = {
        {points, "m: 7 point(s)"},
        {"50 79\n" + points + "650 80\n", "m:9: frequency 650 Hz does not increase"},
        {"50 nan\n" + points, "m:1: frequency 50 Hz, level nan dB: not finite"},
        {"50 1e6\n" + points, "m:1: level 1e+06 dB is outside"},
        {"50 79\n" + points + "800 eighty\n", "m:9: expected a frequency and a level"}};
    for (const auto &[text, reason] : refused) {
        try {
            parse_curve(text, "m");
            ADD_FAILURE() << "accepted: " << reason;
        } catch (const eqdrc_tool::Error &e) {
            EXPECT_EQ(std::string(e.what()).rfind(reason, 0), 0u) << e.what();
            EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos);
        }
    }
}
