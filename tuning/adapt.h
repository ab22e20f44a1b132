// A tuning made to fit the stream it will run on: the built-in default record, and the
// adjustments for another sample rate, channel count or bypassed stages.
#ifndef EQDRC_TOOL_ADAPT_H
#define EQDRC_TOOL_ADAPT_H

#include <string>
#include <vector>

#include "layout.h"

namespace eqdrc_tool {

// The record the built-in default tuning holds (the demo's reference tuning).
Record default_tuning();

// The record as it will run on a stream: its rate and channel count, the bypassed
// stages switched off. Each adjustment is described in `notes`.
Record adapt_tuning(Record rec, int sampleRate, int channels, const std::vector<std::string> &bypass,
                    std::vector<std::string> &notes);

}  // namespace eqdrc_tool

#endif
