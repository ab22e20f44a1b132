#include "fit_tuning.h"

#include <cmath>
#include <cstdio>

#include "check.h"
#include "grid.h"
#include "neutral_tuning.h"  // generated from tunings/bypass.bin: kNeutralTuning
#include "tqaudio_eqdrc.h"

namespace eqdrc_fit {
namespace {

using eqdrc_tool::Error;
using eqdrc_tool::Layout;
using eqdrc_tool::Record;

constexpr double kNoBoostOctaves = 2.0;        // below the range, where the EQ must not boost
constexpr double kNoBoostPointsPerOctave = 6.0;
constexpr double kMaxSmoothOctaves = 1.0;
constexpr int kCheckFrame = 768;               // the tool's default host frame

std::string num(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

std::string band_path(int channel, int band, const char *field)
{
    return "eq10.channels[" + std::to_string(channel) + "].bands[" + std::to_string(band) + "]." + field;
}

// The band count comes from the layout, the one description of the record.
int eq_bands()
{
    int n = 0;
    while (Layout::embedded().find(band_path(0, n, "enable")))
        ++n;
    return n;
}

float get(const Record &rec, const std::string &path) { return rec[static_cast<size_t>(Layout::embedded().word(path))]; }
void set(Record &rec, const std::string &path, float v) { rec[static_cast<size_t>(Layout::embedded().word(path))] = v; }

void check_options(const FitOptions &o, float sampleRate)
{
    const FitLimits &l = o.limits;
    if (!(o.lowHz > 0.0 && o.lowHz < o.highHz && o.highHz < 0.5 * sampleRate))
        throw Error("--range " + num(o.lowHz) + "-" + num(o.highHz) + ": must rise from above 0 to below half the " +
                    "sample rate (" + num(0.5 * sampleRate) + " Hz)");
    if (!(o.smoothOctaves >= 0.0 && o.smoothOctaves <= kMaxSmoothOctaves))
        throw Error("--smooth: must lie between 0 (none) and 1 octave");
    if (l.bands < 1 || l.bands > eq_bands())
        throw Error("--bands " + std::to_string(l.bands) + ": the EQ has 1 to " + std::to_string(eq_bands()));
    if (!(l.maxBoostDb >= 0.0 && l.maxBoostDb <= EQDRC_DESIGN_GAIN_MAX_DB && l.maxCutDb >= 0.0 &&
          l.maxCutDb <= EQDRC_DESIGN_GAIN_MAX_DB))
        throw Error("--max-boost and --max-cut: must lie between 0 and " + num(EQDRC_DESIGN_GAIN_MAX_DB) +
                    " dB (the designer's limit)");
    if (!(l.qMin >= EQDRC_DESIGN_Q_MIN && l.qMin <= l.qMax && l.qMax <= EQDRC_DESIGN_Q_MAX))
        throw Error("--q " + num(l.qMin) + "-" + num(l.qMax) + ": must rise within the designer's " +
                    num(EQDRC_DESIGN_Q_MIN) + "-" + num(EQDRC_DESIGN_Q_MAX));
}

std::vector<int> fitted_channels(const FitOptions &o, const Record &base)
{
    const int channels = static_cast<int>(get(base, "header.channels"));
    const bool linked = get(base, "header.channel_link") != 0.0f;
    if (o.channel == kBothChannels) {
        std::vector<int> all;
        for (int c = 0; c < channels && Layout::embedded().find(band_path(c, 0, "enable")); ++c)
            all.push_back(c);
        return all;
    }
    if (o.channel < 0 || o.channel >= channels)
        throw Error("--channel " + std::to_string(o.channel) + ": the base tuning has " + std::to_string(channels) +
                    " channel(s)");
    if (linked && o.channel != 0)
        throw Error("--channel " + std::to_string(o.channel) + ": the base tuning links its channels, so every " +
                    "channel plays channel 0's bands");
    return {o.channel};
}

Record with_bands(Record rec, const std::vector<Band> &bands, const std::vector<int> &channels)
{
    set(rec, "header.enable.eq10", 1.0f);
    for (int c : channels)
        for (int b = 0; b < eq_bands(); ++b) {
            const bool used = b < static_cast<int>(bands.size());
            const Band none{Parametric, 0.0f, 0.0f, 0.0f};
            const Band &band = used ? bands[static_cast<size_t>(b)] : none;
            set(rec, band_path(c, b, "enable"), used ? 1.0f : 0.0f);
            set(rec, band_path(c, b, "filterTypes"), static_cast<float>(band.type));
            set(rec, band_path(c, b, "fc"), band.fc);
            set(rec, band_path(c, b, "Q"), band.q);
            set(rec, band_path(c, b, "boost"), band.gainDb);
        }
    return rec;
}

}  // namespace

Record neutral_tuning()
{
    return eqdrc_tool::record_from_bytes(
        std::string(reinterpret_cast<const char *>(kNeutralTuning), sizeof kNeutralTuning));
}

FitResult fit_tuning(const Curve &measurement, const std::string &name, const Target &target,
                     const FitOptions &options, const Record &base)
{
    const float fs = get(base, "header.sample_rate");
    check_options(options, fs);
    if (measurement.hz.front() > options.lowHz || measurement.hz.back() < options.highHz)
        throw Error(name + ": the measurement covers " + num(measurement.hz.front()) + "-" +
                    num(measurement.hz.back()) + " Hz; --range " + num(options.lowHz) + "-" + num(options.highHz) +
                    " reaches beyond it");
    const std::vector<int> channels = fitted_channels(options, base);

    FitResult r;
    ReportFacts &f = r.facts;
    f.measurement = name;
    f.target = target.description;
    f.sampleRate = fs;
    f.lowHz = options.lowHz;
    f.highHz = options.highHz;
    f.smoothOctaves = options.smoothOctaves;
    f.channels = channels;

    // The target at the measurement's mean level over the range: the fit shapes, it does
    // not shift.
    FitCurves &c = f.curves;
    c.hz = log_grid(options.lowHz, options.highHz);
    c.measuredDb = smooth_onto(measurement, c.hz, options.smoothOctaves);
    c.targetDb = target_db(target, c.hz);
    double offset = 0.0;
    for (size_t i = 0; i < c.hz.size(); ++i)
        offset += c.measuredDb[i] - c.targetDb[i];
    offset /= static_cast<double>(c.hz.size());

    FitProblem p;
    p.sampleRate = fs;
    p.hz = c.hz;
    p.limits = options.limits;
    for (size_t i = 0; i < c.hz.size(); ++i) {
        c.targetDb[i] += offset;
        p.wantedDb.push_back(c.targetDb[i] - c.measuredDb[i]);
    }
    p.noBoostHz = log_grid(options.lowHz * std::exp2(-kNoBoostOctaves), options.lowHz, kNoBoostPointsPerOctave);
    p.noBoostHz.pop_back();  // the range's first point

    f.bands = fit_bands(p);
    c.eqDb = cascade_db(f.bands, fs, c.hz);
    for (const Band &b : f.bands)
        c.bandDb.push_back(response_db(b, fs, c.hz));

    const double octaveBelow = 0.5 * options.lowHz;
    if (measurement.hz.front() <= octaveBelow) {
        const std::vector<double> at = {octaveBelow};
        f.below = {true, octaveBelow,
                   target_db(target, at)[0] + offset - smooth_onto(measurement, at, options.smoothOctaves)[0]};
    }

    r.tuning = with_bands(base, f.bands, channels);
    for (const eqdrc_tool::Issue &issue : eqdrc_tool::check_tuning(r.tuning, kCheckFrame))
        if (issue.severity == eqdrc_tool::Severity::Error)
            throw Error(name + ": the fitted tuning fails the check (" + eqdrc_tool::format_issue(issue) +
                        "); nothing written");
    r.report = make_report(f);
    r.summary = summary_line(f);
    return r;
}

}  // namespace eqdrc_fit
