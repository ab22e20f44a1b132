#include "eqdrc_element.h"

#include <gst/audio/audio.h>
#include <tqaudio_eqdrc.h>

#include <algorithm>
#include <memory>
#include <string>

#include "bypass_fade.h"
#include "frame_stream.h"
#include "log.h"
#include "meter_publisher.h"
#include "record_handoff.h"
#include "tuning_source.h"

GST_DEBUG_CATEGORY_STATIC(eqdrc_debug);
#define GST_CAT_DEFAULT eqdrc_debug

namespace {

constexpr int kMaxFrameLength = 1 << 16;
constexpr int kMaxChannels = 2;

enum { PROP_0, PROP_TUNING, PROP_FRAME_LENGTH, PROP_BYPASS, PROP_LATENCY, PROP_METERS };

// What the streaming thread owns while caps are set: the chain with its frame
// collection and its meters' publisher, the unprocessed input for the bypass, the output
// clock, the input buffer being consumed and the pool of frame-sized output buffers.
struct Stream {
    Stream(std::unique_ptr<eqdrc_plugin::FrameStream> chain, int channelCount, bool bypass, GstBufferPool *framePool)
        : frames(std::move(chain)),
          fade(channelCount, 2 * static_cast<size_t>(frames->frame_len()), static_cast<size_t>(frames->frame_len()),
               bypass),
          frameLength(frames->frame_len()),
          channels(channelCount),
          pool(framePool)
    {
    }
    ~Stream()
    {
        release_input();
        gst_buffer_pool_set_active(pool, FALSE);
        gst_object_unref(pool);
    }
    void release_input()
    {
        if (input) {
            gst_buffer_unmap(input, &inputMap);
            gst_buffer_unref(input);
        }
        input = nullptr;
        inputLeft = 0;
    }

    std::unique_ptr<eqdrc_plugin::FrameStream> frames;
    std::unique_ptr<eqdrc_plugin::MeterPublisher> meters;  // after `frames`: it reads them
    eqdrc_gst::BypassFade fade;
    int frameLength;
    int channels;
    // Output timestamps count samples from the first buffer after a start, a flush or a
    // discontinuity, so that holding samples back never shifts them.
    bool needClockBase = true;
    GstClockTime clockBase = GST_CLOCK_TIME_NONE;
    guint64 offsetBase = GST_BUFFER_OFFSET_NONE;
    guint64 samplesOut = 0;
    // The input buffer, mapped, and the samples of it not yet written to the chain.
    GstBuffer *input = nullptr;
    GstMapInfo inputMap{};
    const int16_t *inputNext = nullptr;
    size_t inputLeft = 0;
    GstBufferPool *pool;
};

}  // namespace

struct _GstEqdrc {
    GstAudioFilter parent;

    // Settings, under the object lock.
    std::string *tuningPath;  // the tuning playing (or to be loaded at start)
    std::string *metersPath;  // the live meter file each stream publishes; empty: none
    int frameLength;
    gint bypass;  // also read by the streaming thread, atomically
    // The record playing, its rate and channels; set at start and by every accepted retune.
    eqdrc_plugin::Record *record;
    int rate;
    int channels;
    gboolean loaded;
    gboolean announced;   // rate and channels read from the tuning file before it is loaded
    gboolean negotiated;  // rate and channels are fixed by the caps
    gboolean warnedCaps;  // the caps warning was given for this start

    eqdrc_plugin::RecordHandoff *handoff;  // control thread -> streaming thread
    Stream *stream;                        // streaming thread only
};

#define gst_eqdrc_parent_class parent_class
G_DEFINE_TYPE(GstEqdrc, gst_eqdrc, GST_TYPE_AUDIO_FILTER)
GST_ELEMENT_REGISTER_DEFINE(eqdrc, "eqdrc", GST_RANK_NONE, GST_TYPE_EQDRC)

namespace {

const char *kCapsTemplate =
    "audio/x-raw, format=(string)" GST_AUDIO_NE(S16) ", layout=(string)interleaved, rate=(int)[1, MAX], "
    "channels=(int)[1, 2]";

GstCaps *tuning_caps(int rate, int channels)
{
    return gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, GST_AUDIO_NE(S16), "layout", G_TYPE_STRING,
                               "interleaved", "rate", G_TYPE_INT, rate, "channels", G_TYPE_INT, channels, nullptr);
}

GstClockTime frame_latency(int frameLength, int rate)
{
    return rate > 0 ? gst_util_uint64_scale_int_ceil(GST_SECOND, frameLength, rate) : 0;
}

// Reads a tuning for the stream; on failure `error` names the file and the first problem.
// Before caps are set the tuning's own rate and channel count are taken.
bool load(GstEqdrc *self, const std::string &path, eqdrc_plugin::Record &rec, int &rate, int &channels,
          std::string &error)
{
    GST_OBJECT_LOCK(self);
    const bool fixed = self->negotiated;
    rate = self->rate;
    channels = self->channels;
    const int frameLength = self->frameLength;
    GST_OBJECT_UNLOCK(self);
    eqdrc_plugin::Record raw;
    if (!eqdrc_plugin::read_tuning_file(path, raw, error))
        return false;
    if (!fixed) {
        const eqdrc_plugin::TuningFormat own = eqdrc_plugin::tuning_format(raw);
        rate = own.sampleRate;
        channels = own.channels;
        if (rate < 1 || channels < 1 || channels > kMaxChannels) {
            error = path + ": a tuning for " + std::to_string(rate) + " Hz and " + std::to_string(channels) +
                    " channel(s); the element runs mono and stereo streams";
            return false;
        }
    }
    return eqdrc_plugin::fit_tuning(raw, path, rate, channels, false, frameLength, rec, error);
}

void report_handover(void *context, long long frame)
{
    GST_DEBUG_OBJECT(static_cast<GstEqdrc *>(context), "tuning handed over at frame %lld", frame);
}

// Makes the stream's chain from the record playing, dropping any hand-over still waiting:
// a new chain starts from the newest tuning.
bool start_stream(GstEqdrc *self)
{
    delete self->stream;
    self->stream = nullptr;
    GST_OBJECT_LOCK(self);
    while (self->handoff->take()) {
    }
    const eqdrc_plugin::Record rec = *self->record;
    const int frameLength = self->frameLength;
    const int rate = self->rate;
    const int channels = self->channels;
    const std::string metersPath = *self->metersPath;
    GST_OBJECT_UNLOCK(self);
    std::string error;
    std::unique_ptr<eqdrc_plugin::FrameStream> chain =
        eqdrc_plugin::FrameStream::create(rec, frameLength, self->handoff, error);
    if (!chain) {
        GST_ELEMENT_ERROR(self, LIBRARY, INIT, ("%s", error.c_str()), (nullptr));
        return false;
    }
    chain->set_swap_callback(report_handover, self);
    // Every output buffer but the last of a stream holds one frame: a pool made once per
    // stream serves them without allocating.
    GstBufferPool *pool = gst_buffer_pool_new();
    GstStructure *config = gst_buffer_pool_get_config(pool);
    GstCaps *caps = tuning_caps(rate, channels);
    gst_buffer_pool_config_set_params(config, caps, static_cast<guint>(frameLength * channels) * sizeof(int16_t), 2, 0);
    gst_caps_unref(caps);
    if (!gst_buffer_pool_set_config(pool, config) || !gst_buffer_pool_set_active(pool, TRUE)) {
        gst_object_unref(pool);
        GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("cannot make the output buffers"), (nullptr));
        return false;
    }
    self->stream = new Stream(std::move(chain), channels, g_atomic_int_get(&self->bypass) != 0, pool);
    if (!metersPath.empty()) {
        self->stream->meters = eqdrc_plugin::MeterPublisher::start(metersPath, *self->stream->frames, rate, error);
        if (!self->stream->meters)
            GST_ELEMENT_WARNING(self, RESOURCE, OPEN_WRITE, ("%s; playing without meters", error.c_str()), (nullptr));
    }
    return true;
}

size_t bytes_per_sample(const Stream &s)
{
    return sizeof(int16_t) * static_cast<size_t>(s.channels);
}

// Stamps an output buffer of `n` samples with the time and offset of its first sample.
void stamp(GstEqdrc *self, GstBuffer *buf, size_t n)
{
    Stream &s = *self->stream;
    const int rate = GST_AUDIO_FILTER_RATE(self);
    if (GST_CLOCK_TIME_IS_VALID(s.clockBase)) {
        GstClockTime start = s.clockBase + gst_util_uint64_scale_int(s.samplesOut, GST_SECOND, rate);
        GstClockTime end = s.clockBase + gst_util_uint64_scale_int(s.samplesOut + n, GST_SECOND, rate);
        GST_BUFFER_PTS(buf) = start;
        GST_BUFFER_DURATION(buf) = end - start;
    }
    if (s.samplesOut == 0)
        GST_BUFFER_FLAG_SET(buf, GST_BUFFER_FLAG_DISCONT);
    if (s.offsetBase != GST_BUFFER_OFFSET_NONE) {
        GST_BUFFER_OFFSET(buf) = s.offsetBase + s.samplesOut;
        GST_BUFFER_OFFSET_END(buf) = s.offsetBase + s.samplesOut + n;
    }
    s.samplesOut += n;
}

// Writes the input left to the chain until a processed frame is ready, and returns it in
// a buffer of its own; null when the input is used up.
GstBuffer *next_frame(GstEqdrc *self)
{
    Stream &s = *self->stream;
    const size_t frameLength = static_cast<size_t>(s.frameLength);
    const size_t channels = static_cast<size_t>(s.channels);
    // At most one frame at a time, and only while no frame waits, so that the chain's
    // output FIFO has room for every frame it is given.
    while (s.frames->readable() < frameLength && s.inputLeft > 0) {
        const size_t chunk = std::min(s.inputLeft, frameLength);
        s.fade.push_dry(s.inputNext, chunk);
        s.frames->write(s.inputNext, chunk);
        s.inputNext += chunk * channels;
        s.inputLeft -= chunk;
    }
    if (s.frames->readable() < frameLength) {
        s.release_input();
        return nullptr;
    }
    GstBuffer *out = nullptr;
    if (gst_buffer_pool_acquire_buffer(s.pool, &out, nullptr) != GST_FLOW_OK)
        return nullptr;
    GstMapInfo map;
    gst_buffer_map(out, &map, GST_MAP_WRITE);
    auto *dst = reinterpret_cast<int16_t *>(map.data);
    s.fade.set_bypass(g_atomic_int_get(&self->bypass) != 0);
    s.frames->read(dst, frameLength);
    s.fade.mix(dst, frameLength);
    gst_buffer_unmap(out, &map);
    stamp(self, out, frameLength);
    return out;
}

// Pads and processes the frame being collected and pushes its real samples; the clock
// restarts at the next buffer.
GstFlowReturn drain(GstEqdrc *self)
{
    Stream *s = self->stream;
    if (!s)
        return GST_FLOW_OK;
    s->needClockBase = true;
    if (s->fade.pending() == 0)
        return GST_FLOW_OK;
    const size_t n = s->fade.pending();
    s->frames->drain();
    GstBuffer *out = gst_buffer_new_allocate(nullptr, n * bytes_per_sample(*s), nullptr);
    GstMapInfo map;
    gst_buffer_map(out, &map, GST_MAP_WRITE);
    auto *dst = reinterpret_cast<int16_t *>(map.data);
    const size_t got = s->frames->read(dst, n);
    s->fade.mix(dst, got);
    gst_buffer_unmap(out, &map);
    stamp(self, out, n);
    GST_DEBUG_OBJECT(self, "drained %zu samples", n);
    return gst_pad_push(GST_BASE_TRANSFORM_SRC_PAD(self), out);
}

// ---- GstBaseTransform / GstAudioFilter ----

GstCaps *transform_caps(GstBaseTransform *trans, GstPadDirection, GstCaps *caps, GstCaps *filter)
{
    GstEqdrc *self = GST_EQDRC(trans);
    GST_OBJECT_LOCK(self);
    const bool loaded = self->loaded;
    const bool known = loaded || self->announced;
    const int rate = self->rate;
    const int channels = self->channels;
    GST_OBJECT_UNLOCK(self);
    GstCaps *ours = known ? tuning_caps(rate, channels) : gst_caps_from_string(kCapsTemplate);
    GstCaps *result = gst_caps_intersect(caps, ours);
    gst_caps_unref(ours);
    if (filter) {
        GstCaps *filtered = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(result);
        result = filtered;
    }
    // A stream the tuning cannot take fails negotiation upstream with a bare
    // "not-negotiated": say once what the tuning needs.
    GST_OBJECT_LOCK(self);
    const bool warn = loaded && gst_caps_is_empty(result) && !gst_caps_is_empty(caps) && !self->warnedCaps;
    if (warn)
        self->warnedCaps = TRUE;
    GST_OBJECT_UNLOCK(self);
    if (warn) {
        gchar *offered = gst_caps_to_string(caps);
        GST_ELEMENT_WARNING(self, CORE, NEGOTIATION,
                            ("the tuning runs 16-bit interleaved audio at %d Hz with %d channel(s); the stream offers "
                             "%s (put audioconvert ! audioresample in front)",
                             rate, channels, offered),
                            (nullptr));
        g_free(offered);
    }
    return result;
}

gboolean setup(GstAudioFilter *filter, const GstAudioInfo *info)
{
    GstEqdrc *self = GST_EQDRC(filter);
    GST_OBJECT_LOCK(self);
    const bool match = self->loaded && GST_AUDIO_INFO_RATE(info) == self->rate &&
                       GST_AUDIO_INFO_CHANNELS(info) == self->channels;
    self->negotiated = match;
    const int rate = self->rate;
    const int channels = self->channels;
    GST_OBJECT_UNLOCK(self);
    if (!match) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION,
                          ("the stream is %d Hz with %d channel(s); the tuning runs %d Hz with %d",
                           GST_AUDIO_INFO_RATE(info), GST_AUDIO_INFO_CHANNELS(info), rate, channels),
                          (nullptr));
        return FALSE;
    }
    // Caps accepted are always the tuning's, so new caps mid-stream keep the chain running.
    return self->stream || start_stream(self);
}

GstFlowReturn submit_input_buffer(GstBaseTransform *trans, gboolean, GstBuffer *input)
{
    GstEqdrc *self = GST_EQDRC(trans);
    if (!self->stream) {
        gst_buffer_unref(input);
        return GST_FLOW_NOT_NEGOTIATED;
    }
    Stream &s = *self->stream;
    s.release_input();  // what is left when pushing the previous buffer's frames failed
    // The base class keeps `discont` set as long as it has not stamped an output buffer
    // itself, which it never does here: the buffer flag is what tells of a gap.
    if (GST_BUFFER_IS_DISCONT(input)) {
        // What was collected before the gap is finished as at the end of a stream; the
        // chain runs on, and the clock restarts at this buffer.
        GstFlowReturn flow = drain(self);
        if (flow != GST_FLOW_OK) {
            gst_buffer_unref(input);
            return flow;
        }
    }
    if (s.needClockBase) {
        s.needClockBase = false;
        s.clockBase = GST_BUFFER_PTS(input);
        s.offsetBase = GST_BUFFER_OFFSET(input);
        s.samplesOut = 0;
    }
    if (!gst_buffer_map(input, &s.inputMap, GST_MAP_READ)) {
        gst_buffer_unref(input);
        GST_ELEMENT_ERROR(self, STREAM, FAILED, ("cannot read an input buffer"), (nullptr));
        return GST_FLOW_ERROR;
    }
    s.input = input;
    s.inputNext = reinterpret_cast<const int16_t *>(s.inputMap.data);
    s.inputLeft = s.inputMap.size / bytes_per_sample(s);
    return GST_FLOW_OK;
}

// Called after each input buffer until it gives no buffer: one frame each time.
GstFlowReturn generate_output(GstBaseTransform *trans, GstBuffer **outbuf)
{
    GstEqdrc *self = GST_EQDRC(trans);
    *outbuf = self->stream ? next_frame(self) : nullptr;
    return GST_FLOW_OK;
}

gboolean sink_event(GstBaseTransform *trans, GstEvent *event)
{
    GstEqdrc *self = GST_EQDRC(trans);
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_EOS:
    case GST_EVENT_SEGMENT:
    case GST_EVENT_GAP:
        // The samples held back belong before the event: finish them as at the end of a
        // stream. The chain runs on.
        drain(self);
        break;
    case GST_EVENT_FLUSH_STOP:
        // A flush (a seek) starts the stream afresh: new chain, nothing collected.
        if (self->stream && start_stream(self))
            GST_DEBUG_OBJECT(self, "flushed: the chain starts afresh");
        break;
    default:
        break;
    }
    return GST_BASE_TRANSFORM_CLASS(parent_class)->sink_event(trans, event);
}

gboolean query(GstBaseTransform *trans, GstPadDirection direction, GstQuery *query)
{
    GstEqdrc *self = GST_EQDRC(trans);
    if (direction == GST_PAD_SRC && GST_QUERY_TYPE(query) == GST_QUERY_LATENCY) {
        if (!gst_pad_peer_query(GST_BASE_TRANSFORM_SINK_PAD(trans), query))
            return FALSE;
        gboolean live;
        GstClockTime min, max;
        gst_query_parse_latency(query, &live, &min, &max);
        GST_OBJECT_LOCK(self);
        const GstClockTime ours = frame_latency(self->frameLength, self->rate);
        GST_OBJECT_UNLOCK(self);
        min += ours;
        if (GST_CLOCK_TIME_IS_VALID(max))
            max += ours;
        gst_query_set_latency(query, live, min, max);
        return TRUE;
    }
    return GST_BASE_TRANSFORM_CLASS(parent_class)->query(trans, direction, query);
}

gboolean stop(GstBaseTransform *trans)
{
    GstEqdrc *self = GST_EQDRC(trans);
    delete self->stream;
    self->stream = nullptr;
    GST_OBJECT_LOCK(self);
    self->negotiated = FALSE;
    GST_OBJECT_UNLOCK(self);
    return TRUE;
}

// ---- GstElement ----

GstStateChangeReturn change_state(GstElement *element, GstStateChange transition)
{
    GstEqdrc *self = GST_EQDRC(element);
    // The tuning is read when the stream is about to start, so that the tuning and the frame
    // length can change until then.
    if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
        GST_OBJECT_LOCK(self);
        const std::string path = *self->tuningPath;
        GST_OBJECT_UNLOCK(self);
        if (path.empty()) {
            GST_ELEMENT_ERROR(self, RESOURCE, NOT_FOUND,
                              ("no tuning: set the tuning property to a record (.bin) or a JSON tuning"), (nullptr));
            return GST_STATE_CHANGE_FAILURE;
        }
        eqdrc_plugin::Record rec;
        int rate = 0, channels = 0;
        std::string error;
        if (!load(self, path, rec, rate, channels, error)) {
            GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS, ("%s", error.c_str()), (nullptr));
            return GST_STATE_CHANGE_FAILURE;
        }
        GST_OBJECT_LOCK(self);
        *self->record = rec;
        self->rate = rate;
        self->channels = channels;
        self->loaded = TRUE;
        self->warnedCaps = FALSE;
        GST_OBJECT_UNLOCK(self);
        GST_INFO_OBJECT(self, "tuning %s: %d Hz, %d channel(s); %s", path.c_str(), rate, channels,
                        eqdrc_plugin::library_identity().c_str());
    }
    GstStateChangeReturn ret = GST_ELEMENT_CLASS(parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
        GST_OBJECT_LOCK(self);
        self->loaded = FALSE;
        GST_OBJECT_UNLOCK(self);
    }
    return ret;
}

// ---- GObject ----

// A tuning set while the element runs is read and checked here, on the caller's thread,
// and handed to the streaming thread for the next frame boundary.
void retune(GstEqdrc *self, const std::string &path)
{
    eqdrc_plugin::Record rec;
    int rate = 0, channels = 0;
    std::string error;
    if (!load(self, path, rec, rate, channels, error)) {
        GST_ELEMENT_WARNING(self, RESOURCE, SETTINGS, ("%s; the tuning playing is kept", error.c_str()), (nullptr));
        return;
    }
    GST_OBJECT_LOCK(self);
    *self->tuningPath = path;
    *self->record = rec;
    self->rate = rate;
    self->channels = channels;
    self->handoff->offer(rec);
    GST_OBJECT_UNLOCK(self);
    GST_DEBUG_OBJECT(self, "tuning %s staged for the next frame boundary", path.c_str());
}

// The caps a tuning takes are known as soon as it is named, so that a pipeline that
// cannot feed it fails to link (gst-launch-1.0 says so) rather than later in streaming.
// A file that cannot be read is reported when the element starts.
void announce(GstEqdrc *self, const std::string &path)
{
    eqdrc_plugin::Record raw;
    std::string error;
    const bool readable = !path.empty() && eqdrc_plugin::read_tuning_file(path, raw, error);
    const eqdrc_plugin::TuningFormat format = readable ? eqdrc_plugin::tuning_format(raw) : eqdrc_plugin::TuningFormat{};
    GST_OBJECT_LOCK(self);
    self->announced = readable && format.sampleRate > 0 && format.channels >= 1 && format.channels <= kMaxChannels;
    if (self->announced) {
        self->rate = format.sampleRate;
        self->channels = format.channels;
    }
    GST_OBJECT_UNLOCK(self);
}

void set_property(GObject *object, guint id, const GValue *value, GParamSpec *pspec)
{
    GstEqdrc *self = GST_EQDRC(object);
    switch (id) {
    case PROP_TUNING: {
        const char *path = g_value_get_string(value);
        GST_OBJECT_LOCK(self);
        const bool running = self->loaded;
        if (!running)
            *self->tuningPath = path ? path : "";
        GST_OBJECT_UNLOCK(self);
        if (!running)
            announce(self, path ? path : "");
        if (running) {
            if (path && *path)
                retune(self, path);
            else
                GST_ELEMENT_WARNING(self, RESOURCE, SETTINGS, ("an empty tuning; the tuning playing is kept"),
                                    (nullptr));
        }
        break;
    }
    case PROP_FRAME_LENGTH: {
        GST_OBJECT_LOCK(self);
        const bool running = self->loaded;
        if (!running)
            self->frameLength = g_value_get_int(value);
        GST_OBJECT_UNLOCK(self);
        if (running)
            GST_ELEMENT_WARNING(self, CORE, STATE_CHANGE, ("frame-length changes only while the element is stopped"),
                                (nullptr));
        break;
    }
    case PROP_BYPASS:
        g_atomic_int_set(&self->bypass, g_value_get_boolean(value) ? 1 : 0);
        break;
    case PROP_METERS: {
        const char *path = g_value_get_string(value);
        GST_OBJECT_LOCK(self);
        *self->metersPath = path ? path : "";
        GST_OBJECT_UNLOCK(self);
        break;
    }
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        break;
    }
}

void get_property(GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
    GstEqdrc *self = GST_EQDRC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_TUNING:
        g_value_set_string(value, self->tuningPath->empty() ? nullptr : self->tuningPath->c_str());
        break;
    case PROP_FRAME_LENGTH:
        g_value_set_int(value, self->frameLength);
        break;
    case PROP_BYPASS:
        g_value_set_boolean(value, g_atomic_int_get(&self->bypass) != 0);
        break;
    case PROP_METERS:
        g_value_set_string(value, self->metersPath->empty() ? nullptr : self->metersPath->c_str());
        break;
    case PROP_LATENCY:
        g_value_set_uint64(value, self->loaded ? frame_latency(self->frameLength, self->rate) : 0);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        break;
    }
    GST_OBJECT_UNLOCK(self);
}

void finalize(GObject *object)
{
    GstEqdrc *self = GST_EQDRC(object);
    delete self->stream;
    delete self->handoff;
    delete self->record;
    delete self->tuningPath;
    delete self->metersPath;
    G_OBJECT_CLASS(parent_class)->finalize(object);
}

}  // namespace

static void gst_eqdrc_init(GstEqdrc *self)
{
    self->tuningPath = new std::string;
    self->metersPath = new std::string;
    self->frameLength = eqdrc_plugin::kDefaultFrameLen;
    self->bypass = FALSE;
    self->record = new eqdrc_plugin::Record{};
    self->rate = 0;
    self->channels = 0;
    self->loaded = FALSE;
    self->announced = FALSE;
    self->negotiated = FALSE;
    self->handoff = new eqdrc_plugin::RecordHandoff;
    self->stream = nullptr;
    self->warnedCaps = FALSE;
}

static void gst_eqdrc_class_init(GstEqdrcClass *klass)
{
    GST_DEBUG_CATEGORY_INIT(eqdrc_debug, "eqdrc", 0, "EQ/DRC chain");
    GObjectClass *gobject = G_OBJECT_CLASS(klass);
    gobject->set_property = set_property;
    gobject->get_property = get_property;
    gobject->finalize = finalize;

    g_object_class_install_property(
        gobject, PROP_TUNING,
        g_param_spec_string(
            "tuning", "Tuning",
            "Tuning file: a 2176-byte binary record or a JSON tuning (as eqdrc tuning compile reads them), for the "
            "stream's rate and channel count. Required. Set while playing, the new tuning is checked and takes over at "
            "the next frame boundary; one that fails the check posts a warning and the old one keeps playing",
            nullptr,
            static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        gobject, PROP_FRAME_LENGTH,
        g_param_spec_int("frame-length", "Frame length",
                         "Samples per channel the chain processes at a time (as eqdrc process --frame); also the "
                         "latency the element adds. Changes only while stopped",
                         1, kMaxFrameLength, eqdrc_plugin::kDefaultFrameLen,
                         static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_READY)));
    g_object_class_install_property(
        gobject, PROP_BYPASS,
        g_param_spec_boolean("bypass", "Bypass",
                             "Pass the input through unchanged (bit for bit). The chain keeps running, and switching "
                             "fades between processed and unprocessed sound over one frame, so it does not click",
                             FALSE,
                             static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                      GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        gobject, PROP_METERS,
        g_param_spec_string(
            "meters", "Meters",
            "File the chain's live meters are published to, about 20 times a second (eqdrc meters FILE shows "
            "them): levels in and out, each stage's gain, frames and tuning hand-overs. Made afresh whenever a "
            "stream starts (also after a flushing seek); takes effect at the next start. None by default",
            nullptr, static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY)));
    g_object_class_install_property(
        gobject, PROP_LATENCY,
        g_param_spec_uint64("latency", "Latency",
                            "Latency the element adds, in nanoseconds: one frame (frame-length / rate), reported "
                            "through the latency query; 0 until a tuning is loaded",
                            0, G_MAXUINT64, 0, static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));

    GstElementClass *element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(
        element, "EQ/DRC chain", "Filter/Effect/Audio",
        "Loudspeaker post-processing from a tuning: auto gain, bass enhancer, exciter, de-esser, ten-band EQ, "
        "multi-band compressor, AGC and limiter, bit-identical to eqdrc process",
        "tqaudio_effect_eqdrc");
    element->change_state = change_state;

    GstCaps *caps = gst_caps_from_string(kCapsTemplate);
    gst_audio_filter_class_add_pad_templates(GST_AUDIO_FILTER_CLASS(klass), caps);
    gst_caps_unref(caps);

    GstBaseTransformClass *trans = GST_BASE_TRANSFORM_CLASS(klass);
    trans->transform_caps = transform_caps;
    trans->submit_input_buffer = submit_input_buffer;
    trans->generate_output = generate_output;
    trans->sink_event = sink_event;
    trans->query = query;
    trans->stop = stop;
    trans->passthrough_on_same_caps = FALSE;
    GST_AUDIO_FILTER_CLASS(klass)->setup = setup;
}
