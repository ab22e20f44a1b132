// The eqdrc element in real pipelines: its output against the chain run frame by frame,
// whatever the buffer sizes; seeking, retuning while playing, the bypass, the latency,
// and the errors a wrong setting gives.
#include <gtest/gtest.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "gst_test_support.h"
#include "meter_file.h"
#include "plugin_test_support.h"
#include "tool_test_support.h"

using namespace eqdrc_gst_test;
using namespace eqdrc_plugin_test;
using eqdrc_tool_test::ScratchDir;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";
const std::string kStereoTuning = kTunings + "reference.bin";

std::string caps_text(int channels)
{
    return "audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=" + std::to_string(channels);
}

GstClockTime at_sample(size_t n)
{
    return gst_util_uint64_scale_int(n, GST_SECOND, kRate);
}

// A pipeline whose source "src" feeds the element "eq", whose output is recorded at the
// fakesink "sink". An appsrc source is fed by the test in buffers of chosen sizes.
class Pipeline {
public:
    explicit Pipeline(const std::string &description, int channels = 2)
        : pipeline(gst_parse_launch(description.c_str(), nullptr)),
          src(gst_bin_get_by_name(GST_BIN(pipeline), "src")),
          eq(gst_bin_get_by_name(GST_BIN(pipeline), "eq")),
          out(pipeline, "sink", "sink"),
          channels_(static_cast<size_t>(channels))
    {
    }
    ~Pipeline()
    {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(src);
        gst_object_unref(eq);
        gst_object_unref(pipeline);
    }

    // Pushes samples[from, to) in buffers whose sizes cycle through `sizes`, stamped as if
    // sample 0 were at `start`; the first buffer marked as a discontinuity when asked.
    void push(const std::vector<int16_t> &samples, size_t from, size_t to, const std::vector<size_t> &sizes,
              GstClockTime start = 0, bool discont = false)
    {
        for (size_t at = from, k = 0; at < to; ++k) {
            const size_t n = std::min(sizes[k % sizes.size()], to - at);
            GstBuffer *buf = gst_buffer_new_memdup(samples.data() + at * channels_, n * channels_ * sizeof(int16_t));
            GST_BUFFER_PTS(buf) = start + at_sample(at);
            GST_BUFFER_DURATION(buf) = start + at_sample(at + n) - GST_BUFFER_PTS(buf);
            if (discont && at == from)
                GST_BUFFER_FLAG_SET(buf, GST_BUFFER_FLAG_DISCONT);
            gst_app_src_push_buffer(GST_APP_SRC(src), buf);
            at += n;
        }
    }

    BusLog finish()
    {
        gst_app_src_end_of_stream(GST_APP_SRC(src));
        return run_to_end(pipeline);
    }

    // Plays `in` in buffers of `block` samples and calls `change` while playing, once a
    // quarter of it came out and the second half is not pushed yet.
    template <class F>
    BusLog play_changing(const std::vector<int16_t> &in, size_t block, F change)
    {
        const size_t frames = in.size() / channels_;
        push(in, 0, frames / 2, {block});
        out.wait_for(frames / 4 * channels_);
        change();
        push(in, frames / 2, frames, {block});
        return finish();
    }

    GstElement *pipeline, *src, *eq;
    PadRecorder out;

private:
    size_t channels_;
};

// appsrc ! eqdrc ! fakesink, playing.
struct FedPipeline : Pipeline {
    FedPipeline(const std::string &tuning, int channels, const std::string &elementOptions = "",
                const std::string &caps = "")
        : Pipeline("appsrc name=src format=time caps=\"" + (caps.empty() ? caps_text(channels) : caps) +
                       "\" ! eqdrc name=eq tuning=\"" + tuning + "\" " + elementOptions +
                       " ! fakesink name=sink sync=false",
                   channels)
    {
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
    }
};

// Output buffers follow each other without gap or overlap from the stream's start.
void expect_continuous_timestamps(const PadRecorder &r, int channels)
{
    ASSERT_FALSE(r.buffers.empty());
    EXPECT_TRUE(r.buffers.front().discont);
    size_t samples = 0;
    for (size_t i = 0; i < r.buffers.size(); ++i) {
        const PadRecorder::Buffer &b = r.buffers[i];
        const size_t n = b.bytes / (2 * static_cast<size_t>(channels));
        ASSERT_EQ(b.pts, at_sample(samples)) << "buffer " << i;
        ASSERT_EQ(b.pts + b.duration, at_sample(samples + n)) << "buffer " << i;
        samples += n;
    }
}

TEST(ElementOutput, ExactAndContinuousForAnyBufferSizeChannelsAndFrameLength)
{
    ScratchDir dir;
    const Record stereo = shipped_tuning("reference.bin"), mono = fitted("music.json", kRate, 1);
    const std::string monoTuning = saved(dir / "mono.bin", mono);
    const struct {
        int channels, frameLength;
        std::vector<size_t> sizes;
    } cases[] = {{2, 768, {1}}, {2, 768, {17}}, {2, 768, {767}}, {2, 768, {4096}},
                 {2, 768, {1, 17, 767, 4096, 768, 769}}, {1, 768, {1000}}, {2, 500, {1000}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.channels) + " channel(s), frames of " + std::to_string(c.frameLength) +
                     ", buffers of " + std::to_string(c.sizes.front()) + (c.sizes.size() > 1 ? " and others" : ""));
        // Fewer samples in one-sample buffers: each buffer costs a trip through the pipeline.
        const size_t frames = c.sizes == std::vector<size_t>{1} ? 4000 : kRate + 101;
        const std::vector<int16_t> in = music(frames, c.channels);
        FedPipeline p(c.channels == 2 ? kStereoTuning : monoTuning, c.channels,
                      "frame-length=" + std::to_string(c.frameLength));
        p.push(in, 0, frames, c.sizes);
        BusLog log = p.finish();
        ASSERT_TRUE(log.reachedEos) << log.first_error();
        EXPECT_TRUE(p.out.samples == reference(c.channels == 2 ? stereo : mono, c.frameLength, in));
        expect_continuous_timestamps(p.out, c.channels);
    }
}

// A gap in the stream finishes the frame being collected as at the end of a stream
// (padded, the padding trimmed); the chain runs on, and the clock restarts at the gap.
TEST(ElementOutput, DiscontinuityFinishesTheFrameAndRestartsTheClock)
{
    const size_t before = 10000, after = 20000;  // 10000 = 13 frames and 16 samples
    const std::vector<int16_t> in = music(before + after, 2);
    const GstClockTime later = 5 * GST_SECOND;
    FedPipeline p(kStereoTuning, 2);
    p.push(in, 0, before, {1024});
    p.push(in, before, before + after, {1024}, later, true);
    BusLog log = p.finish();
    ASSERT_TRUE(log.reachedEos) << log.first_error();

    // The same chain over the first part, a frame's padding, and the second part.
    const size_t pad = 768 - before % 768;
    std::vector<int16_t> padded = in;
    padded.insert(padded.begin() + before * 2, pad * 2, int16_t{0});
    std::vector<int16_t> expected = reference(shipped_tuning("reference.bin"), 768, padded);
    expected.erase(expected.begin() + before * 2, expected.begin() + (before + pad) * 2);
    EXPECT_TRUE(p.out.samples == expected);

    const std::vector<PadRecorder::Buffer> &b = p.out.buffers;
    size_t samples = 0, restart = 0;
    for (; restart < b.size() && samples < before; ++restart)
        samples += b[restart].bytes / 4;
    ASSERT_EQ(samples, before) << "a buffer ends where the gap is";
    ASSERT_LT(restart, b.size());
    EXPECT_TRUE(b[restart].discont);
    EXPECT_EQ(b[restart].pts, later + at_sample(before));
}

// The chain's input is recorded too: after the seek the output must be the chain over
// exactly that, with nothing carried over from before; a seek right after a retune
// starts the fresh chain with the new tuning.
TEST(ElementOutput, FlushingSeekStartsAFreshChainAtTheNewPosition)
{
    for (const char *retuned : {"", "speech.json"}) {
        Pipeline p("audiotestsrc name=src ! " + caps_text(2) + " ! eqdrc name=eq tuning=" + kStereoTuning +
                   " ! fakesink name=sink sync=false");
        PadRecorder in(p.pipeline, "eq", "sink");
        ASSERT_NE(gst_element_set_state(p.pipeline, GST_STATE_PAUSED), GST_STATE_CHANGE_FAILURE);
        ASSERT_EQ(gst_element_get_state(p.pipeline, nullptr, nullptr, 10 * GST_SECOND), GST_STATE_CHANGE_SUCCESS);
        if (*retuned)
            g_object_set(p.eq, "tuning", (kTunings + retuned).c_str(), nullptr);
        const size_t position = 12345;  // not on a frame boundary
        ASSERT_TRUE(gst_element_seek(p.pipeline, 1.0, GST_FORMAT_TIME,
                                     static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                                     GST_SEEK_TYPE_SET, at_sample(position), GST_SEEK_TYPE_SET,
                                     at_sample(position + 2 * kRate)));
        BusLog log = run_to_end(p.pipeline);
        ASSERT_TRUE(log.reachedEos) << log.first_error();
        ASSERT_FALSE(p.out.buffers.empty());
        EXPECT_EQ(p.out.buffers.front().pts, at_sample(position));
        EXPECT_TRUE(p.out.samples == reference(shipped_tuning(*retuned ? retuned : "reference.bin"), 768, in.samples))
            << retuned;
    }
}

// New caps mid-stream: the same format renegotiated keeps the chain running with the
// exact bits; another rate is refused by name (the pad refuses it before the element
// sees it, so the stream ends there with an error). After an upstream error the
// pipeline starts again from scratch with the exact bits.
TEST(ElementOutput, RenegotiationAndUpstreamErrors)
{
    const std::vector<int16_t> in = music(kRate, 2);
    const Record rec = shipped_tuning("reference.bin");
    for (const char *caps : {"audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=2,channel-mask=(bitmask)0x3",
                             "audio/x-raw,format=S16LE,layout=interleaved,rate=44100,channels=2"}) {
        FedPipeline p(kStereoTuning, 2);
        p.push(in, 0, 768 + 300, {500});
        GstCaps *next = gst_caps_from_string(caps);
        gst_app_src_set_caps(GST_APP_SRC(p.src), next);
        gst_caps_unref(next);
        p.push(in, 768 + 300, in.size() / 2, {500});
        BusLog log = p.finish();
        if (log.reachedEos)
            EXPECT_TRUE(p.out.samples == reference(rec, 768, in)) << caps;
        else
            EXPECT_TRUE(log.said("rate=(int)44100")) << caps << ": " << log.first_error();
        EXPECT_EQ(log.reachedEos, std::string(caps).find("48000") != std::string::npos) << caps;
    }

    // An upstream element fails; the application stops the pipeline and plays again.
    FedPipeline q(kStereoTuning, 2);
    q.push(in, 0, 5000, {1000});
    q.out.wait_for(768 * 2);
    GST_ELEMENT_ERROR(q.src, RESOURCE, READ, ("the source failed"), (nullptr));
    gst_element_set_state(q.pipeline, GST_STATE_NULL);
    q.out.samples.clear();
    q.out.buffers.clear();
    gst_element_set_state(q.pipeline, GST_STATE_PLAYING);
    q.push(in, 0, in.size() / 2, {777});
    BusLog log = q.finish();
    ASSERT_TRUE(log.reachedEos) << log.first_error();
    EXPECT_TRUE(q.out.samples == reference(rec, 768, in));
}

// The tuning is set from this thread while the streaming thread runs; the element names
// the frame before which the new record took over, and so does its meter file.
TEST(Retune, ExactOnBothSidesOfTheReportedFrame)
{
    ScratchDir dir;
    const std::vector<int16_t> in = music(3 * kRate, 2);
    take_handover_frames();
    FedPipeline p(kStereoTuning, 2, "meters=" + dir / "meters");
    // JSON here: the element reads both forms.
    const std::string speech = kTunings + "speech.json";
    BusLog log = p.play_changing(in, 1000, [&] { g_object_set(p.eq, "tuning", speech.c_str(), nullptr); });
    ASSERT_TRUE(log.reachedEos) << log.first_error();
    EXPECT_TRUE(log.warnings.empty()) << log.warnings.front();

    const std::vector<unsigned long long> at = take_handover_frames();
    ASSERT_EQ(at.size(), 1u);
    EXPECT_GT(at[0], 0u);
    EXPECT_LE(at[0], 3u * kRate / 768);
    const Record second = shipped_tuning("speech.json");
    EXPECT_TRUE(p.out.samples == reference(shipped_tuning("reference.bin"), 768, in, &second,
                                           static_cast<long long>(at[0])))
        << "handed over before frame " << at[0];
    gchar *now = nullptr;
    g_object_get(p.eq, "tuning", &now, nullptr);
    EXPECT_STREQ(now, speech.c_str());
    g_free(now);
    eqdrc_plugin::MeterReading r;
    ASSERT_TRUE(eqdrc_plugin::MeterFileReader(dir / "meters").read(r));
    EXPECT_EQ(r.meters.frames, (3u * kRate + 767) / 768);  // the last one padded at the end
    EXPECT_EQ(r.handoverFrame, static_cast<long long>(at[0]));
    EXPECT_EQ(r.handovers, 1u);
}

TEST(Retune, ARefusedTuningWarnsAndTheOldOneKeepsPlaying)
{
    ScratchDir dir;
    const std::string tunings[] = {
        saved(dir / "bad.bin", altered(shipped_tuning("reference.bin"), "eq10.channels[0].bands[0].fc", 30000.0f)),
        dir / "missing.bin",
        saved(dir / "mono.bin", fitted("music.json", kRate, 1)),  // the caps are stereo
    };
    const std::vector<int16_t> in = music(kRate, 2);
    take_handover_frames();
    FedPipeline p(kStereoTuning, 2);
    // Set while playing: a tuning set before would be the one to start with.
    BusLog log = p.play_changing(in, 4096, [&] {
        for (const std::string &path : tunings)
            g_object_set(p.eq, "tuning", path.c_str(), nullptr);
    });
    ASSERT_TRUE(log.reachedEos);
    ASSERT_EQ(log.warnings.size(), 3u);
    EXPECT_TRUE(log.said("bad.bin")) << log.warnings[0];
    EXPECT_TRUE(log.said("eq10.channels[0].bands[0].fc")) << log.warnings[0];
    EXPECT_TRUE(log.said("missing.bin")) << log.warnings[1];
    EXPECT_TRUE(log.said("mono.bin: the tuning is for 1 channel(s), the stream has 2")) << log.warnings[2];
    EXPECT_TRUE(take_handover_frames().empty());
    EXPECT_TRUE(p.out.samples == reference(shipped_tuning("reference.bin"), 768, in));
    gchar *now = nullptr;
    g_object_get(p.eq, "tuning", &now, nullptr);
    EXPECT_STREQ(now, kStereoTuning.c_str());
    g_free(now);
}

TEST(Bypass, PassesTheInputBitForBitAndFadesWhenSwitched)
{
    const size_t frames = kRate;
    const std::vector<int16_t> in = music(frames, 2);
    FedPipeline bypassed(kStereoTuning, 2, "bypass=true");
    bypassed.push(in, 0, frames, {1000});
    ASSERT_TRUE(bypassed.finish().reachedEos);
    EXPECT_TRUE(bypassed.out.samples == in);
    // Switched on while playing: processed output until the switch is seen, then a fade
    // whose samples lie between processed and unprocessed, then the input itself.
    FedPipeline p(kStereoTuning, 2);
    ASSERT_TRUE(p.play_changing(in, 1000, [&] { g_object_set(p.eq, "bypass", TRUE, nullptr); }).reachedEos);
    const std::vector<int16_t> wet = reference(shipped_tuning("reference.bin"), 768, in);
    const std::vector<int16_t> &out = p.out.samples;
    ASSERT_EQ(out.size(), in.size());
    size_t fadeStart = 0;
    while (fadeStart < out.size() && out[fadeStart] == wet[fadeStart])
        ++fadeStart;
    size_t fadeEnd = out.size();
    while (fadeEnd > 0 && out[fadeEnd - 1] == in[fadeEnd - 1])
        --fadeEnd;
    ASSERT_GT(fadeStart, frames / 4 * 2) << "processed until the switch";
    ASSERT_LT(fadeStart, out.size());
    EXPECT_LE(fadeEnd - fadeStart, 768u * 2u) << "the fade lasts one frame";
    for (size_t i = fadeStart; i < fadeEnd; ++i)
        ASSERT_TRUE(out[i] >= std::min(wet[i], in[i]) && out[i] <= std::max(wet[i], in[i])) << "sample " << i;
}

TEST(Latency, OneFrameIsReportedAndQueried)
{
    Pipeline p("audiotestsrc name=src is-live=true ! " + caps_text(2) + " ! eqdrc name=eq frame-length=960 tuning=" +
               kStereoTuning + " ! fakesink name=sink sync=true");
    ASSERT_NE(gst_element_set_state(p.pipeline, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    ASSERT_NE(gst_element_get_state(p.pipeline, nullptr, nullptr, 10 * GST_SECOND), GST_STATE_CHANGE_FAILURE);
    guint64 latency = 0;
    g_object_get(p.eq, "latency", &latency, nullptr);
    EXPECT_EQ(latency, 20 * GST_MSECOND);  // 960 samples at 48 kHz
    GstQuery *q = gst_query_new_latency();
    ASSERT_TRUE(gst_element_query(p.pipeline, q));
    gboolean live = FALSE;
    GstClockTime min = 0;
    gst_query_parse_latency(q, &live, &min, nullptr);
    EXPECT_TRUE(live);
    EXPECT_GE(min, 20 * GST_MSECOND);
    gst_query_unref(q);
}

TEST(BadSettings, AreClearErrors)
{
    ScratchDir dir;
    const std::string sine = "audiotestsrc num-buffers=20 ! " + caps_text(2) + " ! eqdrc ";
    const Record old = altered(shipped_tuning("reference.bin"), "header.tool_version", 1.0f);
    const std::pair<std::string, std::string> cases[] = {
        {sine, "no tuning"},
        {sine + "tuning=" + dir / "missing.bin", dir / "missing.bin"},
        {sine + "tuning=" + saved(dir / "old.bin", old), "header.tool_version"},
        // The reference tuning's auto gain steps are shorter than 8192 samples.
        {sine + "frame-length=8192 tuning=" + kStereoTuning, "auto_gain.r128_steps"},
        // Linking fails at once where the caps are known (gst-launch-1.0 reports it).
        {"audiotestsrc num-buffers=20 ! audio/x-raw,rate=44100,channels=2 ! eqdrc tuning=" + kStereoTuning,
         "could not link"},
    };
    for (const auto &[pipeline, message] : cases) {
        BusLog log = run_to_end(pipeline + " ! fakesink");
        ASSERT_FALSE(log.errors.empty()) << pipeline;
        EXPECT_TRUE(log.said(message)) << log.errors.front();
    }
    // Else negotiation fails, and the element says what the tuning needs.
    FedPipeline p(kStereoTuning, 2, "", "audio/x-raw,format=S16LE,layout=interleaved,rate=44100,channels=2");
    p.push(music(1000, 2), 0, 1000, {500});
    BusLog log = p.finish();
    ASSERT_FALSE(log.errors.empty());
    EXPECT_TRUE(log.said("48000 Hz with 2 channel(s)")) << (log.warnings.empty() ? "" : log.warnings.front());
    // audioconvert ! audioresample in front make the same stream fit.
    log = run_to_end("audiotestsrc num-buffers=20 ! audio/x-raw,rate=44100,channels=1 ! audioconvert ! "
                     "audioresample ! eqdrc tuning=" + kStereoTuning + " ! fakesink");
    EXPECT_TRUE(log.reachedEos) << log.first_error();
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
// GLib allocates a buffer in its library constructor and never frees it. Only leaks made
// inside library constructors are excused; seeing that needs the slow unwinder, since
// GLib is built without frame pointers.
extern "C" const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:_dl_init\n";
}
#endif

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    // Only this build's plugin and the system's; a registry of our own, scanned in this
    // process (the sanitizer builds cannot load the plugin into the scanner helper).
    char registry[] = "/tmp/eqdrc-gst-registry-XXXXXX";
    close(mkstemp(registry));  // only the unique name is wanted
    setenv("GST_REGISTRY", registry, 1);
    setenv("GST_PLUGIN_PATH", EQDRC_GST_PLUGIN_DIR, 1);
    setenv("GST_REGISTRY_FORK", "no", 1);
    gst_init(&argc, &argv);
    watch_element_log();
    const int result = RUN_ALL_TESTS();
    gst_deinit();
    unlink(registry);
    return result;
}
