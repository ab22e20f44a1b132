#include "gst_test_support.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>

namespace eqdrc_gst_test {

namespace {

void put_le(std::string &s, uint32_t v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        s.push_back(static_cast<char>((v >> (8 * i)) & 0xffu));
}

uint32_t get_le32(const std::string &s, size_t at)
{
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i)
        v = (v << 8) | static_cast<unsigned char>(s[at + static_cast<size_t>(i)]);
    return v;
}

}  // namespace

void write_wav(const std::string &path, const std::vector<int16_t> &samples, int channels, int rate)
{
    const uint32_t dataBytes = static_cast<uint32_t>(samples.size() * 2);
    std::string h = "RIFF";
    put_le(h, 36 + dataBytes, 4);
    h += "WAVEfmt ";
    put_le(h, 16, 4);
    put_le(h, 1, 2);  // PCM
    put_le(h, static_cast<uint32_t>(channels), 2);
    put_le(h, static_cast<uint32_t>(rate), 4);
    put_le(h, static_cast<uint32_t>(rate * channels * 2), 4);
    put_le(h, static_cast<uint32_t>(channels * 2), 2);
    put_le(h, 16, 2);
    h += "data";
    put_le(h, dataBytes, 4);
    std::ofstream out(path, std::ios::binary);
    out << h;
    out.write(reinterpret_cast<const char *>(samples.data()), static_cast<std::streamsize>(dataBytes));
}

std::vector<int16_t> wav_samples(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") != 0 || bytes.compare(8, 4, "WAVE") != 0)
        throw std::runtime_error(path + ": not a WAV file");
    for (size_t at = 12; at + 8 <= bytes.size();) {
        const uint32_t size = get_le32(bytes, at + 4);
        if (bytes.compare(at, 4, "data") == 0) {
            const size_t n = std::min<size_t>(size, bytes.size() - at - 8) / 2;
            std::vector<int16_t> samples(n);
            std::memcpy(samples.data(), bytes.data() + at + 8, n * 2);
            return samples;
        }
        at += 8 + size + (size & 1u);
    }
    throw std::runtime_error(path + ": no data chunk");
}

bool BusLog::said(const std::string &text) const
{
    for (const auto *list : {&errors, &warnings})
        for (const std::string &m : *list)
            if (m.find(text) != std::string::npos)
                return true;
    return false;
}

namespace {

std::string describe(GstMessage *msg)
{
    GError *err = nullptr;
    gchar *debug = nullptr;
    if (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_ERROR)
        gst_message_parse_error(msg, &err, &debug);
    else
        gst_message_parse_warning(msg, &err, &debug);
    std::string text = err ? err->message : "";
    if (debug)
        text += std::string(" (") + debug + ")";
    g_clear_error(&err);
    g_free(debug);
    return text;
}

// Returns true when the message ends the run.
bool note(GstMessage *msg, BusLog &log)
{
    switch (GST_MESSAGE_TYPE(msg)) {
    case GST_MESSAGE_EOS:
        log.reachedEos = true;
        return true;
    case GST_MESSAGE_ERROR:
        log.errors.push_back(describe(msg));
        return true;
    case GST_MESSAGE_WARNING:
        log.warnings.push_back(describe(msg));
        return false;
    default:
        return false;
    }
}

}  // namespace

void collect(GstElement *pipeline, BusLog &log)
{
    GstBus *bus = gst_element_get_bus(pipeline);
    while (GstMessage *msg = gst_bus_pop_filtered(bus, static_cast<GstMessageType>(GST_MESSAGE_ERROR |
                                                                                  GST_MESSAGE_WARNING))) {
        note(msg, log);
        gst_message_unref(msg);
    }
    gst_object_unref(bus);
}

BusLog run_to_end(GstElement *pipeline, int timeoutSeconds)
{
    BusLog log;
    GstBus *bus = gst_element_get_bus(pipeline);
    // A failing state change posts its error on the bus too.
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    const auto types = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_WARNING);
    for (;;) {
        GstMessage *msg =
            gst_bus_timed_pop_filtered(bus, static_cast<GstClockTime>(timeoutSeconds) * GST_SECOND, types);
        if (!msg) {
            log.errors.push_back("timed out");
            break;
        }
        const bool end = note(msg, log);
        gst_message_unref(msg);
        if (end)
            break;
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    return log;
}

BusLog run_to_end(const std::string &description, int timeoutSeconds)
{
    GError *err = nullptr;
    GstElement *pipeline = gst_parse_launch(description.c_str(), &err);
    if (!pipeline || err) {
        BusLog log;
        log.errors.push_back(std::string("cannot build the pipeline: ") + (err ? err->message : "?"));
        g_clear_error(&err);
        if (pipeline)
            gst_object_unref(pipeline);
        return log;
    }
    BusLog log = run_to_end(pipeline, timeoutSeconds);
    gst_object_unref(pipeline);
    return log;
}

PadRecorder::PadRecorder(GstPad *pad) : pad_(GST_PAD(gst_object_ref(pad)))
{
    id_ = gst_pad_add_probe(pad_,
                            static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_FLUSH),
                            probe, this, nullptr);
}

PadRecorder::~PadRecorder()
{
    gst_pad_remove_probe(pad_, id_);
    gst_object_unref(pad_);
}

GstPadProbeReturn PadRecorder::probe(GstPad *, GstPadProbeInfo *info, gpointer data)
{
    auto *self = static_cast<PadRecorder *>(data);
    if (GstEvent *event = GST_PAD_PROBE_INFO_EVENT(info); event && (info->type & GST_PAD_PROBE_TYPE_EVENT_FLUSH)) {
        if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) {
            self->samples.clear();
            self->pts.clear();
            self->durations.clear();
            self->discont.clear();
            self->sizes.clear();
        }
        return GST_PAD_PROBE_OK;
    }
    GstBuffer *buf = GST_PAD_PROBE_INFO_BUFFER(info);
    if (!buf)
        return GST_PAD_PROBE_OK;
    GstMapInfo map;
    gst_buffer_map(buf, &map, GST_MAP_READ);
    const auto *s = reinterpret_cast<const int16_t *>(map.data);
    self->samples.insert(self->samples.end(), s, s + map.size / 2);
    self->sizes.push_back(map.size);
    self->received += map.size / 2;
    gst_buffer_unmap(buf, &map);
    self->pts.push_back(GST_BUFFER_PTS(buf));
    self->durations.push_back(GST_BUFFER_DURATION(buf));
    self->discont.push_back(GST_BUFFER_IS_DISCONT(buf));
    return GST_PAD_PROBE_OK;
}

void PadRecorder::wait_for(size_t n) const
{
    for (int i = 0; i < 60000 && received < n; ++i)
        g_usleep(1000);
}

namespace {

std::mutex g_logMutex;
std::vector<unsigned long long> g_handovers;

void log_hook(GstDebugCategory *category, GstDebugLevel, const gchar *, const gchar *, gint, GObject *,
              GstDebugMessage *message, gpointer)
{
    if (std::strcmp(gst_debug_category_get_name(category), "eqdrc") != 0)
        return;
    const gchar *text = gst_debug_message_get(message);
    unsigned long long frame;
    if (text && std::sscanf(text, "tuning handed over at frame %llu", &frame) == 1) {
        std::lock_guard<std::mutex> lock(g_logMutex);
        g_handovers.push_back(frame);
    }
}

}  // namespace

void watch_element_log()
{
    gst_debug_remove_log_function(gst_debug_log_default);
    gst_debug_add_log_function(log_hook, nullptr, nullptr);
    gst_debug_set_threshold_for_name("eqdrc", GST_LEVEL_DEBUG);
}

std::vector<unsigned long long> handover_frames()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    return g_handovers;
}

void clear_handover_frames()
{
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_handovers.clear();
}

}  // namespace eqdrc_gst_test
