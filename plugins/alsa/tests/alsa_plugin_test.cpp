// The ALSA plugin driven through alsa-lib: a host writes to an eqdrc device over a file
// slave, with a configuration the test writes, and the slave's bytes are compared with
// the chain run directly over the same samples.
#include <gtest/gtest.h>

#include <alsa/asoundlib.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

#include "meter_file.h"
#include "plugin_test_support.h"
#include "tool_test_support.h"

// Faults injected into the slave: the plugin's calls to snd_pcm_writei reach this
// definition first (the test program exports it); the slave's own writes, and the
// application's to the eqdrc device, pass straight through.
namespace slave_fault {
std::atomic<int> error{0};                 // what the slave's next writes return instead
std::atomic<int> times{0};                 // how many of them; -1: every one from now on
std::atomic<snd_pcm_uframes_t> most{0};    // frames a write takes at most; 0: all
}  // namespace slave_fault

extern "C" snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t *pcm, const void *buffer, snd_pcm_uframes_t size)
{
    using Writei = snd_pcm_sframes_t (*)(snd_pcm_t *, const void *, snd_pcm_uframes_t);
    static const auto real = reinterpret_cast<Writei>(::dlsym(RTLD_NEXT, "snd_pcm_writei"));
    if (std::strcmp(snd_pcm_name(pcm), "eqdrc_slave") == 0) {
        int times = slave_fault::times;
        if (times != 0) {
            if (times > 0)
                --slave_fault::times;
            return slave_fault::error;
        }
        if (snd_pcm_uframes_t most = slave_fault::most)
            size = std::min(size, most);
    }
    return real(pcm, buffer, size);
}

namespace {

using namespace eqdrc_plugin_test;
using eqdrc_tool_test::ScratchDir;
using eqdrc_tool_test::slurp;

constexpr int kFrame = 768;

// alsa-lib keeps the plugin objects it opened (and their names) for the life of the
// process; give them back at the end so that a leak checker sees only ours.
struct AlsaCaches : testing::Environment {
    void TearDown() override { snd_config_update_free_global(); }
};
const auto *const kAlsaCaches = testing::AddGlobalTestEnvironment(new AlsaCaches);

// Standard error of this process into a file while alive, so that the plugin's log
// lines can be read back (the watcher and reporter threads write there too).
class StderrToFile {
public:
    explicit StderrToFile(const std::string &path) : path_(path), saved_(::dup(2))
    {
        std::fflush(stderr);
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(fd, 2);
        ::close(fd);
    }
    ~StderrToFile()
    {
        std::fflush(stderr);
        ::dup2(saved_, 2);
        ::close(saved_);
    }
    std::string text() const { return slurp(path_); }

    // Calls `step` until the log holds `needle`, for at most 10 s; whether it came.
    template <class F>
    bool until_logged(const char *needle, F step) const
    {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (text().find(needle) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline || !step())
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

private:
    std::string path_;
    int saved_;
};

class AlsaPlugin : public testing::Test {
protected:
    // Opens an eqdrc device with `options` over a raw file slave and, unless `rate` is 0,
    // sets up a stream: the error code of the first failing step, 0 if none.
    int open(const std::string &options, snd_pcm_t *&pcm, snd_pcm_uframes_t period = 256, unsigned rate = 48000,
             unsigned channels = 2, snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED,
             snd_pcm_stream_t stream = SND_PCM_STREAM_PLAYBACK)
    {
        const std::string config = "pcm_type.eqdrc { lib \"" EQDRC_ALSA_PLUGIN "\" }\n"
                                   "pcm.test { type eqdrc " + options +
                                   " slave.pcm { type file slave.pcm { type null } file \"" + dir / "slave.raw" +
                                   "\" format raw } }\n";
        snd_config_t *top = nullptr;
        snd_input_t *in = nullptr;
        snd_config_top(&top);
        snd_input_buffer_open(&in, config.data(), static_cast<ssize_t>(config.size()));
        int err = snd_config_load(top, in);
        snd_input_close(in);
        pcm = nullptr;
        if (err >= 0)
            err = snd_pcm_open_lconf(&pcm, "test", stream, 0, top);
        snd_config_delete(top);
        if (err < 0 || rate == 0)
            return err;
        snd_pcm_hw_params_t *hw;
        snd_pcm_hw_params_alloca(&hw);
        snd_pcm_hw_params_any(pcm, hw);
        snd_pcm_hw_params_set_access(pcm, hw, access);
        snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE);
        snd_pcm_hw_params_set_channels(pcm, hw, channels);
        snd_pcm_hw_params_set_rate(pcm, hw, rate, 0);
        snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, nullptr);
        snd_pcm_uframes_t buffer = std::max<snd_pcm_uframes_t>(4 * period, 8192);
        snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer);
        return snd_pcm_hw_params(pcm, hw);
    }

    static void write_all(snd_pcm_t *pcm, const int16_t *pcmData, size_t frames, size_t block, int channels,
                          bool mmap = false)
    {
        for (size_t at = 0; at < frames; at += block) {
            size_t n = std::min(block, frames - at);
            snd_pcm_sframes_t w = mmap ? snd_pcm_mmap_writei(pcm, pcmData + at * channels, n)
                                       : snd_pcm_writei(pcm, pcmData + at * channels, n);
            ASSERT_EQ(w, static_cast<snd_pcm_sframes_t>(n)) << snd_strerror(static_cast<int>(w));
        }
    }

    // Plays `in` through the device in writes of `block` frames and returns the slave's bytes.
    std::vector<int16_t> play(const std::string &options, const std::vector<int16_t> &in, int channels,
                              size_t block, unsigned rate = 48000,
                              snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED)
    {
        snd_pcm_t *pcm;
        if (int err = open(options, pcm, block, rate, channels, access)) {
            ADD_FAILURE() << options << ": " << snd_strerror(err);
            return {};
        }
        write_all(pcm, in.data(), in.size() / channels, block, channels, access == SND_PCM_ACCESS_MMAP_INTERLEAVED);
        snd_pcm_drain(pcm);
        snd_pcm_close(pcm);
        return slave_samples();
    }

    std::vector<int16_t> slave_samples() const
    {
        std::string bytes = slurp(dir / "slave.raw");
        std::vector<int16_t> s(bytes.size() / 2);
        std::memcpy(s.data(), bytes.data(), s.size() * 2);
        return s;
    }

    ScratchDir dir;
    std::string log = dir / "log.txt";
};

// The slave receives the chain's output over exactly the samples written: whole frames,
// then at drain the last partial frame padded with silence and trimmed.
TEST_F(AlsaPlugin, SlaveGetsTheChainsBitsForEveryPeriodSize)
{
    for (int channels : {2, 1}) {
        Record rec = fitted("music.json", 48000, channels);
        std::string tuning = saved(dir / "speaker.bin", rec);
        std::vector<int16_t> in = music(12 * kFrame + 321, channels);
        std::vector<int16_t> want = reference(rec, kFrame, in);
        for (size_t period : {1, 17, 767, 769, 4096}) {
            EXPECT_EQ(play("tuning \"" + tuning + "\"", in, channels, period), want)
                << channels << " channel(s), writes of " << period;
        }
        // Hosts that write into the buffer in place (sound servers do) get the same bits.
        EXPECT_EQ(play("tuning \"" + tuning + "\"", in, channels, 333, 48000, SND_PCM_ACCESS_MMAP_INTERLEAVED), want)
            << channels << " channel(s), mmap writes";
    }
}

TEST_F(AlsaPlugin, JsonTuningFrameOptionAndAdapting)
{
    // A JSON tuning for 48 kHz stereo, adapted to a 44.1 kHz mono stream, frames of 500.
    const char *options = "tuning \"" EQDRC_SOURCE_DIR "/tunings/loud-small-speaker.json\" frame 500 adapt on";
    std::vector<int16_t> in = music(9 * 500 + 77, 1);
    EXPECT_EQ(play(options, in, 1, 256, 44100), reference(fitted("loud-small-speaker.json", 44100, 1, 500), 500, in));
}

// The samples collected towards the next frame count in the delay; pause and resume
// leave the stream as it was; drain passes on the padded last frame; every prepare
// (after a drain, after a drop) drops the partial frame and keeps the chain's state.
TEST_F(AlsaPlugin, DelayPauseResumeDrainDropAndPrepare)
{
    Record rec = fitted("music.json", 48000, 2);
    std::string tuning = saved(dir / "stereo.bin", rec);
    std::vector<int16_t> in = music(9 * kFrame, 2);
    const size_t first = 5 * kFrame + 100, second = kFrame + 50, third = 2 * kFrame;
    const int16_t *second_in = &in[2 * first], *third_in = &in[2 * (first + second)];
    snd_pcm_t *pcm;
    ASSERT_EQ(open("tuning \"" + tuning + "\"", pcm), 0);
    snd_pcm_sframes_t before = 0, after = 0;
    write_all(pcm, in.data(), 3 * kFrame, 256, 2);
    ASSERT_EQ(snd_pcm_delay(pcm, &before), 0);
    write_all(pcm, &in[2 * 3 * kFrame], 100, 100, 2);
    ASSERT_EQ(snd_pcm_delay(pcm, &after), 0);
    EXPECT_GE(before, 0);
    EXPECT_EQ(after - before, 100) << "the partial frame is not on its way to the slave yet";
    ASSERT_EQ(snd_pcm_pause(pcm, 1), 0);
    ASSERT_EQ(snd_pcm_pause(pcm, 0), 0);
    write_all(pcm, &in[2 * (3 * kFrame + 100)], first - (3 * kFrame + 100), 256, 2);
    snd_pcm_drain(pcm);
    ASSERT_EQ(snd_pcm_prepare(pcm), 0);
    write_all(pcm, second_in, second, 256, 2);
    snd_pcm_drop(pcm);
    ASSERT_EQ(snd_pcm_prepare(pcm), 0);
    write_all(pcm, third_in, third, 256, 2);
    snd_pcm_drain(pcm);
    snd_pcm_close(pcm);

    // The chain saw each stream's frames one after the other: the first one's last
    // partial frame padded with silence, none of the dropped one's partial frame.
    std::vector<int16_t> chainInput(in.begin(), in.begin() + 2 * first);
    chainInput.resize(2 * 6 * kFrame, 0);
    chainInput.insert(chainInput.end(), second_in, second_in + 2 * kFrame);
    chainInput.insert(chainInput.end(), third_in, third_in + 2 * third);
    std::vector<int16_t> chain = reference(rec, kFrame, chainInput);
    std::vector<int16_t> got = slave_samples();
    // The first stream, drained, arrives whole; of the dropped one the slave may keep
    // part; the last one arrives whole.
    const size_t head = 2 * first, tail = chain.size() - 2 * 7 * kFrame;
    ASSERT_GE(got.size(), head + tail);
    EXPECT_TRUE(std::equal(chain.begin(), chain.begin() + head, got.begin()));
    EXPECT_TRUE(std::equal(chain.end() - tail, chain.end(), got.end() - tail));
}

// A replacement that fails the check is refused and the old tuning keeps playing; a good
// one takes effect at the logged frame, with the exact bits on both sides of it. The
// meter file, published meanwhile, names the same frame and changes no output bit.
TEST_F(AlsaPlugin, ReplacedTuningTakesEffectAtTheLoggedFrame)
{
    Record first = fitted("music.json", 48000, 2), second = fitted("loud-small-speaker.json", 48000, 2);
    Record bad = altered(second, "header.bit_depth", 20.0f);
    std::string tuning = saved(dir / "live.bin", first);
    std::vector<int16_t> in = music(60 * kFrame, 2);
    const size_t block = 300, total = in.size() / 2;
    size_t at = 0;
    StderrToFile capture(log);
    snd_pcm_t *pcm;
    ASSERT_EQ(open("tuning \"" + tuning + "\" reload on debug on meters \"" + dir / "meters" + "\"", pcm, block), 0);
    eqdrc_plugin::MeterFileReader meters(dir / "meters");
    eqdrc_plugin::MeterReading reading;
    ASSERT_TRUE(meters.read(reading));
    EXPECT_EQ(reading.meters.frames, 0u);
    EXPECT_EQ(reading.sampleRate, 48000);
    auto step = [&] {  // a hand-over needs frames to happen at
        if (at + block >= total)
            return false;
        write_all(pcm, &in[at * 2], block, block, 2);
        at += block;
        return true;
    };
    // Replaced as editors and `eqdrc tuning compile -o` do: a new file renamed over it.
    eqdrc_tool::write_file_atomic(tuning, eqdrc_tool::record_to_bytes(bad));
    EXPECT_TRUE(capture.until_logged("keeping", step));
    while (at < 15 * kFrame && step()) {
    }
    eqdrc_tool::write_file_atomic(tuning, eqdrc_tool::record_to_bytes(second));
    EXPECT_TRUE(capture.until_logged("took effect", step));
    write_all(pcm, &in[at * 2], total - at, block, 2);
    snd_pcm_drain(pcm);
    snd_pcm_close(pcm);
    const std::string text = capture.text();
    EXPECT_NE(text.find("eqdrc: " + tuning + ": error: header.bit_depth = 20"), std::string::npos) << text;
    const std::string took = "new tuning took effect at frame ";
    size_t pos = text.find(took);
    ASSERT_NE(pos, std::string::npos) << text;
    EXPECT_EQ(text.find(took, pos + 1), std::string::npos) << "one hand-over only: " << text;
    long long frame = std::atoll(text.c_str() + pos + took.size());
    EXPECT_GE(frame, 15);
    EXPECT_LT(frame, 58);
    std::vector<int16_t> chain = reference(first, kFrame, in, &second, frame);
    EXPECT_EQ(slave_samples(), chain);
    EXPECT_NE(chain, reference(first, kFrame, in)) << "the second tuning must sound different";
    ASSERT_TRUE(meters.read(reading));
    EXPECT_EQ(reading.meters.frames, 60u);
    EXPECT_EQ(reading.handoverFrame, frame);
    EXPECT_EQ(reading.handovers, 1u);
    EXPECT_LT(reading.meters.limiterGainDb[0], 0.0f) << "the second tuning limits this music";
}

// An underrun or a suspend of the slave is recovered there and a slave that takes part
// of a write gets the rest: not a sample is lost, so the bits are `eqdrc process`'s. A
// slave that is gone (-ENODEV, -EIO) is reported to the application, which can still
// drain and close.
TEST_F(AlsaPlugin, SlaveFaultsAreRecoveredOrReported)
{
    Record rec = fitted("music.json", 48000, 2);
    const std::string options = "tuning \"" + saved(dir / "speaker.bin", rec) + "\"";
    std::vector<int16_t> in = music(20 * kFrame + 100, 2);
    const std::vector<int16_t> want = reference(rec, kFrame, in);
    for (int error : {-EPIPE, -ESTRPIPE}) {
        slave_fault::error = error;
        slave_fault::times = 2;
        EXPECT_EQ(play(options, in, 2, 700), want) << snd_strerror(error);
        EXPECT_EQ(slave_fault::times, 0) << snd_strerror(error);
    }
    slave_fault::most = 7;
    EXPECT_EQ(play(options, in, 2, 700), want) << "writes cut short";
    slave_fault::most = 0;

    for (int error : {-ENODEV, -EIO}) {
        snd_pcm_t *pcm;
        ASSERT_EQ(open(options, pcm, 700), 0);
        write_all(pcm, in.data(), 4 * kFrame, 700, 2);
        slave_fault::error = error;
        slave_fault::times = -1;
        snd_pcm_sframes_t w = 0;
        for (int i = 0; i < 10 && w >= 0; ++i)
            w = snd_pcm_writei(pcm, &in[4 * kFrame * 2], kFrame);
        EXPECT_EQ(w, error) << snd_strerror(error);
        EXPECT_EQ(snd_pcm_drain(pcm), error) << snd_strerror(error);
        slave_fault::times = 0;
        EXPECT_EQ(snd_pcm_close(pcm), 0);
    }
}

TEST_F(AlsaPlugin, BadConfigurationsGiveAnErrorAndNoCrash)
{
    Record rec = fitted("music.json", 48000, 2);
    std::string good = saved(dir / "good.bin", rec);
    std::string rejectedPath = saved(dir / "rejected.bin", altered(rec, "header.tool_version", 3.0f));
    std::string shortPath = dir / "short.bin";
    eqdrc_tool_test::spit(shortPath, "not a tuning");
    const std::string hint = " (adapt on retunes it for the stream)";
    const struct {
        std::string options, message;
        unsigned rate = 0;  // a stream is set up only with a rate
        unsigned channels = 2;
        snd_pcm_stream_t stream = SND_PCM_STREAM_PLAYBACK;
    } cases[] = {
        {"", "no tuning given"},
        {"tuning \"" + dir / "missing.bin" + "\"", dir / "missing.bin"},
        {"tuning \"" + dir.path() + "\"", dir.path()},
        {"tuning \"" + shortPath + "\"", shortPath},
        {"tuning \"" + rejectedPath + "\"", rejectedPath + ": error: header.tool_version"},
        {"tuning \"" + good + "\" frame 0", "frame must be"},
        {"tuning \"" + good + "\" reload maybe", "reload must be on or off"},
        {"tuning \"" + good + "\" volume 11", "unknown option volume"},
        {"tuning \"" + good + "\" meters 3", "meters must be a file name"},
        {"tuning \"" + good + "\"", "playback only", 0, 2, SND_PCM_STREAM_CAPTURE},
        // A stream at another rate or channel count is refused at hw_params, naming both.
        {"tuning \"" + good + "\"", "for 48000 Hz, the stream is 44100 Hz" + hint, 44100},
        {"tuning \"" + good + "\"", "for 2 channel(s), the stream has 1" + hint, 48000, 1},
    };
    for (const auto &c : cases) {
        StderrToFile capture(log);
        snd_pcm_t *pcm;
        EXPECT_LT(open(c.options, pcm, 256, c.rate, c.channels, SND_PCM_ACCESS_RW_INTERLEAVED, c.stream), 0)
            << c.options;
        if (pcm)
            snd_pcm_close(pcm);
        EXPECT_NE(capture.text().find(c.message), std::string::npos) << c.options << "\n" << capture.text();
    }
    // The rates a stream may ask for at all, before the tuning's own is compared.
    snd_pcm_t *pcm;
    ASSERT_EQ(open("tuning \"" + good + "\"", pcm, 256, 0), 0);
    snd_pcm_hw_params_t *hw;
    snd_pcm_hw_params_alloca(&hw);
    snd_pcm_hw_params_any(pcm, hw);
    unsigned lowest = 0, highest = 0;
    snd_pcm_hw_params_get_rate_min(hw, &lowest, nullptr);
    snd_pcm_hw_params_get_rate_max(hw, &highest, nullptr);
    EXPECT_EQ(lowest, 8000u);
    EXPECT_EQ(highest, 192000u);
    snd_pcm_close(pcm);
}

}  // namespace
