#include "target.h"

#include <cmath>
#include <cstdlib>

#include "layout.h"

namespace eqdrc_fit {
namespace {

constexpr char kTiltPrefix[] = "tilt:";
constexpr double kMaxTiltDbPerOctave = 6.0;  // beyond this it is not a house curve

}  // namespace

bool is_builtin_target(const std::string &option)
{
    return option == "flat" || option.rfind(kTiltPrefix, 0) == 0;
}

Target target_from_option(const std::string &option)
{
    Target t;
    if (option == "flat") {
        t.description = "flat";
        return t;
    }
    if (option.rfind(kTiltPrefix, 0) == 0) {
        const std::string number = option.substr(sizeof kTiltPrefix - 1);
        char *end = nullptr;
        t.tiltDbPerOctave = std::strtod(number.c_str(), &end);
        if (!number.empty() && *end == '\0' && std::fabs(t.tiltDbPerOctave) <= kMaxTiltDbPerOctave) {
            t.description = "tilt " + number + " dB/octave";
            return t;
        }
    }
    throw eqdrc_tool::Error("--target " + option + ": expected flat, tilt:DB_PER_OCTAVE (at most 6 either way) or a file");
}

Target target_from_curve(Curve curve, const std::string &name)
{
    Target t;
    t.curve = std::move(curve);
    t.description = name;
    return t;
}

std::vector<double> target_db(const Target &target, const std::vector<double> &gridHz)
{
    std::vector<double> db(gridHz.size());
    for (size_t i = 0; i < gridHz.size(); ++i)
        db[i] = target.curve.hz.empty() ? target.tiltDbPerOctave * std::log2(gridHz[i] / kTiltPivotHz)
                                        : level_at(target.curve, gridHz[i]);
    return db;
}

}  // namespace eqdrc_fit
