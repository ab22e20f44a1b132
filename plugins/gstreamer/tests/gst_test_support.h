// Helpers for the element's tests: pipelines run to their end with what the bus said, the
// buffers crossing a pad, and the hand-overs the element logged.
#ifndef EQDRC_GST_TEST_SUPPORT_H
#define EQDRC_GST_TEST_SUPPORT_H

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace eqdrc_gst_test {

constexpr int kRate = 48000;

// What a pipeline posted until it ended.
struct BusLog {
    bool reachedEos = false;
    std::vector<std::string> errors;
    std::vector<std::string> warnings;

    bool said(const std::string &text) const  // in any error or warning
    {
        for (const auto *list : {&errors, &warnings})
            for (const std::string &m : *list)
                if (m.find(text) != std::string::npos)
                    return true;
        return false;
    }
    std::string first_error() const { return errors.empty() ? "" : errors.front(); }
};

inline std::string describe(GstMessage *msg)
{
    GError *err = nullptr;
    (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_ERROR ? gst_message_parse_error : gst_message_parse_warning)(msg, &err,
                                                                                                      nullptr);
    std::string text = err->message;
    g_error_free(err);
    return text;
}

// Plays `pipeline` to its end (EOS or an error), at most `timeoutSeconds`.
inline BusLog run_to_end(GstElement *pipeline, int timeoutSeconds = 120)
{
    BusLog log;
    GstBus *bus = gst_element_get_bus(pipeline);
    // A failing state change posts its error on the bus too.
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    const auto types = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_WARNING);
    while (!log.reachedEos && log.errors.empty()) {
        GstMessage *msg =
            gst_bus_timed_pop_filtered(bus, static_cast<GstClockTime>(timeoutSeconds) * GST_SECOND, types);
        if (!msg)
            log.errors.push_back("timed out");
        else if (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_EOS)
            log.reachedEos = true;
        else
            (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_ERROR ? log.errors : log.warnings).push_back(describe(msg));
        gst_clear_message(&msg);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    return log;
}

inline BusLog run_to_end(const std::string &description, int timeoutSeconds = 120)
{
    GError *err = nullptr;
    GstElement *pipeline = gst_parse_launch(description.c_str(), &err);
    BusLog log;
    if (err)
        log.errors.push_back(std::string("cannot build the pipeline: ") + err->message);
    else
        log = run_to_end(pipeline, timeoutSeconds);
    g_clear_error(&err);
    gst_clear_object(&pipeline);
    return log;
}

// Records the samples and timestamps of the buffers crossing the pad `pad` of the element
// named `element` in `bin`; a flush starts afresh.
class PadRecorder {
public:
    PadRecorder(GstElement *bin, const char *element, const char *pad)
    {
        GstElement *e = gst_bin_get_by_name(GST_BIN(bin), element);
        pad_ = gst_element_get_static_pad(e, pad);
        gst_object_unref(e);
        id_ = gst_pad_add_probe(
            pad_, static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_FLUSH), probe,
            this, nullptr);
    }
    ~PadRecorder()
    {
        gst_pad_remove_probe(pad_, id_);
        gst_object_unref(pad_);
    }

    // Waits until at least `n` samples arrived (at most 60 s).
    void wait_for(size_t n) const
    {
        for (int i = 0; i < 60000 && received < n; ++i)
            g_usleep(1000);
    }

    struct Buffer { GstClockTime pts, duration; bool discont; size_t bytes; };
    std::vector<int16_t> samples;
    std::vector<Buffer> buffers;
    std::atomic<size_t> received{0};  // samples since the start, safe to read while playing

private:
    static GstPadProbeReturn probe(GstPad *, GstPadProbeInfo *info, gpointer data)
    {
        auto *self = static_cast<PadRecorder *>(data);
        if (info->type & GST_PAD_PROBE_TYPE_EVENT_FLUSH) {
            if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_FLUSH_STOP) {
                self->samples.clear();
                self->buffers.clear();
            }
            return GST_PAD_PROBE_OK;
        }
        GstBuffer *buf = GST_PAD_PROBE_INFO_BUFFER(info);
        GstMapInfo map;
        gst_buffer_map(buf, &map, GST_MAP_READ);
        const auto *s = reinterpret_cast<const int16_t *>(map.data);
        self->samples.insert(self->samples.end(), s, s + map.size / 2);
        self->buffers.push_back({GST_BUFFER_PTS(buf), GST_BUFFER_DURATION(buf), GST_BUFFER_IS_DISCONT(buf), map.size});
        self->received += map.size / 2;
        gst_buffer_unmap(buf, &map);
        return GST_PAD_PROBE_OK;
    }

    GstPad *pad_;
    gulong id_;
};

// The frames at which the element reported a tuning hand-over in its debug log.
inline std::mutex handoverMutex;
inline std::vector<unsigned long long> handovers;

// The hand-overs reported since the last call.
inline std::vector<unsigned long long> take_handover_frames()
{
    std::lock_guard<std::mutex> lock(handoverMutex);
    return std::exchange(handovers, {});
}

inline void note_handover(GstDebugCategory *category, GstDebugLevel, const gchar *, const gchar *, gint, GObject *,
                          GstDebugMessage *message, gpointer)
{
    if (std::strcmp(gst_debug_category_get_name(category), "eqdrc") != 0)
        return;
    const gchar *text = gst_debug_message_get(message);
    unsigned long long frame;
    if (text && std::sscanf(text, "tuning handed over at frame %llu", &frame) == 1) {
        std::lock_guard<std::mutex> lock(handoverMutex);
        handovers.push_back(frame);
    }
}

// Routes the element's debug log to the hand-over list; called once before any test.
inline void watch_element_log()
{
    gst_debug_remove_log_function(gst_debug_log_default);
    gst_debug_add_log_function(note_handover, nullptr, nullptr);
    gst_debug_set_threshold_for_name("eqdrc", GST_LEVEL_DEBUG);
}

}  // namespace eqdrc_gst_test

#endif
