// Helpers for the plugin tests: a music-like test signal, the chain run directly, frame
// by frame, as `eqdrc process` runs it, and the shipped tunings fitted, altered and saved.
#ifndef EQDRC_PLUGIN_TEST_SUPPORT_H
#define EQDRC_PLUGIN_TEST_SUPPORT_H

#include <cmath>
#include <cstdint>
#include <vector>

#include <tqaudio_eqdrc.h>

#include "support/test_support.h"
#include "tool_test_support.h"
#include "tuning.h"
#include "tuning_source.h"

namespace eqdrc_plugin_test {

using eqdrc_plugin::Record;

// Chords, a bass line and noise bursts, loud enough for every stage to act.
inline std::vector<int16_t> music(size_t frames, int channels)
{
    std::vector<int16_t> pcm(frames * channels);
    uint32_t noise = 1;
    for (size_t i = 0; i < frames; i++) {
        double t = static_cast<double>(i) / 48000.0;
        double burst = std::exp(-static_cast<double>(i % 12000) / 800.0);
        for (int c = 0; c < channels; c++) {
            noise = noise * 1664525u + 1013904223u;
            double n = (static_cast<double>(noise >> 8) / 8388608.0 - 1.0) * burst;
            double v = 0.35 * std::sin(2 * M_PI * (110.0 + 55.0 * c) * t) + 0.2 * std::sin(2 * M_PI * 1320.0 * t) +
                       0.15 * std::sin(2 * M_PI * 6100.0 * t) + 0.25 * n;
            pcm[i * channels + c] = static_cast<int16_t>(std::lround(v * 26000.0));
        }
    }
    return pcm;
}

// The chain over `in` in frames of `frameLen`, the partial last frame padded with
// silence and its padding trimmed; `second` is applied with AudioPost_SetPara before
// frame `swapAt` (never when negative).
inline std::vector<int16_t> reference(const Record &rec, int frameLen, const std::vector<int16_t> &in,
                                      const Record *second = nullptr, long long swapAt = -1)
{
    int channels = eqdrc_plugin::tuning_format(rec).channels;
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), frameLen);
    std::vector<int16_t> out, frame(static_cast<size_t>(frameLen) * channels);
    size_t total = in.size() / channels;
    for (size_t at = 0, index = 0; at < total; at += frameLen, index++) {
        size_t real = std::min<size_t>(frameLen, total - at);
        std::fill(frame.begin(), frame.end(), int16_t{0});
        std::copy(in.begin() + at * channels, in.begin() + (at + real) * channels, frame.begin());
        if (second && static_cast<long long>(index) == swapAt)
            AudioPost_SetPara(st, second->data(), frameLen);
        AudioPost_Process(st, frame.data(), frame.data(), channels, frameLen);
        out.insert(out.end(), frame.begin(), frame.begin() + real * channels);
    }
    eqdrc_test::destroy_quietly(st);
    return out;
}

inline Record shipped_tuning(const char *name)
{
    return eqdrc_tool::read_tuning(std::string(EQDRC_SOURCE_DIR) + "/tunings/" + name);
}

// A shipped tuning adapted to a stream of `rate` Hz with `channels` channels.
inline Record fitted(const char *name, int rate, int channels, int frameLen = 768)
{
    Record rec;
    std::string error;
    EXPECT_TRUE(eqdrc_plugin::fit_tuning(shipped_tuning(name), name, rate, channels, true, frameLen, rec, error))
        << error;
    return rec;
}

// `rec` with one word set, e.g. to a value the check refuses.
inline Record altered(Record rec, const char *word, float value)
{
    rec[eqdrc_tool::Layout::embedded().word(word)] = value;
    return rec;
}

// Writes `rec` as a binary tuning file at `path`, in place, and returns the path.
inline std::string saved(const std::string &path, const Record &rec)
{
    eqdrc_tool_test::spit(path, eqdrc_tool::record_to_bytes(rec));
    return path;
}

}  // namespace eqdrc_plugin_test

#endif
