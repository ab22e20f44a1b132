// The eqdrc element in real pipelines: its output against `eqdrc process` and the chain run
// frame by frame, whatever the buffer sizes; seeking, retuning while playing, the bypass,
// the latency, and the errors a wrong setting gives.
#include <gtest/gtest.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "adapt.h"
#include "gst_test_support.h"
#include "plugin_test_support.h"
#include "tool_test_support.h"
#include "tuning.h"

using namespace eqdrc_gst_test;
using eqdrc_plugin::Record;
using eqdrc_plugin_test::music;
using eqdrc_plugin_test::reference;
using eqdrc_plugin_test::shipped_tuning;
using eqdrc_tool_test::run_tool;
using eqdrc_tool_test::RunResult;
using eqdrc_tool_test::ScratchDir;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";
const std::string kStereoTuning = kTunings + "reference.bin";

// A mono record made the way `eqdrc process` adapts a tuning to a mono file.
std::string write_mono_tuning(const ScratchDir &dir)
{
    std::vector<std::string> notes;
    eqdrc_tool::Record rec = eqdrc_tool::adapt_tuning(eqdrc_tool::read_tuning(kTunings + "music.json"), kRate, 1, {},
                                                      notes);
    const std::string path = dir / "mono.bin";
    eqdrc_tool_test::spit(path, eqdrc_tool::record_to_bytes(rec));
    return path;
}

std::string caps_text(int channels)
{
    return "audio/x-raw,format=S16LE,layout=interleaved,rate=" + std::to_string(kRate) +
           ",channels=" + std::to_string(channels);
}

// appsrc ! eqdrc ! fakesink, fed by the test in buffers of chosen sizes.
class FedPipeline {
public:
    FedPipeline(const std::string &tuning, int channels, const std::string &elementOptions = "",
                const std::string &caps = "")
        : channels_(channels)
    {
        const std::string desc = "appsrc name=src format=time caps=\"" + (caps.empty() ? caps_text(channels) : caps) +
                                 "\" ! eqdrc name=eq tuning=\"" + tuning + "\" " + elementOptions +
                                 " ! fakesink name=sink sync=false";
        pipeline = gst_parse_launch(desc.c_str(), nullptr);
        src = gst_bin_get_by_name(GST_BIN(pipeline), "src");
        eq = gst_bin_get_by_name(GST_BIN(pipeline), "eq");
        GstElement *sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
        GstPad *pad = gst_element_get_static_pad(sink, "sink");
        recorder = std::make_unique<PadRecorder>(pad);
        gst_object_unref(pad);
        gst_object_unref(sink);
    }
    ~FedPipeline()
    {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        recorder.reset();
        gst_object_unref(eq);
        gst_object_unref(src);
        gst_object_unref(pipeline);
    }

    void start() { gst_element_set_state(pipeline, GST_STATE_PLAYING); }

    // Pushes samples[from, to) in buffers whose sizes cycle through `sizes`, stamped as if
    // sample 0 were at `start`; the first buffer marked as a discontinuity when asked.
    void push(const std::vector<int16_t> &samples, size_t from, size_t to, const std::vector<size_t> &sizes,
              GstClockTime start = 0, bool discont = false)
    {
        const size_t ch = static_cast<size_t>(channels_);
        for (size_t at = from, k = 0; at < to; ++k) {
            const size_t n = std::min(sizes[k % sizes.size()], to - at);
            GstBuffer *buf = gst_buffer_new_memdup(samples.data() + at * ch, n * ch * sizeof(int16_t));
            GST_BUFFER_PTS(buf) = start + gst_util_uint64_scale_int(at, GST_SECOND, kRate);
            GST_BUFFER_DURATION(buf) = start + gst_util_uint64_scale_int(at + n, GST_SECOND, kRate) - GST_BUFFER_PTS(buf);
            if (discont && at == from)
                GST_BUFFER_FLAG_SET(buf, GST_BUFFER_FLAG_DISCONT);
            gst_app_src_push_buffer(GST_APP_SRC(src), buf);
            at += n;
        }
    }

    BusLog finish()
    {
        gst_app_src_end_of_stream(GST_APP_SRC(src));
        BusLog log = run_to_end(pipeline);
        return log;
    }

    GstElement *pipeline, *src, *eq;
    std::unique_ptr<PadRecorder> recorder;

private:
    int channels_;
};

// Output buffers follow each other without gap or overlap from the stream's start.
void expect_continuous_timestamps(const PadRecorder &r, int channels)
{
    ASSERT_FALSE(r.pts.empty());
    EXPECT_TRUE(r.discont.front());
    size_t samples = 0;
    for (size_t i = 0; i < r.pts.size(); ++i) {
        const size_t n = r.sizes[i] / (2 * static_cast<size_t>(channels));
        ASSERT_EQ(r.pts[i], gst_util_uint64_scale_int(samples, GST_SECOND, kRate)) << "buffer " << i;
        ASSERT_EQ(r.pts[i] + r.durations[i], gst_util_uint64_scale_int(samples + n, GST_SECOND, kRate)) << "buffer " << i;
        samples += n;
    }
}

struct FileCase {
    const char *name;
    int channels;
    int frameLength;
};

void PrintTo(const FileCase &c, std::ostream *os)
{
    *os << c.name;
}

class FilePipeline : public testing::TestWithParam<FileCase> {};

TEST_P(FilePipeline, GivesTheBytesOfEqdrcProcess)
{
    const FileCase &c = GetParam();
    ScratchDir dir;
    const std::string tuning = c.channels == 2 ? kStereoTuning : write_mono_tuning(dir);
    // Two seconds and a partial frame: the end is padded and trimmed.
    write_wav(dir / "in.wav", music(2 * kRate + 333, c.channels), c.channels);
    const std::string frame = std::to_string(c.frameLength);
    RunResult tool = run_tool({"process", dir / "in.wav", dir / "tool.wav", "--tuning", tuning, "--frame", frame});
    ASSERT_EQ(tool.status, 0) << tool.err;

    BusLog log = run_to_end("filesrc location=" + dir / "in.wav" + " ! wavparse ! eqdrc tuning=" + tuning +
                            " frame-length=" + frame + " ! wavenc ! filesink location=" + dir / "gst.wav");
    ASSERT_TRUE(log.reachedEos) << (log.errors.empty() ? "" : log.errors.front());
    const std::vector<int16_t> expected = wav_samples(dir / "tool.wav");
    EXPECT_EQ(expected.size(), (2u * kRate + 333u) * static_cast<size_t>(c.channels));
    EXPECT_TRUE(wav_samples(dir / "gst.wav") == expected);
}

INSTANTIATE_TEST_SUITE_P(Element, FilePipeline,
                         testing::Values(FileCase{"stereo", 2, 768}, FileCase{"mono", 1, 768},
                                         FileCase{"stereo_frame_500", 2, 500}),
                         [](const testing::TestParamInfo<FileCase> &i) { return std::string(i.param.name); });

TEST(ElementOutput, ExactAndContinuousForAnyBufferSize)
{
    const Record record = shipped_tuning("reference.bin");
    const std::vector<std::vector<size_t>> patterns = {{1}, {17}, {767}, {4096}, {1, 17, 767, 4096, 768, 769}};
    for (const auto &sizes : patterns) {
        SCOPED_TRACE("buffers of " + std::to_string(sizes.front()) + (sizes.size() > 1 ? " and others" : ""));
        // Fewer samples in one-sample buffers: each buffer costs a trip through the pipeline.
        const size_t frames = sizes.size() == 1 && sizes.front() == 1 ? 4000 : kRate + 101;
        const std::vector<int16_t> in = music(frames, 2);
        FedPipeline p(kStereoTuning, 2);
        p.start();
        p.push(in, 0, frames, sizes);
        BusLog log = p.finish();
        ASSERT_TRUE(log.reachedEos) << (log.errors.empty() ? "" : log.errors.front());
        EXPECT_TRUE(p.recorder->samples == reference(record, 768, in));
        expect_continuous_timestamps(*p.recorder, 2);
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
    p.start();
    p.push(in, 0, before, {1024});
    p.push(in, before, before + after, {1024}, later, true);
    BusLog log = p.finish();
    ASSERT_TRUE(log.reachedEos) << (log.errors.empty() ? "" : log.errors.front());

    // The same chain over the first part, a frame's padding, and the second part.
    const size_t pad = 768 - before % 768;
    std::vector<int16_t> padded(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(before * 2));
    padded.resize((before + pad) * 2, 0);
    padded.insert(padded.end(), in.begin() + static_cast<std::ptrdiff_t>(before * 2), in.end());
    std::vector<int16_t> expected = reference(shipped_tuning("reference.bin"), 768, padded);
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(before * 2),
                   expected.begin() + static_cast<std::ptrdiff_t>((before + pad) * 2));
    EXPECT_TRUE(p.recorder->samples == expected);

    const PadRecorder &r = *p.recorder;
    size_t samples = 0, restart = 0;
    for (size_t i = 0; i < r.pts.size() && samples < before; ++i, ++restart)
        samples += r.sizes[i] / 4;
    ASSERT_EQ(samples, before) << "a buffer ends where the gap is";
    ASSERT_LT(restart, r.pts.size());
    EXPECT_TRUE(r.discont[restart]);
    EXPECT_EQ(r.pts[restart], later + gst_util_uint64_scale_int(before, GST_SECOND, kRate));
}

TEST(ElementOutput, FlushingSeekStartsAFreshChainAtTheNewPosition)
{
    ScratchDir dir;
    const std::vector<int16_t> in = music(3 * kRate, 2);
    write_wav(dir / "in.wav", in, 2);
    GstElement *pipeline = gst_parse_launch(("filesrc location=" + dir / "in.wav" + " ! wavparse ! eqdrc tuning=" +
                                             kStereoTuning + " ! fakesink name=sink sync=false")
                                                .c_str(),
                                            nullptr);
    GstElement *sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    GstPad *pad = gst_element_get_static_pad(sink, "sink");
    PadRecorder recorder(pad);
    ASSERT_NE(gst_element_set_state(pipeline, GST_STATE_PAUSED), GST_STATE_CHANGE_FAILURE);
    ASSERT_EQ(gst_element_get_state(pipeline, nullptr, nullptr, 10 * GST_SECOND), GST_STATE_CHANGE_SUCCESS);
    const gint64 position = 12345;  // samples: not on a frame boundary
    ASSERT_TRUE(gst_element_seek_simple(pipeline, GST_FORMAT_TIME,
                                        static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                                        gst_util_uint64_scale_int(position, GST_SECOND, kRate)));
    BusLog log = run_to_end(pipeline);
    ASSERT_TRUE(log.reachedEos) << (log.errors.empty() ? "" : log.errors.front());
    ASSERT_FALSE(recorder.pts.empty());
    const size_t first = gst_util_uint64_scale_int_round(recorder.pts.front(), kRate, GST_SECOND);
    EXPECT_EQ(first, static_cast<size_t>(position));
    const std::vector<int16_t> rest(in.begin() + static_cast<std::ptrdiff_t>(first * 2), in.end());
    EXPECT_TRUE(recorder.samples == reference(shipped_tuning("reference.bin"), 768, rest));
    gst_object_unref(pad);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
}

// The tuning is set from this thread while the streaming thread runs; the element names
// the frame before which the new record took over.
TEST(Retune, ExactOnBothSidesOfTheReportedFrame)
{
    const Record first = shipped_tuning("reference.bin");
    const Record second = shipped_tuning("speech.json");
    const size_t frames = 3 * kRate;
    const std::vector<int16_t> in = music(frames, 2);

    clear_handover_frames();
    FedPipeline p(kStereoTuning, 2);
    p.start();
    p.push(in, 0, frames / 2, {1000});
    p.recorder->wait_for(frames / 4 * 2);
    // JSON here: the element reads both forms.
    g_object_set(p.eq, "tuning", (kTunings + "speech.json").c_str(), nullptr);
    p.push(in, frames / 2, frames, {1000});
    BusLog log = p.finish();
    ASSERT_TRUE(log.reachedEos) << (log.errors.empty() ? "" : log.errors.front());
    EXPECT_TRUE(log.warnings.empty()) << log.warnings.front();

    const std::vector<unsigned long long> at = handover_frames();
    ASSERT_EQ(at.size(), 1u);
    EXPECT_GT(at[0], 0u);
    EXPECT_LE(at[0], frames / 768);
    const std::vector<int16_t> expected = reference(first, 768, in, &second, static_cast<long long>(at[0]));
    ASSERT_EQ(p.recorder->samples.size(), expected.size());
    const size_t boundary = at[0] * 768 * 2;
    EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(boundary),
                           p.recorder->samples.begin()))
        << "before frame " << at[0];
    EXPECT_TRUE(std::equal(expected.begin() + static_cast<std::ptrdiff_t>(boundary), expected.end(),
                           p.recorder->samples.begin() + static_cast<std::ptrdiff_t>(boundary)))
        << "from frame " << at[0];
    gchar *now = nullptr;
    g_object_get(p.eq, "tuning", &now, nullptr);
    EXPECT_STREQ(now, (kTunings + "speech.json").c_str());
    g_free(now);
}

TEST(Retune, ARefusedTuningWarnsAndTheOldOneKeepsPlaying)
{
    ScratchDir dir;
    eqdrc_tool::Record bad = eqdrc_tool::read_tuning(kStereoTuning);
    bad[eqdrc_tool::Layout::embedded().word("eq10.channels[0].bands[0].fc")] = 30000.0f;
    eqdrc_tool_test::spit(dir / "bad.bin", eqdrc_tool::record_to_bytes(bad));
    const size_t frames = kRate;
    const std::vector<int16_t> in = music(frames, 2);

    clear_handover_frames();
    FedPipeline p(kStereoTuning, 2);
    p.start();
    p.push(in, 0, frames / 2, {4096});
    p.recorder->wait_for(frames / 4 * 2);  // playing: a tuning set before would be the one to start with
    g_object_set(p.eq, "tuning", (dir / "bad.bin").c_str(), nullptr);
    g_object_set(p.eq, "tuning", (dir / "missing.bin").c_str(), nullptr);
    g_object_set(p.eq, "tuning", write_mono_tuning(dir).c_str(), nullptr);  // the caps are stereo
    p.push(in, frames / 2, frames, {4096});
    BusLog log = p.finish();
    ASSERT_TRUE(log.reachedEos);
    ASSERT_EQ(log.warnings.size(), 3u);
    EXPECT_TRUE(log.said("bad.bin")) << log.warnings[0];
    EXPECT_TRUE(log.said("eq10.channels[0].bands[0].fc")) << log.warnings[0];
    EXPECT_TRUE(log.said("missing.bin")) << log.warnings[1];
    EXPECT_TRUE(log.said("mono.bin: the tuning is for 1 channel(s), the stream has 2")) << log.warnings[2];
    EXPECT_TRUE(handover_frames().empty());
    EXPECT_TRUE(p.recorder->samples == reference(shipped_tuning("reference.bin"), 768, in));
    gchar *now = nullptr;
    g_object_get(p.eq, "tuning", &now, nullptr);
    EXPECT_STREQ(now, kStereoTuning.c_str());
    g_free(now);
}

TEST(Bypass, PassesTheInputBitForBitAndFadesWhenSwitched)
{
    const Record record = shipped_tuning("reference.bin");
    const size_t frames = kRate;
    const std::vector<int16_t> in = music(frames, 2);
    {
        FedPipeline p(kStereoTuning, 2, "bypass=true");
        p.start();
        p.push(in, 0, frames, {1000});
        ASSERT_TRUE(p.finish().reachedEos);
        EXPECT_TRUE(p.recorder->samples == in);
    }
    // Switched on while playing: processed output until the switch is seen, then a fade
    // whose samples lie between processed and unprocessed, then the input itself.
    FedPipeline p(kStereoTuning, 2);
    p.start();
    p.push(in, 0, frames / 2, {1000});
    p.recorder->wait_for(frames / 4 * 2);
    g_object_set(p.eq, "bypass", TRUE, nullptr);
    p.push(in, frames / 2, frames, {1000});
    ASSERT_TRUE(p.finish().reachedEos);
    const std::vector<int16_t> wet = reference(record, 768, in);
    const std::vector<int16_t> &out = p.recorder->samples;
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
    GstElement *pipeline = gst_parse_launch(("audiotestsrc is-live=true ! " + caps_text(2) +
                                             " ! eqdrc name=eq frame-length=960 tuning=" + kStereoTuning +
                                             " ! fakesink sync=true")
                                                .c_str(),
                                            nullptr);
    GstElement *eq = gst_bin_get_by_name(GST_BIN(pipeline), "eq");
    ASSERT_NE(gst_element_set_state(pipeline, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    ASSERT_NE(gst_element_get_state(pipeline, nullptr, nullptr, 10 * GST_SECOND), GST_STATE_CHANGE_FAILURE);
    guint64 latency = 0;
    g_object_get(eq, "latency", &latency, nullptr);
    EXPECT_EQ(latency, 20 * GST_MSECOND);  // 960 samples at 48 kHz
    GstQuery *q = gst_query_new_latency();
    ASSERT_TRUE(gst_element_query(pipeline, q));
    gboolean live = FALSE;
    GstClockTime min = 0;
    gst_query_parse_latency(q, &live, &min, nullptr);
    EXPECT_TRUE(live);
    EXPECT_GE(min, 20 * GST_MSECOND);
    gst_query_unref(q);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(eq);
    gst_object_unref(pipeline);
}

TEST(BadSettings, AreClearErrors)
{
    ScratchDir dir;
    const std::string sine = "audiotestsrc num-buffers=20 ! " + caps_text(2) + " ! ";
    {
        BusLog log = run_to_end(sine + "eqdrc ! fakesink");
        ASSERT_FALSE(log.errors.empty());
        EXPECT_TRUE(log.said("no tuning")) << log.errors.front();
    }
    {
        BusLog log = run_to_end(sine + "eqdrc tuning=" + dir / "missing.bin" + " ! fakesink");
        ASSERT_FALSE(log.errors.empty());
        EXPECT_TRUE(log.said(dir / "missing.bin")) << log.errors.front();
    }
    {
        eqdrc_tool::Record bad = eqdrc_tool::read_tuning(kStereoTuning);
        bad[eqdrc_tool::Layout::embedded().word("header.tool_version")] = 1.0f;
        eqdrc_tool_test::spit(dir / "old.bin", eqdrc_tool::record_to_bytes(bad));
        BusLog log = run_to_end(sine + "eqdrc tuning=" + dir / "old.bin" + " ! fakesink");
        ASSERT_FALSE(log.errors.empty());
        EXPECT_TRUE(log.said("header.tool_version")) << log.errors.front();
    }
    {
        // The reference tuning's auto gain steps are shorter than 8192 samples.
        BusLog log = run_to_end(sine + "eqdrc frame-length=8192 tuning=" + kStereoTuning + " ! fakesink");
        ASSERT_FALSE(log.errors.empty());
        EXPECT_TRUE(log.said("auto_gain.r128_steps")) << log.errors.front();
    }
    {
        // Linking fails at once where the caps are known (gst-launch-1.0 reports it) ...
        BusLog log = run_to_end("audiotestsrc num-buffers=20 ! audio/x-raw,rate=44100,channels=2 ! eqdrc tuning=" +
                                kStereoTuning + " ! fakesink");
        ASSERT_FALSE(log.errors.empty());
        EXPECT_TRUE(log.said("could not link")) << log.errors.front();
        // ... else negotiation fails, and the element says what the tuning needs.
        FedPipeline p(kStereoTuning, 2, "", "audio/x-raw,format=S16LE,layout=interleaved,rate=44100,channels=2");
        p.start();
        p.push(music(1000, 2), 0, 1000, {500});
        log = p.finish();
        ASSERT_FALSE(log.errors.empty());
        EXPECT_TRUE(log.said("48000 Hz with 2 channel(s)")) << (log.warnings.empty() ? "" : log.warnings.front());
        // audioconvert ! audioresample in front make the same stream fit.
        BusLog fixed = run_to_end("audiotestsrc num-buffers=20 ! audio/x-raw,rate=44100,channels=1 ! audioconvert ! "
                                  "audioresample ! eqdrc tuning=" + kStereoTuning + " ! fakesink");
        EXPECT_TRUE(fixed.reachedEos) << (fixed.errors.empty() ? "" : fixed.errors.front());
    }
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
    const int fd = mkstemp(registry);
    if (fd >= 0)
        close(fd);
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
