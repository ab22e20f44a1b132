// Runs the chain over an audio file (anything libsndfile reads, mono or stereo) and
// measures the loudness of the input and the output with libebur128.
#ifndef EQDRC_TOOL_PROCESS_H
#define EQDRC_TOOL_PROCESS_H

#include <cstdio>
#include <string>
#include <vector>

#include "adapt.h"
#include "check.h"
#include "layout.h"
#include "loudness.h"

namespace eqdrc_tool {

struct ProcessOptions {
    std::string input;
    std::string output;
    std::string tuning;  // empty: the built-in default
    int frameLen = 768;
    std::vector<std::string> bypass;  // stage names, as in header.enable
    bool verbose = false;             // pass the library's log through
    bool force = false;               // the output may replace an input
};

struct ProcessSummary {
    Loudness input, output;
    long long frames = 0;  // samples per channel
    int sampleRate = 0;
    int channels = 0;
    double processSeconds = 0.0;  // time spent inside the library
    std::vector<std::string> warnings;  // output samples above the limiter's ceiling
};

// Processes the whole file; notes, warnings and the progress bar go to `log`. The output
// appears only when everything succeeded. Throws Error naming the file and the problem.
ProcessSummary process_file(const ProcessOptions &options, FILE *log);
void print_summary(const ProcessSummary &s, FILE *out);

}  // namespace eqdrc_tool

#endif
