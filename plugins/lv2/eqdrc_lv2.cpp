// eqdrc.lv2: the chain as an LV2 plugin, in a stereo and a mono variant (the tuning's
// channel count must match). Ports: an atom input taking patch:Set / patch:Get of the
// `tuning` path parameter, an atom output answering with patch:Set, the latency (one
// frame), `frame` and `bypass`, then the audio inputs and outputs.
//
// Threads. run() and work_response() (the host's audio thread) only move samples,
// read events and schedule work; everything that reads a file, fits a tuning, builds
// a chain or logs happens in work() (the host's worker) or in the non-real-time calls
// (instantiate, activate, state). A new tuning for the chain that plays is handed to
// it through its RecordHandoff and takes effect at its next frame; a first chain, or
// one for another frame length, is built by the worker and its pointer sent back
// through work_response(), and the chain it replaces goes back to the worker to be
// freed. The worker also checks the tuning file twice a second, so that a new version
// written in place or renamed over it is taken like a patch:Set of the same path.
//
// Without a tuning the output is silent (bypass still passes the input): the chain is
// what keeps the speaker safe, so nothing plays unprocessed unless asked to.
#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "float_blocks.h"
#include "frame_stream.h"
#include "log.h"
#include "record_handoff.h"
#include "tuning_source.h"

namespace eqdrc_lv2 {
namespace {

using namespace eqdrc_plugin;

constexpr char kTuningUri[] = "urn:tqaudio:eqdrc:tuning";
constexpr char kTuningEnv[] = "EQDRC_LV2_TUNING";  // the tuning of hosts that cannot set the parameter
constexpr int kMaxFrameLen = 65536;
constexpr size_t kMaxPath = 4096;

enum Port : uint32_t { kControl, kNotify, kLatency, kFrame, kBypass, kAudio };  // audio: inputs, then outputs

// A chain and the hand-over that retunes it, built off the audio thread for one frame length.
struct Engine {
    RecordHandoff handoff;
    std::unique_ptr<FrameStream> stream;
    int frameLen = 0;
};

// What run() asks of the worker and what the worker answers. Only the used part of
// `path` travels. `epoch` names the activation a message belongs to: an engine of an
// earlier one is already gone.
enum class Job : uint32_t { Load, Poll, Reframe, Handover, Retire, Install, Accepted };
struct Message {
    Job job;
    unsigned epoch = 0;
    long long number = 0;  // a frame length, or a frame index
    Engine *engine = nullptr;
    char path[kMaxPath];
    Message() { path[0] = '\0'; }
};

uint32_t message_size(const Message &m)
{
    return static_cast<uint32_t>(offsetof(Message, path) + std::strlen(m.path) + 1);
}

// A file as it was when read; any change (contents, a rename over it, removal) shows.
struct FileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long mtimeNs = 0, ctimeNs = 0;
    bool operator==(const FileStamp &o) const
    {
        return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
               mtimeNs == o.mtimeNs && ctimeNs == o.ctimeNs;
    }
};

FileStamp stamp_of(const std::string &path)
{
    struct stat st;
    FileStamp s;
    if (::stat(path.c_str(), &st) != 0)
        return s;
    s = {true, st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec,
         st.st_ctim.tv_sec * 1000000000LL + st.st_ctim.tv_nsec};
    return s;
}

int frame_from_port(float v)
{
    return std::isfinite(v) ? static_cast<int>(std::clamp(std::lround(v), 1L, static_cast<long>(kMaxFrameLen)))
                            : kDefaultFrameLen;
}

const void *feature(const LV2_Feature *const *features, const char *uri)
{
    for (; features && *features; ++features)
        if (std::strcmp((*features)->URI, uri) == 0)
            return (*features)->data;
    return nullptr;
}

class Plugin {
public:
    Plugin(int channels, double rate, LV2_URID_Map *map, LV2_Worker_Schedule *schedule, LV2_Log_Log *log);

    void connect(uint32_t port, void *data);
    void activate();
    void deactivate();
    void run(uint32_t n);

    LV2_Worker_Status work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle, uint32_t size,
                           const void *data);
    LV2_Worker_Status work_response(uint32_t size, const void *data);
    LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle,
                          const LV2_Feature *const *features);
    LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                             const LV2_Feature *const *features);

    // Control side, outside the audio thread: a tuning given by the environment.
    void take_initial_tuning(const char *path);

private:
    struct Uris {
        LV2_URID atomPath, atomString, atomUrid, atomObject, atomBlank, patchSet, patchGet, patchProperty,
            patchValue, tuning, logError, logNote;
    };
    // What the control side did with a tuning: a chain to start playing, and whether it was taken.
    struct Taken {
        bool accepted = false;
        Engine *engine = nullptr;
    };

    static void on_swap(void *self, long long frame) { static_cast<Plugin *>(self)->handedOverAt_ = frame; }
    void log(LV2_URID level, const char *format, ...) __attribute__((format(printf, 3, 4)));
    void schedule(Message &m) { schedule_->schedule_work(schedule_->handle, message_size(m), &m); }
    void read_control();
    void write_notify();
    void install(Engine *engine, int frameLen);

    Taken take_tuning(const std::string &path, bool reload);
    Engine *reframe(int frameLen);
    Engine *build(const Record &rec, int frameLen);

    const int channels_;
    const double rate_;
    LV2_Worker_Schedule *schedule_;
    LV2_Log_Log *log_;
    Uris uris_;
    LV2_Atom_Forge forge_;

    // Ports.
    const LV2_Atom_Sequence *control_ = nullptr;
    LV2_Atom_Sequence *notify_ = nullptr;
    float *latency_ = nullptr;
    const float *frame_ = nullptr;
    const float *bypass_ = nullptr;
    const float *in_[2] = {};
    float *out_[2] = {};

    // Control side: the worker, activate and the state calls, one at a time.
    std::mutex mutex_;
    std::string tuningPath_;  // the tuning taken last; empty: none
    Record tuningRecord_{};
    FileStamp tuningStamp_;
    int frameLen_ = kDefaultFrameLen;  // what the newest engine runs
    bool active_ = false;
    unsigned epoch_ = 0;
    Engine *newest_ = nullptr;         // new tunings go to its hand-over
    std::vector<std::unique_ptr<Engine>> engines_;  // all not yet retired

    // Audio side.
    FloatBlocks blocks_;
    Engine *engine_ = nullptr;   // playing
    Engine *retired_ = nullptr;  // replaced, to go back to the worker
    unsigned audioEpoch_ = 0;
    int requestedFrame_ = kDefaultFrameLen;
    long long handedOverAt_ = -1;
    double sinceCheck_ = 0;
    char pathPlaying_[kMaxPath] = "";
    bool sendPath_ = false;
};

Plugin::Plugin(int channels, double rate, LV2_URID_Map *map, LV2_Worker_Schedule *schedule, LV2_Log_Log *log)
    : channels_(channels), rate_(rate), schedule_(schedule), log_(log), blocks_(channels, kMaxFrameLen)
{
    auto id = [map](const char *uri) { return map->map(map->handle, uri); };
    uris_ = {id(LV2_ATOM__Path),   id(LV2_ATOM__String),    id(LV2_ATOM__URID),     id(LV2_ATOM__Object),
             id(LV2_ATOM__Blank),  id(LV2_PATCH__Set),      id(LV2_PATCH__Get),     id(LV2_PATCH__property),
             id(LV2_PATCH__value), id(kTuningUri),          id(LV2_LOG__Error),     id(LV2_LOG__Note)};
    lv2_atom_forge_init(&forge_, map);
}

void Plugin::log(LV2_URID level, const char *format, ...)
{
    char line[1536];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (log_)
        log_->printf(log_->handle, level, "eqdrc: %s\n", line);
    else
        log_line("%s", line);
}

void Plugin::connect(uint32_t port, void *data)
{
    switch (port) {
    case kControl: control_ = static_cast<const LV2_Atom_Sequence *>(data); break;
    case kNotify: notify_ = static_cast<LV2_Atom_Sequence *>(data); break;
    case kLatency: latency_ = static_cast<float *>(data); break;
    case kFrame: frame_ = static_cast<const float *>(data); break;
    case kBypass: bypass_ = static_cast<const float *>(data); break;
    default:
        if (port < kAudio + static_cast<uint32_t>(channels_))
            in_[port - kAudio] = static_cast<const float *>(data);
        else if (port < kAudio + 2u * static_cast<uint32_t>(channels_))
            out_[port - kAudio - channels_] = static_cast<float *>(data);
    }
}

// ---- control side ----

Engine *Plugin::build(const Record &rec, int frameLen)
{
    auto e = std::make_unique<Engine>();
    std::string error;
    e->frameLen = frameLen;
    e->stream = FrameStream::create(rec, frameLen, &e->handoff, error);
    if (!e->stream) {
        log(uris_.logError, "%s: %s", tuningPath_.c_str(), error.c_str());
        return nullptr;
    }
    e->stream->set_swap_callback(&Plugin::on_swap, this);
    newest_ = e.get();
    engines_.push_back(std::move(e));
    return newest_;
}

Plugin::Taken Plugin::take_tuning(const std::string &path, bool reload)
{
    Taken t;
    FileStamp stamp = stamp_of(path);  // before reading: a change while reading shows next time
    if (reload)
        tuningStamp_ = stamp;  // one try per version
    Record rec;
    std::string error;
    if (!load_tuning(path, static_cast<int>(rate_), channels_, false, frameLen_, rec, error)) {
        log(uris_.logError, "%s; %s", error.c_str(),
            tuningPath_.empty() ? "no tuning plays (the output is silent)" : "keeping the tuning that plays");
        return t;
    }
    tuningPath_ = path;
    tuningRecord_ = rec;
    tuningStamp_ = stamp;
    t.accepted = true;
    if (newest_)
        newest_->handoff.offer(rec);
    else if (active_)
        t.engine = build(rec, frameLen_);
    return t;
}

Engine *Plugin::reframe(int frameLen)
{
    Record rec;
    std::string error;
    if (!tuningPath_.empty() &&
        !fit_tuning(tuningRecord_, tuningPath_, static_cast<int>(rate_), channels_, false, frameLen, rec, error)) {
        log(uris_.logError, "frames of %d: %s; keeping frames of %d", frameLen, error.c_str(), frameLen_);
        return nullptr;
    }
    Engine *e = tuningPath_.empty() ? nullptr : build(rec, frameLen);
    if (e || tuningPath_.empty())
        frameLen_ = frameLen;
    return e;
}

void Plugin::take_initial_tuning(const char *path)
{
    std::lock_guard<std::mutex> lock(mutex_);
    take_tuning(path, false);
}

void Plugin::activate()
{
    std::lock_guard<std::mutex> lock(mutex_);
    audioEpoch_ = ++epoch_;
    engine_ = retired_ = newest_ = nullptr;
    engines_.clear();
    frameLen_ = requestedFrame_ = frame_ ? frame_from_port(*frame_) : kDefaultFrameLen;
    active_ = true;
    Record rec;
    std::string error;
    if (tuningPath_.empty())
        log(uris_.logNote, "no tuning set: the output is silent until one is");
    else if (!fit_tuning(tuningRecord_, tuningPath_, static_cast<int>(rate_), channels_, false, frameLen_, rec, error))
        log(uris_.logError, "%s; no tuning plays (the output is silent)", error.c_str());
    else
        engine_ = build(rec, frameLen_);
    blocks_.restart(engine_ ? engine_->stream.get() : nullptr, frameLen_);
    std::snprintf(pathPlaying_, sizeof pathPlaying_, "%s", engine_ ? tuningPath_.c_str() : "");
    sendPath_ = engine_ != nullptr;
    handedOverAt_ = -1;
    sinceCheck_ = 0;
}

void Plugin::deactivate()
{
    std::lock_guard<std::mutex> lock(mutex_);
    active_ = false;
}

LV2_Worker_Status Plugin::work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle,
                               uint32_t size, const void *data)
{
    Message m;
    std::memcpy(&m, data, std::min<size_t>(size, sizeof m));
    m.path[kMaxPath - 1] = '\0';
    std::lock_guard<std::mutex> lock(mutex_);
    Message answer;
    answer.epoch = epoch_;
    auto send = [&](Job job, Engine *engine, long long number, const char *path) {
        answer.job = job;
        answer.engine = engine;
        answer.number = number;
        std::snprintf(answer.path, sizeof answer.path, "%s", path);
        respond(handle, message_size(answer), &answer);
    };
    switch (m.job) {
    case Job::Load:
    case Job::Poll: {
        if (m.job == Job::Load && m.number > 0) {
            log(uris_.logError, "a tuning path of %lld bytes is longer than %zu; keeping the tuning that plays",
                m.number, kMaxPath - 1);
            break;
        }
        if (m.job == Job::Poll && (tuningPath_.empty() || stamp_of(tuningPath_) == tuningStamp_))
            break;
        Taken t = take_tuning(m.job == Job::Load ? std::string(m.path) : tuningPath_, m.job == Job::Poll);
        if (t.engine)
            send(Job::Install, t.engine, t.engine->frameLen, "");
        if (t.accepted)
            send(Job::Accepted, nullptr, 0, tuningPath_.c_str());
        break;
    }
    case Job::Reframe:
        if (m.epoch == epoch_ && m.number != frameLen_) {
            Engine *e = reframe(static_cast<int>(m.number));
            if (e || tuningPath_.empty())
                send(Job::Install, e, frameLen_, "");
        }
        break;
    case Job::Handover:
        log(uris_.logNote, "%s: new tuning took effect at frame %lld", tuningPath_.c_str(), m.number);
        break;
    case Job::Retire:
        if (m.epoch == epoch_)
            engines_.erase(std::remove_if(engines_.begin(), engines_.end(),
                                          [&](const std::unique_ptr<Engine> &e) { return e.get() == m.engine; }),
                           engines_.end());
        break;
    default:
        break;
    }
    return LV2_WORKER_SUCCESS;
}

LV2_State_Status Plugin::save(LV2_State_Store_Function store, LV2_State_Handle handle,
                              const LV2_Feature *const *features)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (tuningPath_.empty())
        return LV2_STATE_SUCCESS;
    // Hosts that keep sessions movable map the path into the session's terms.
    auto *map = static_cast<const LV2_State_Map_Path *>(feature(features, LV2_STATE__mapPath));
    auto *freePath = static_cast<const LV2_State_Free_Path *>(feature(features, LV2_STATE__freePath));
    char *abstract = map ? map->abstract_path(map->handle, tuningPath_.c_str()) : nullptr;
    const char *value = abstract ? abstract : tuningPath_.c_str();
    LV2_State_Status status = store(handle, uris_.tuning, value, std::strlen(value) + 1, uris_.atomPath,
                                    LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
    if (abstract)
        freePath ? freePath->free_path(freePath->handle, abstract) : std::free(abstract);
    return status;
}

LV2_State_Status Plugin::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                                 const LV2_Feature *const *features)
{
    size_t size = 0;
    uint32_t type = 0, flags = 0;
    const char *value = static_cast<const char *>(retrieve(handle, uris_.tuning, &size, &type, &flags));
    if (!value || size == 0 || (type != uris_.atomPath && type != uris_.atomString))
        return LV2_STATE_SUCCESS;
    auto *map = static_cast<const LV2_State_Map_Path *>(feature(features, LV2_STATE__mapPath));
    auto *freePath = static_cast<const LV2_State_Free_Path *>(feature(features, LV2_STATE__freePath));
    std::string path(value, strnlen(value, size));
    if (char *absolute = map ? map->absolute_path(map->handle, path.c_str()) : nullptr) {
        path = absolute;
        freePath ? freePath->free_path(freePath->handle, absolute) : std::free(absolute);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    Taken t = take_tuning(path, false);
    // Not called while run() is (no state:threadSafeRestore): the audio side may be set here.
    if (t.engine)
        install(t.engine, t.engine->frameLen);
    if (t.accepted) {
        std::snprintf(pathPlaying_, sizeof pathPlaying_, "%s", tuningPath_.c_str());
        sendPath_ = true;
    }
    return LV2_STATE_SUCCESS;
}

// ---- audio side ----

void Plugin::install(Engine *engine, int frameLen)
{
    if (engine_)
        retired_ = engine_;
    engine_ = engine;
    blocks_.restart(engine ? engine->stream.get() : nullptr, frameLen);
}

LV2_Worker_Status Plugin::work_response(uint32_t size, const void *data)
{
    Message m;
    std::memcpy(&m, data, std::min<size_t>(size, sizeof m));
    m.path[kMaxPath - 1] = '\0';
    if (m.epoch != audioEpoch_)
        return LV2_WORKER_SUCCESS;
    if (m.job == Job::Install) {
        install(m.engine, static_cast<int>(m.number));
    } else if (m.job == Job::Accepted) {
        std::memcpy(pathPlaying_, m.path, std::strlen(m.path) + 1);
        sendPath_ = true;
    }
    return LV2_WORKER_SUCCESS;
}

void Plugin::read_control()
{
    LV2_ATOM_SEQUENCE_FOREACH(control_, ev)
    {
        if (ev->body.type != uris_.atomObject && ev->body.type != uris_.atomBlank)
            continue;
        const auto *obj = reinterpret_cast<const LV2_Atom_Object *>(&ev->body);
        if (obj->body.otype == uris_.patchGet) {
            sendPath_ = pathPlaying_[0] != '\0';
            continue;
        }
        const LV2_Atom *property = nullptr, *value = nullptr;
        if (obj->body.otype != uris_.patchSet)
            continue;
        lv2_atom_object_get(obj, uris_.patchProperty, &property, uris_.patchValue, &value, 0);
        if (!property || property->type != uris_.atomUrid ||
            reinterpret_cast<const LV2_Atom_URID *>(property)->body != uris_.tuning || !value ||
            (value->type != uris_.atomPath && value->type != uris_.atomString))
            continue;
        Message m;
        m.job = Job::Load;
        const char *path = static_cast<const char *>(LV2_ATOM_BODY_CONST(value));
        const size_t length = strnlen(path, value->size);
        if (length < kMaxPath)
            std::memcpy(m.path, path, length), m.path[length] = '\0';
        else
            m.number = static_cast<long long>(length);
        schedule(m);
    }
}

void Plugin::write_notify()
{
    lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<uint8_t *>(notify_), notify_->atom.size);
    LV2_Atom_Forge_Frame sequence, object;
    lv2_atom_forge_sequence_head(&forge_, &sequence, 0);
    if (sendPath_) {
        lv2_atom_forge_frame_time(&forge_, 0);
        lv2_atom_forge_object(&forge_, &object, 0, uris_.patchSet);
        lv2_atom_forge_key(&forge_, uris_.patchProperty);
        lv2_atom_forge_urid(&forge_, uris_.tuning);
        lv2_atom_forge_key(&forge_, uris_.patchValue);
        lv2_atom_forge_path(&forge_, pathPlaying_, static_cast<uint32_t>(std::strlen(pathPlaying_)));
        lv2_atom_forge_pop(&forge_, &object);
        sendPath_ = false;
    }
    lv2_atom_forge_pop(&forge_, &sequence);
}

void Plugin::run(uint32_t n)
{
    Message m;
    m.epoch = audioEpoch_;
    if (control_)
        read_control();
    if (frame_ && frame_from_port(*frame_) != requestedFrame_) {
        m.job = Job::Reframe;
        m.number = requestedFrame_ = frame_from_port(*frame_);
        schedule(m);
    }
    if (retired_) {
        m.job = Job::Retire;
        m.engine = retired_;
        if (schedule_->schedule_work(schedule_->handle, message_size(m), &m) == LV2_WORKER_SUCCESS)
            retired_ = nullptr;
    }
    blocks_.set_bypass(bypass_ && *bypass_ > 0.5f);
    bool connected = true;
    for (int c = 0; c < channels_; c++)
        connected = connected && in_[c] && out_[c];
    if (connected)
        blocks_.process(in_, out_, n);
    if (handedOverAt_ >= 0) {
        m.job = Job::Handover;
        m.number = handedOverAt_;
        handedOverAt_ = -1;
        schedule(m);
    }
    sinceCheck_ += n;
    if (sinceCheck_ >= rate_ / 2) {
        sinceCheck_ = 0;
        m.job = Job::Poll;
        schedule(m);
    }
    if (notify_)
        write_notify();
    if (latency_)
        *latency_ = static_cast<float>(blocks_.latency());
}

// ---- the C interface ----

template <int Channels>
LV2_Handle instantiate(const LV2_Descriptor *, double rate, const char *, const LV2_Feature *const *features)
{
    auto *map = static_cast<LV2_URID_Map *>(const_cast<void *>(feature(features, LV2_URID__map)));
    auto *schedule = static_cast<LV2_Worker_Schedule *>(const_cast<void *>(feature(features, LV2_WORKER__schedule)));
    auto *log = static_cast<LV2_Log_Log *>(const_cast<void *>(feature(features, LV2_LOG__log)));
    if (!map || !schedule) {
        log_line("the host lacks %s", map ? "the worker (worker:schedule)" : "urid:map");
        return nullptr;
    }
    try {
        auto *p = new Plugin(Channels, rate, map, schedule, log);
        if (const char *path = std::getenv(kTuningEnv); path && *path)
            p->take_initial_tuning(path);
        return p;
    } catch (const std::exception &e) {
        log_line("%s", e.what());
        return nullptr;
    }
}

Plugin *self(LV2_Handle h) { return static_cast<Plugin *>(h); }

const LV2_Worker_Interface kWorker = {
    [](LV2_Handle h, LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle, uint32_t size,
       const void *data) { return self(h)->work(respond, handle, size, data); },
    [](LV2_Handle h, uint32_t size, const void *data) { return self(h)->work_response(size, data); }, nullptr};

const LV2_State_Interface kState = {
    [](LV2_Handle h, LV2_State_Store_Function store, LV2_State_Handle handle, uint32_t,
       const LV2_Feature *const *features) { return self(h)->save(store, handle, features); },
    [](LV2_Handle h, LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle, uint32_t,
       const LV2_Feature *const *features) { return self(h)->restore(retrieve, handle, features); }};

const void *extension_data(const char *uri)
{
    if (std::strcmp(uri, LV2_WORKER__interface) == 0)
        return &kWorker;
    if (std::strcmp(uri, LV2_STATE__interface) == 0)
        return &kState;
    return nullptr;
}

template <int Channels>
constexpr LV2_Descriptor descriptor(const char *uri)
{
    return {uri,
            instantiate<Channels>,
            [](LV2_Handle h, uint32_t port, void *data) { self(h)->connect(port, data); },
            [](LV2_Handle h) { self(h)->activate(); },
            [](LV2_Handle h, uint32_t n) { self(h)->run(n); },
            [](LV2_Handle h) { self(h)->deactivate(); },
            [](LV2_Handle h) { delete self(h); },
            extension_data};
}

const LV2_Descriptor kDescriptors[] = {descriptor<2>("urn:tqaudio:eqdrc:stereo"),
                                       descriptor<1>("urn:tqaudio:eqdrc:mono")};

}  // namespace
}  // namespace eqdrc_lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor *lv2_descriptor(uint32_t index)
{
    return index < 2 ? &eqdrc_lv2::kDescriptors[index] : nullptr;
}
