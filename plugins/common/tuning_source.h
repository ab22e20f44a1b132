// Tunings as the plugins take them: a binary record or a JSON tuning, fitted to the
// stream that will play it and checked with the same rules as `eqdrc tuning check`.
#ifndef EQDRC_PLUGIN_TUNING_SOURCE_H
#define EQDRC_PLUGIN_TUNING_SOURCE_H

#include <string>

#include "layout.h"

namespace eqdrc_plugin {

using Record = eqdrc_tool::Record;
constexpr int kDefaultFrameLen = 768;

// The stream a record was made for: its sample-rate and channel-count words.
struct TuningFormat {
    int sampleRate = 0;
    int channels = 0;
};
TuningFormat tuning_format(const Record &rec);

// Reads a binary record or a JSON tuning (first non-blank character '{'). On failure
// `error` is one line naming the file and the problem.
bool read_tuning_file(const std::string &path, Record &out, std::string &error);

// Fits `raw` (read from `name`) to a stream of `sampleRate` Hz and `channels` channels:
// with `adapt` the record is adapted as `eqdrc process` adapts it, else a different rate
// or channel count is refused with a message naming both values. Then the record is
// checked for a chain of `frameLen` samples per frame and refused on the first error.
bool fit_tuning(const Record &raw, const std::string &name, int sampleRate, int channels, bool adapt,
                int frameLen, Record &out, std::string &error);

// read_tuning_file then fit_tuning.
bool load_tuning(const std::string &path, int sampleRate, int channels, bool adapt, int frameLen, Record &out,
                 std::string &error);

}  // namespace eqdrc_plugin

#endif
