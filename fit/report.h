// What a fit reports: the deviation from the target before and after, the bands, what was
// left below the range, and the curves for pictures; as JSON and as one line for people.
#ifndef EQDRC_FIT_REPORT_H
#define EQDRC_FIT_REPORT_H

#include <string>
#include <vector>

#include "band.h"
#include "tuning.h"

namespace eqdrc_fit {

struct Deviation {
    double rmsDb = 0.0, maxDb = 0.0;  // max is of the absolute deviation
};
Deviation deviation(const std::vector<double> &levelDb, const std::vector<double> &targetDb);

// On the range's grid; the target already at the measurement's level.
struct FitCurves {
    std::vector<double> hz, measuredDb, targetDb, eqDb;
    std::vector<std::vector<double>> bandDb;
};

struct BelowRange {
    bool measured = false;   // the measurement reaches an octave below the range
    double hz = 0.0;         // that octave's frequency
    double shortfallDb = 0;  // how far the measurement lies under the target there
};

struct ReportFacts {
    std::string measurement, target;
    float sampleRate;
    double lowHz, highHz, smoothOctaves;
    std::vector<int> channels;
    std::vector<Band> bands;
    BelowRange below;
    FitCurves curves;
};

eqdrc_tool::OrderedJson make_report(const ReportFacts &facts);
// "NAME: 10 bands, 80-16000 Hz at 1/6 octave: RMS 3.10 -> 0.62 dB, max 9.71 -> 1.90 dB"
std::string summary_line(const ReportFacts &facts);

}  // namespace eqdrc_fit

#endif
