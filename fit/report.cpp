#include "report.h"

#include <cmath>
#include <cstdio>

namespace eqdrc_fit {
namespace {

using eqdrc_tool::OrderedJson;

constexpr double kReportStepDb = 0.001;  // figures are kept to the thousandth of a dB

double rounded(double v) { return std::round(v / kReportStepDb) * kReportStepDb; }

OrderedJson figures(const Deviation &d) { return {{"rms_dB", rounded(d.rmsDb)}, {"max_dB", rounded(d.maxDb)}}; }

OrderedJson rounded_list(const std::vector<double> &v)
{
    OrderedJson out = OrderedJson::array();
    for (double x : v)
        out.push_back(rounded(x));
    return out;
}

std::vector<double> sum(const std::vector<double> &a, const std::vector<double> &b)
{
    std::vector<double> out(a);
    for (size_t i = 0; i < out.size(); ++i)
        out[i] += b[i];
    return out;
}

std::string smoothing_text(double octaves)
{
    if (octaves <= 0.0)
        return "no smoothing";
    char buf[48];
    std::snprintf(buf, sizeof buf, "1/%g octave", std::round(1.0 / octaves * 100.0) / 100.0);
    return buf;
}

// The filter type's name as tunings write it.
std::string type_name(int type)
{
    return eqdrc_tool::Layout::embedded().labels("filter_type").at(static_cast<size_t>(type));
}

}  // namespace

Deviation deviation(const std::vector<double> &levelDb, const std::vector<double> &targetDb)
{
    Deviation d;
    double squares = 0.0;
    for (size_t i = 0; i < levelDb.size(); ++i) {
        const double e = levelDb[i] - targetDb[i];
        squares += e * e;
        d.maxDb = std::max(d.maxDb, std::fabs(e));
    }
    d.rmsDb = levelDb.empty() ? 0.0 : std::sqrt(squares / static_cast<double>(levelDb.size()));
    return d;
}

OrderedJson make_report(const ReportFacts &f)
{
    const FitCurves &c = f.curves;
    const std::vector<double> predicted = sum(c.measuredDb, c.eqDb);
    OrderedJson bands = OrderedJson::array();
    for (const Band &b : f.bands)
        bands.push_back({{"filterTypes", type_name(b.type)},
                         {"fc", rounded(b.fc)},
                         {"Q", rounded(b.q)},
                         {"boost", rounded(b.gainDb)}});
    OrderedJson below = {{"eq_boost", "none: the fit does not boost below the range; a roll-off there is left to "
                                      "the bass enhancer"}};
    if (f.below.measured) {
        below["hz"] = rounded(f.below.hz);
        below["shortfall_dB"] = rounded(f.below.shortfallDb);
    }
    OrderedJson bandCurves = OrderedJson::array();
    for (const std::vector<double> &b : c.bandDb)
        bandCurves.push_back(rounded_list(b));
    return {{"measurement", f.measurement},
            {"target", f.target},
            {"sample_rate", f.sampleRate},
            {"range_hz", {f.lowHz, f.highHz}},
            {"smoothing", smoothing_text(f.smoothOctaves)},
            {"channels", f.channels},
            {"before", figures(deviation(c.measuredDb, c.targetDb))},
            {"after", figures(deviation(predicted, c.targetDb))},
            {"bands", bands},
            {"below_range", below},
            {"curves",
             {{"hz", rounded_list(c.hz)},
              {"measured_dB", rounded_list(c.measuredDb)},
              {"target_dB", rounded_list(c.targetDb)},
              {"predicted_dB", rounded_list(predicted)},
              {"eq_dB", rounded_list(c.eqDb)},
              {"band_dB", bandCurves}}}};
}

std::string summary_line(const ReportFacts &f)
{
    const Deviation before = deviation(f.curves.measuredDb, f.curves.targetDb);
    const Deviation after = deviation(sum(f.curves.measuredDb, f.curves.eqDb), f.curves.targetDb);
    char buf[256];
    std::snprintf(buf, sizeof buf, "%zu band(s), %g-%g Hz at %s: RMS %.2f -> %.2f dB, max %.2f -> %.2f dB",
                  f.bands.size(), f.lowHz, f.highHz, smoothing_text(f.smoothOctaves).c_str(), before.rmsDb,
                  after.rmsDb, before.maxDb, after.maxDb);
    std::string line = f.measurement + ": " + buf;
    if (f.below.measured && f.below.shortfallDb > 0.0) {
        std::snprintf(buf, sizeof buf, "; %.1f dB short at %g Hz, left to the bass enhancer", f.below.shortfallDb,
                      std::round(f.below.hz));
        line += buf;
    }
    return line;
}

}  // namespace eqdrc_fit
