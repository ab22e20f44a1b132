// The LV2 plugin in a small lilv host, as PipeWire's filter-chain or a plugin host runs
// it: URIDs, a log that keeps its lines, a worker that runs between run() calls, the
// state interface, and flush-to-zero with denormals-as-zero on the audio thread. The
// output is compared with the chain run frame by frame (the PipeWire test compares float
// input between 16-bit steps, halfway, beyond full scale and NaN with `eqdrc process`).
#include <gtest/gtest.h>
#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/log/log.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cstdarg>
#include <map>

#include "plugin_test_support.h"
#include "support/host_environment.h"
#include "support/realtime_probe.h"

namespace {

using namespace eqdrc_plugin_test;
using eqdrc_tool_test::ScratchDir;

constexpr int kFrame = 768;
constexpr size_t kMaxBlock = 4096;
const std::string kReference = std::string(EQDRC_SOURCE_DIR) + "/tunings/reference.bin";
const std::string kMusic = std::string(EQDRC_SOURCE_DIR) + "/tunings/music.json";
const Record kMusicRecord = shipped_tuning("music.json");

// One plugin instance with the features hosts give it: URIDs, a log that keeps its lines,
// a worker whose work runs after each run() and whose answers come before the next.
class Host {
public:
    // Instantiates the stereo or mono plugin, restores `tuning` as a saved session would and activates.
    Host(int channels, const std::string &tuning, float frameLen = kFrame) : frame(frameLen), channels_(channels)
    {
        static LilvWorld *world = [] {
            setenv("LV2_PATH", EQDRC_LV2_DIR, 1);
            LilvWorld *w = lilv_world_new();
            lilv_world_load_all(w);
            return w;
        }();
        LilvNode *uri = lilv_new_uri(world, channels == 2 ? "urn:tqaudio:eqdrc:stereo" : "urn:tqaudio:eqdrc:mono");
        instance_ = lilv_plugin_instantiate(lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri), 48000, features_);
        lilv_node_free(uri);
        worker_ = static_cast<const LV2_Worker_Interface *>(lilv_instance_get_extension_data(instance_, LV2_WORKER__interface));
        state_ = static_cast<const LV2_State_Interface *>(lilv_instance_get_extension_data(instance_, LV2_STATE__interface));
        void *ports[] = {control_, notify_, &latency, &frame, &bypass, in_[0], in_[1]};
        for (int p = 0; p < 5 + channels; p++)
            lilv_instance_connect_port(instance_, p, ports[p]);
        for (int c = 0; c < channels; c++)
            lilv_instance_connect_port(instance_, 5 + channels + c, out_[c]);
        stateValue_ = tuning;
        auto retrieve = [](LV2_State_Handle h, uint32_t, size_t *size, uint32_t *type, uint32_t *) -> const void * {
            *size = static_cast<Host *>(h)->stateValue_.size() + 1;
            *type = static_cast<Host *>(h)->id(LV2_ATOM__Path);
            return static_cast<Host *>(h)->stateValue_.c_str();
        };
        if (!tuning.empty())
            state_->restore(lilv_instance_get_handle(instance_), retrieve, this, 0, nullptr);
        lilv_instance_activate(instance_);
        jobs_.reserve(1 << 16);  // so that run() never makes the host allocate
        answers_.reserve(1 << 16);
    }
    ~Host()
    {
        lilv_instance_deactivate(instance_);
        lilv_instance_free(instance_);
    }

    // Sends patch:Set of the tuning path with the next run().
    void set_tuning(const std::string &path) { pendingTuning_ = path; }

    // The tuning path the plugin saves in a session.
    std::string saved()
    {
        auto store = [](LV2_State_Handle h, uint32_t, const void *value, size_t, uint32_t, uint32_t) {
            static_cast<Host *>(h)->stateValue_ = static_cast<const char *>(value);
            return LV2_STATE_SUCCESS;
        };
        state_->save(lilv_instance_get_handle(instance_), store, this, 0, nullptr);
        return stateValue_;
    }

    // Plays interleaved `in` in blocks taken in turn from `blocks`, calling `before(at)`
    // before each; the interleaved output.
    std::vector<float> play(const std::vector<float> &in, const std::vector<size_t> &blocks,
                            const std::function<void(size_t)> &before = {})
    {
        std::vector<float> out(in.size());
        for (size_t at = 0, b = 0, n; at < in.size() / channels_; at += n, b++) {
            n = std::min(blocks[b % blocks.size()], in.size() / channels_ - at);
            if (before)
                before(at);
            for (size_t i = 0; i < n * channels_; i++)
                in_[i % channels_][i / channels_] = in[at * channels_ + i];
            cycle(static_cast<uint32_t>(n));
            for (size_t i = 0; i < n * channels_; i++)
                out[at * channels_ + i] = out_[i % channels_][i / channels_];
        }
        return out;
    }

    float latency = 0, frame, bypass = 0;
    std::vector<std::string> lines;  // the plugin's log
    std::string notified;            // the tuning path last sent on the notify port
    eqdrc_test::RealtimeCalls audioCalls{};  // made by run() and work_response(), all blocks

private:
    LV2_URID id(const char *uri) { return ids_.emplace(uri, static_cast<LV2_URID>(ids_.size() + 1)).first->second; }
    static LV2_Worker_Status queue(std::vector<char> &q, uint32_t size, const void *data)
    {
        q.insert(q.end(), reinterpret_cast<const char *>(&size), reinterpret_cast<const char *>(&size) + 4);
        q.insert(q.end(), static_cast<const char *>(data), static_cast<const char *>(data) + size);
        return LV2_WORKER_SUCCESS;
    }
    template <class F>
    static void each(std::vector<char> &q, F f)
    {
        for (size_t at = 0; at < q.size();) {
            uint32_t size;
            std::memcpy(&size, &q[at], 4);
            f(size, &q[at + 4]);
            at += 4 + size;
        }
        q.clear();
    }

    void cycle(uint32_t n)
    {
        lv2_atom_forge_set_buffer(&forge_, control_, sizeof control_);
        LV2_Atom_Forge_Frame seq, obj;
        lv2_atom_forge_sequence_head(&forge_, &seq, 0);
        if (!pendingTuning_.empty()) {
            lv2_atom_forge_frame_time(&forge_, 0);
            lv2_atom_forge_object(&forge_, &obj, 0, id(LV2_PATCH__Set));
            lv2_atom_forge_key(&forge_, id(LV2_PATCH__property));
            lv2_atom_forge_urid(&forge_, id("urn:tqaudio:eqdrc:tuning"));
            lv2_atom_forge_key(&forge_, id(LV2_PATCH__value));
            lv2_atom_forge_path(&forge_, pendingTuning_.c_str(), static_cast<uint32_t>(pendingTuning_.size()));
            lv2_atom_forge_pop(&forge_, &obj);
            pendingTuning_.clear();
        }
        lv2_atom_forge_pop(&forge_, &seq);
        reinterpret_cast<LV2_Atom *>(notify_)->size = sizeof notify_ - sizeof(LV2_Atom);
        LV2_Handle h = lilv_instance_get_handle(instance_);
        eqdrc_test::RealtimeCalls calls = eqdrc_test::calls_during([&] {
            each(answers_, [&](uint32_t size, const void *data) { worker_->work_response(h, size, data); });
            lilv_instance_run(instance_, n);
        });
        for (int k = 0; k < eqdrc_test::kKinds; k++)
            audioCalls[k] += calls[k];
        LV2_ATOM_SEQUENCE_FOREACH(reinterpret_cast<const LV2_Atom_Sequence *>(notify_), ev)
        {
            const LV2_Atom *value = nullptr;
            lv2_atom_object_get(reinterpret_cast<const LV2_Atom_Object *>(&ev->body), id(LV2_PATCH__value), &value, 0);
            notified = value ? static_cast<const char *>(LV2_ATOM_BODY_CONST(value)) : notified;
        }
        each(jobs_, [&](uint32_t size, const void *data) {
            worker_->work(h, [](LV2_Worker_Respond_Handle self, uint32_t size, const void *data) {
                return queue(static_cast<Host *>(self)->answers_, size, data);
            }, this, size, data);
        });
    }
    static int log_vprintf(LV2_Log_Handle h, LV2_URID, const char *fmt, va_list args)
    {
        char line[2048];
        int n = std::vsnprintf(line, sizeof line, fmt, args);
        static_cast<Host *>(h)->lines.push_back(line);
        return n;
    }
    static int log_printf(LV2_Log_Handle h, LV2_URID type, const char *fmt, ...)
    {
        va_list args;
        va_start(args, fmt);
        int n = log_vprintf(h, type, fmt, args);
        va_end(args);
        return n;
    }

    int channels_;
    std::map<std::string, LV2_URID> ids_;
    LV2_URID_Map map_{this, [](LV2_URID_Map_Handle h, const char *uri) { return static_cast<Host *>(h)->id(uri); }};
    LV2_Worker_Schedule schedule_{this, [](LV2_Worker_Schedule_Handle h, uint32_t size, const void *data) {
                                      return queue(static_cast<Host *>(h)->jobs_, size, data);
                                  }};
    LV2_Log_Log log_{this, log_printf, log_vprintf};
    LV2_Feature mapFeature_{LV2_URID__map, &map_}, scheduleFeature_{LV2_WORKER__schedule, &schedule_},
        logFeature_{LV2_LOG__log, &log_};
    const LV2_Feature *features_[4] = {&mapFeature_, &scheduleFeature_, &logFeature_, nullptr};
    LilvInstance *instance_ = nullptr;
    const LV2_Worker_Interface *worker_ = nullptr;
    const LV2_State_Interface *state_ = nullptr;
    std::vector<char> jobs_, answers_;
    alignas(8) uint8_t control_[8192], notify_[8192];
    LV2_Atom_Forge forge_ = [this] {
        LV2_Atom_Forge f;
        lv2_atom_forge_init(&f, &map_);
        return f;
    }();
    std::string pendingTuning_, stateValue_;
    float in_[2][kMaxBlock], out_[2][kMaxBlock];
};

// Hosts set these on their audio threads; the plugin's thread here is the test's.
#if defined(EQDRC_HAS_FP_CONTROL)
struct HostFloatingPoint : testing::Environment {
    void SetUp() override { eqdrc::write_fp_control(eqdrc::read_fp_control() | eqdrc_test::kHostEnvironments[0].bits); }
};
const auto *const kHostFloatingPoint = testing::AddGlobalTestEnvironment(new HostFloatingPoint);
#endif

std::vector<float> as_float(const std::vector<int16_t> &pcm)
{
    std::vector<float> f(pcm.size());
    std::transform(pcm.begin(), pcm.end(), f.begin(), [](int16_t s) { return static_cast<float>(s) / 32768.0f; });
    return f;
}

// What the plugin must output for the chain's output `wet`: one frame of silence first.
std::vector<float> delayed(const std::vector<float> &wet, int frameLen, int channels)
{
    std::vector<float> out(wet.size(), 0.0f);
    std::copy(wet.begin(), wet.end() - static_cast<long>(frameLen) * channels, out.begin() + frameLen * channels);
    return out;
}

// The frame index in the plugin's hand-over line, -1 without one.
long long handover_frame(const std::vector<std::string> &lines)
{
    for (const std::string &l : lines)
        if (size_t at = l.find("took effect at frame "); at != std::string::npos)
            return std::stoll(l.substr(at + 21));
    return -1;
}

TEST(Lv2Output, ExactForAnyBlockSizeChannelCountAndFrameLength)
{
    ScratchDir dir;
    const std::string mono = saved(dir / "mono.bin", fitted("reference.bin", 48000, 1));
    struct Case {
        int channels, frameLen;
        std::vector<size_t> blocks;
    } cases[] = {{2, kFrame, {1}},   {2, kFrame, {17}},  {2, kFrame, {767}}, {2, kFrame, {4096}},
                 {2, kFrame, {500, 1, 4096, 17, 767, 64}}, {1, kFrame, {17}}, {1, kFrame, {4096, 3}}, {2, 256, {17}}};
    for (const Case &c : cases) {
        const std::vector<int16_t> in = music(8000, c.channels);
        Host host(c.channels, c.channels == 2 ? kReference : mono, static_cast<float>(c.frameLen));
        const std::vector<float> out = host.play(as_float(in), c.blocks);
        const Record rec = c.channels == 2 ? shipped_tuning("reference.bin") : fitted("reference.bin", 48000, 1);
        EXPECT_TRUE(out == delayed(as_float(reference(rec, c.frameLen, in)), c.frameLen, c.channels))
            << c.channels << " channel(s), frame " << c.frameLen << ", first block " << c.blocks[0];
        EXPECT_EQ(host.latency, static_cast<float>(c.frameLen));
    }
}

// Each refused tuning, set or a new version of the file that plays, is one log line
// naming the file while the old tuning plays on; a good one takes over at the logged
// frame, exactly on both sides, and is saved in the session and announced.
TEST(Lv2Retune, RefusedTuningsAreLoggedOnceAndAGoodOneTakesOverExactly)
{
    ScratchDir dir;
    const Record first = shipped_tuning("reference.bin");
    const std::string playing = saved(dir / "playing.bin", first);
    const std::map<size_t, std::string> refused = {
        {2000, dir / "missing.bin"},
        {4000, saved(dir / "mono.bin", fitted("reference.bin", 48000, 1))},
        {6000, saved(dir / "rejected.bin", altered(first, "eq10.channels[0].bands[0].fc", 30000.0f))},
        {8000, dir.path()}};
    std::map<size_t, std::string> logs = {{25000, playing}};  // the file is checked twice a second
    for (const auto &[at, path] : refused)
        logs[at + 1000] = path;
    const std::vector<int16_t> in = music(40000, 2);
    Host host(2, playing);
    size_t logged = host.lines.size();
    const std::vector<float> out = host.play(as_float(in), {1000}, [&](size_t at) {
        if (logs.count(at)) {
            EXPECT_EQ(host.lines.size(), logged + 1) << logs[at];
            EXPECT_NE(host.lines.back().find(logs[at]), std::string::npos) << host.lines.back();
            logged = host.lines.size();
        }
        if (refused.count(at) || at == 30000)
            host.set_tuning(at == 30000 ? kMusic : refused.at(at));
        if (at == 10000)
            saved(playing, altered(first, "header.tool_version", 3.0f));
    });
    EXPECT_EQ(host.lines.size(), logged + 1);  // the hand-over
    const long long frame = handover_frame(host.lines);
    ASSERT_GE(frame, 30000 / kFrame);
    EXPECT_TRUE(out == delayed(as_float(reference(first, kFrame, in, &kMusicRecord, frame)), kFrame, 2));
    EXPECT_EQ(host.saved(), kMusic);
    EXPECT_EQ(host.notified, kMusic);

    Host silent(2, "");
    EXPECT_TRUE(silent.play(as_float(in), {4096}) == std::vector<float>(in.size(), 0.0f));
    ASSERT_EQ(silent.lines.size(), 1u);
    EXPECT_NE(silent.lines[0].find("no tuning"), std::string::npos);
}

// Under bypass the input passes bit for bit, one frame later; switching it off fades
// over one frame to exactly the chain's output; a new frame length starts a chain for it
// with the block after the change. And through all that, retunes and a file reload,
// run() and work_response() never allocate, lock or do I/O (where the probe counts).
TEST(Lv2Live, BypassRetunesAndANewFrameLengthAreExactAndRealTimeSafe)
{
    ScratchDir dir;
    const Record first = shipped_tuning("reference.bin");
    const std::string playing = saved(dir / "playing.bin", first);
    if (eqdrc_test::probe_counts()) {
        ASSERT_GT(eqdrc_test::calls_during([&] { Host probe(2, playing); })[eqdrc_test::kAlloc], 0)
            << "the probe sees the plugin's calls";
    }
    const std::vector<int16_t> in = music(60000, 2);
    Host host(2, playing);
    const std::vector<float> out = host.play(as_float(in), {500}, [&](size_t at) {
        host.bypass = at >= 1000 && at < 4000;
        host.set_tuning(at == 5000 ? kMusic : at == 10000 ? playing : "");
        host.frame = at >= 30000 ? 512 : kFrame;
        if (at == 35000)
            saved(playing, kMusicRecord);
    });
    if (eqdrc_test::probe_counts()) {
        EXPECT_EQ(eqdrc_test::describe(host.audioCalls), "none");
    }
    const std::vector<float> dry = delayed(as_float(in), kFrame, 2), wet = delayed(as_float(reference(first, kFrame, in)), kFrame, 2);
    EXPECT_TRUE(std::equal(out.begin() + (1000 + kFrame) * 2, out.begin() + 4000 * 2, dry.begin() + (1000 + kFrame) * 2));
    EXPECT_TRUE(std::equal(out.begin() + (4000 + kFrame) * 2, out.begin() + 5000 * 2, wet.begin() + (4000 + kFrame) * 2));
    EXPECT_EQ(host.latency, 512.0f);
    const std::vector<int16_t> tail(in.begin() + 30500 * 2, in.end());
    const std::vector<float> expected = delayed(
        as_float(reference(first, 512, tail, &kMusicRecord, handover_frame({host.lines.back()}))), 512, 2);
    EXPECT_TRUE(std::equal(out.begin() + 30500 * 2, out.end(), expected.begin()));
}

}  // namespace
