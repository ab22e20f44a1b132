#include "options.h"

#include <cstdlib>
#include <tuple>
#include <utility>

namespace eqdrc_fit {
namespace {

using eqdrc_tool::Error;

double number(const std::string &text, const std::string &option)
{
    char *end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0')
        throw Error(option + ": \"" + text + "\" is not a number");
    return v;
}

// "LOW-HIGH"; the dash is looked for after the first character, so neither may be negative.
std::pair<double, double> span(const std::string &text, const std::string &option)
{
    const size_t dash = text.find('-', 1);
    if (dash == std::string::npos)
        throw Error(option + " " + text + ": expected LOW-HIGH");
    return {number(text.substr(0, dash), option), number(text.substr(dash + 1), option)};
}

// "1/N" octave, a width in octaves, or 0 for none.
double octaves(const std::string &text)
{
    if (text.rfind("1/", 0) == 0) {
        const double n = number(text.substr(2), "--smooth");
        if (n > 0.0)
            return 1.0 / n;
    }
    return number(text, "--smooth");
}

int channel(const std::string &text)
{
    if (text == "both")
        return kBothChannels;
    if (text == "0" || text == "1")
        return text[0] - '0';
    throw Error("--channel " + text + ": expected 0, 1 or both");
}

}  // namespace

FitOptions read_options(const OptionText &text)
{
    FitOptions o;
    std::tie(o.lowHz, o.highHz) = span(text.range, "--range");
    std::tie(o.limits.qMin, o.limits.qMax) = span(text.q, "--q");
    o.smoothOctaves = octaves(text.smooth);
    o.limits.bands = text.bands;
    o.limits.maxBoostDb = text.maxBoostDb;
    o.limits.maxCutDb = text.maxCutDb;
    o.channel = channel(text.channel);
    return o;
}

FitRequest FitRequest::from_json(const nlohmann::json &q)
{
    FitRequest r;
    OptionText &o = r.options;
    o.range = q.value("range", o.range);
    o.smooth = q.value("smooth", o.smooth);
    o.q = q.value("q", o.q);
    o.channel = q.value("channel", o.channel);
    o.bands = q.value("bands", o.bands);
    o.maxBoostDb = q.value("max_boost", o.maxBoostDb);
    o.maxCutDb = q.value("max_cut", o.maxCutDb);
    r.target = q.value("target", r.target);
    r.targetFromText = q.contains("target_text");
    if (r.targetFromText)
        r.targetText = q.at("target_text").get<std::string>();
    return r;
}

Target FitRequest::read_target() const
{
    return targetFromText ? target_from_curve(parse_curve(targetText, target), target) : target_from_option(target);
}

}  // namespace eqdrc_fit
