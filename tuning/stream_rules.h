// The rules applied before the chain runs over a file, written once: which inputs are
// refused, how the tuning is adapted to the file and checked, and the warning about
// output peaks above the limiter's ceiling. `eqdrc process` calls them directly; the
// Python package calls them through the small C interface of rules_capi.cpp, so both
// refuse and warn with the same words.
#ifndef EQDRC_TOOL_STREAM_RULES_H
#define EQDRC_TOOL_STREAM_RULES_H

#include <string>
#include <vector>

#include "layout.h"

namespace eqdrc_tool {

struct StreamRequest {
    std::string input;       // the audio file, as messages name it
    int sampleRate = 0;
    int channels = 0;
    int bitsPerSample = 16;  // of the file's samples; 0 when the format has no fixed width
    std::string tuningName;  // as messages name it
    Record tuning{};
    std::vector<std::string> bypass;  // stage names, as in header.enable
    int frameLen = 768;
};

struct StreamPlan {
    Record record{};               // the tuning as it will run
    std::vector<std::string> log;  // notes and check results, one line each, unprefixed
    std::string refusal;           // why the file must not be processed; empty when it may
    std::vector<float> ceilingDb;  // the maximizer's ceiling per channel; empty when it is off
};

StreamPlan plan_stream(const StreamRequest &request);

// The warning for output samples above a channel's ceiling; empty when there are none.
std::string ceiling_warning(int channel, long long count, float ceilingDb, double highestDbfs);

// The stage names --bypass takes, comma separated.
std::string stage_names();

}  // namespace eqdrc_tool

#endif
