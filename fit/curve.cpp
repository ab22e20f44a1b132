// Reading responses from text: the formats measurement tools export, told apart only by
// their separators and comment marks.
#include "curve.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "layout.h"  // eqdrc_tool::Error, the one error every tool message travels in

namespace eqdrc_fit {
namespace {

using eqdrc_tool::Error;

bool is_comment(const std::string &line)
{
    const size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos)
        return true;  // blank
    const char c = line[start];
    return c == '*' || c == '#' || c == ';' || line.compare(start, 2, "//") == 0;
}

std::vector<std::string> split_fields(const std::string &line)
{
    std::vector<std::string> fields;
    std::string field;
    for (char c : line + '\n') {
        if (c == ' ' || c == '\t' || c == ',' || c == ';' || c == '\r' || c == '\n') {
            if (!field.empty())
                fields.push_back(field);
            field.clear();
        } else {
            field += c;
        }
    }
    return fields;
}

// The whole field must be a number ("nan" and "inf" read, and are refused later by name).
bool read_number(const std::string &field, double &value)
{
    char *end = nullptr;
    value = std::strtod(field.c_str(), &end);
    return end != field.c_str() && *end == '\0';
}

std::string where(const std::string &name, size_t line) { return name + ":" + std::to_string(line) + ": "; }

std::string text(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

// The reason a point cannot follow `previousHz`, or empty.
std::string point_problem(double hz, double db, double previousHz)
{
    if (!std::isfinite(hz) || !std::isfinite(db))
        return "frequency " + text(hz) + " Hz, level " + text(db) + " dB: not finite";
    if (hz <= 0.0)
        return "frequency " + text(hz) + " Hz is not positive";
    if (hz <= previousHz)
        return "frequency " + text(hz) + " Hz does not increase (the previous is " + text(previousHz) + " Hz)";
    if (db < kMinPlausibleDb || db > kMaxPlausibleDb)
        return "level " + text(db) + " dB is outside any plausible range (" + text(kMinPlausibleDb) + " to " +
               text(kMaxPlausibleDb) + " dB)";
    return {};
}

void check_count(size_t points, const std::string &name)
{
    if (points < kMinCurvePoints)
        throw Error(name + ": " + std::to_string(points) + " point(s) of frequency and level; a response needs at least " +
                    std::to_string(kMinCurvePoints));
}

}  // namespace

Curve parse_curve(const std::string &input, const std::string &name)
{
    Curve curve;
    size_t lineNo = 0, start = 0;
    while (start < input.size()) {
        size_t end = input.find('\n', start);
        if (end == std::string::npos)
            end = input.size();
        const std::string line = input.substr(start, end - start);
        start = end + 1;
        ++lineNo;
        if (is_comment(line))
            continue;
        const std::vector<std::string> fields = split_fields(line);
        double hz = 0.0, db = 0.0;
        const bool numeric = fields.size() >= 2 && read_number(fields[0], hz) && read_number(fields[1], db);
        if (!numeric) {
            if (curve.hz.empty() && (fields.empty() || !read_number(fields[0], hz)))
                continue;  // a header line ("Freq(Hz), SPL(dB), Phase(degrees)")
            throw Error(where(name, lineNo) + "expected a frequency and a level, found \"" + line.substr(0, 40) + "\"");
        }
        const std::string problem = point_problem(hz, db, curve.hz.empty() ? 0.0 : curve.hz.back());
        if (!problem.empty())
            throw Error(where(name, lineNo) + problem);
        curve.hz.push_back(hz);
        curve.db.push_back(db);
    }
    check_count(curve.hz.size(), name);
    return curve;
}

void check_curve(const Curve &curve, const std::string &name)
{
    double previous = 0.0;
    for (size_t i = 0; i < curve.hz.size(); ++i) {
        const std::string problem = point_problem(curve.hz[i], curve.db[i], previous);
        if (!problem.empty())
            throw Error(name + ": point " + std::to_string(i + 1) + ": " + problem);
        previous = curve.hz[i];
    }
    check_count(curve.hz.size(), name);
}

double level_at(const Curve &curve, double hz)
{
    if (hz <= curve.hz.front())
        return curve.db.front();
    if (hz >= curve.hz.back())
        return curve.db.back();
    const size_t i = static_cast<size_t>(std::upper_bound(curve.hz.begin(), curve.hz.end(), hz) - curve.hz.begin());
    const double t = std::log(hz / curve.hz[i - 1]) / std::log(curve.hz[i] / curve.hz[i - 1]);
    return curve.db[i - 1] + t * (curve.db[i] - curve.db[i - 1]);
}

}  // namespace eqdrc_fit
