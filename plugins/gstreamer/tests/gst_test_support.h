// Helpers for the element's tests: WAV files, pipelines run to their end with what the bus
// said, the buffers reaching a pad, and the hand-overs the element logged.
#ifndef EQDRC_GST_TEST_SUPPORT_H
#define EQDRC_GST_TEST_SUPPORT_H

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace eqdrc_gst_test {

constexpr int kRate = 48000;

// A canonical 16-bit PCM WAV file, and the samples of the data chunk of any WAV file.
void write_wav(const std::string &path, const std::vector<int16_t> &samples, int channels, int rate = kRate);
std::vector<int16_t> wav_samples(const std::string &path);

// What a pipeline posted until it ended.
struct BusLog {
    bool reachedEos = false;
    std::vector<std::string> errors;    // "message (debug)"
    std::vector<std::string> warnings;
    bool said(const std::string &text) const;  // in any error or warning
};

// Plays `pipeline` to its end (EOS or an error), at most `timeoutSeconds`.
BusLog run_to_end(GstElement *pipeline, int timeoutSeconds = 120);
BusLog run_to_end(const std::string &description, int timeoutSeconds = 120);
// Collects the bus messages already posted without waiting.
void collect(GstElement *pipeline, BusLog &log);

// Records the samples and timestamps of the buffers reaching a pad; a flush starts afresh.
class PadRecorder {
public:
    explicit PadRecorder(GstPad *pad);
    ~PadRecorder();
    std::vector<int16_t> samples;
    std::vector<GstClockTime> pts, durations;
    std::vector<bool> discont;
    std::vector<size_t> sizes;  // bytes
    std::atomic<size_t> received{0};  // samples since the start, safe to read while playing
    // Waits until at least `n` samples arrived (at most 60 s).
    void wait_for(size_t n) const;

private:
    static GstPadProbeReturn probe(GstPad *pad, GstPadProbeInfo *info, gpointer self);
    GstPad *pad_;
    gulong id_;
};

// The frames at which the element reported a tuning hand-over (its debug log).
std::vector<unsigned long long> handover_frames();
void clear_handover_frames();
// Installs the debug log hook; called once before any test.
void watch_element_log();

}  // namespace eqdrc_gst_test

#endif
