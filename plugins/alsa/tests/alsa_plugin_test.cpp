// The ALSA plugin driven through alsa-lib: a host writes to an eqdrc device over a file
// slave, with a configuration the test writes, and the slave's bytes are compared with
// the chain run directly over the same samples.
#include <gtest/gtest.h>

#include <alsa/asoundlib.h>

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

#include "plugin_test_support.h"
#include "tool_test_support.h"
#include "tuning.h"

namespace {

using namespace eqdrc_plugin;
using eqdrc_plugin_test::music;
using eqdrc_plugin_test::reference;
using eqdrc_plugin_test::shipped_tuning;
using eqdrc_tool_test::ScratchDir;
using eqdrc_tool_test::slurp;
using eqdrc_tool_test::spit;

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
    explicit StderrToFile(const std::string &path) : path_(path)
    {
        std::fflush(stderr);
        saved_ = ::dup(2);
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
    // An eqdrc device named "test" over a raw file slave; `options` are added to it.
    std::string device(const std::string &options) const
    {
        return "pcm_type.eqdrc { lib \"" EQDRC_ALSA_PLUGIN "\" }\n"
               "pcm.test { type eqdrc " + options + " slave.pcm { type file slave.pcm { type null } file \"" +
               out() + "\" format raw } }\n";
    }
    std::string out() const { return dir / "slave.raw"; }
    std::string log() const { return dir / "log.txt"; }

    // Opens "test" from `config` alone; returns the error code of the first failing step.
    int open(const std::string &config, snd_pcm_t *&pcm, snd_pcm_stream_t stream = SND_PCM_STREAM_PLAYBACK)
    {
        snd_config_t *top = nullptr;
        snd_input_t *in = nullptr;
        snd_config_top(&top);
        snd_input_buffer_open(&in, config.data(), static_cast<ssize_t>(config.size()));
        int err = snd_config_load(top, in);
        snd_input_close(in);
        if (err >= 0)
            err = snd_pcm_open_lconf(&pcm, "test", stream, 0, top);
        snd_config_delete(top);
        return err;
    }

    int set_up(snd_pcm_t *pcm, unsigned rate, unsigned channels, snd_pcm_uframes_t period,
               snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED)
    {
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

    // Opens "test" with `options` and sets up a stream, asserting both went well.
    void start(const std::string &options, snd_pcm_t *&pcm, snd_pcm_uframes_t period = 256, unsigned rate = 48000,
               int channels = 2, snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED)
    {
        pcm = nullptr;
        ASSERT_EQ(open(device(options), pcm), 0);
        ASSERT_EQ(set_up(pcm, rate, channels, period, access), 0);
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

    // Plays `in` through "test" in writes of `block` frames and returns the slave's bytes.
    std::vector<int16_t> play(const std::string &options, const std::vector<int16_t> &in, int channels,
                              size_t block, unsigned rate = 48000,
                              snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED)
    {
        snd_pcm_t *pcm = nullptr;
        start(options, pcm, block, rate, channels, access);
        if (!pcm || testing::Test::HasFatalFailure())
            return {};
        write_all(pcm, in.data(), in.size() / channels, block, channels,
                  access == SND_PCM_ACCESS_MMAP_INTERLEAVED);
        snd_pcm_drain(pcm);
        snd_pcm_close(pcm);
        return slave_samples();
    }

    std::vector<int16_t> slave_samples() const
    {
        std::string bytes = slurp(out());
        std::vector<int16_t> s(bytes.size() / 2);
        std::memcpy(s.data(), bytes.data(), s.size() * 2);
        return s;
    }

    std::string tuning_file(const char *name, const Record &rec) const
    {
        std::string path = dir / name;
        spit(path, eqdrc_tool::record_to_bytes(rec));
        return path;
    }

    static Record fitted(const char *name, unsigned rate, int channels)
    {
        Record rec;
        std::string error;
        EXPECT_TRUE(fit_tuning(shipped_tuning(name), name, static_cast<int>(rate), channels, true, kFrame, rec,
                               error))
            << error;
        return rec;
    }

    ScratchDir dir;
};

// The slave receives the chain's output over exactly the samples written: whole frames,
// then at drain the last partial frame padded with silence and trimmed.
TEST_F(AlsaPlugin, SlaveGetsTheChainsBitsForEveryPeriodSize)
{
    for (int channels : {2, 1}) {
        Record rec = fitted("music.json", 48000, channels);
        std::string tuning = tuning_file(channels == 2 ? "stereo.bin" : "mono.bin", rec);
        std::vector<int16_t> in = music(12 * kFrame + 321, channels);
        std::vector<int16_t> want = reference(rec, kFrame, in);
        for (size_t period : {1, 17, 767, 769, 4096}) {
            std::vector<int16_t> got = play("tuning \"" + tuning + "\"", in, channels, period);
            EXPECT_EQ(got, want) << channels << " channel(s), writes of " << period;
        }
        // Hosts that write into the buffer in place (sound servers do) get the same bits.
        EXPECT_EQ(play("tuning \"" + tuning + "\"", in, channels, 333, 48000, SND_PCM_ACCESS_MMAP_INTERLEAVED), want)
            << channels << " channel(s), mmap writes";
    }
}

TEST_F(AlsaPlugin, JsonTuningFrameOptionAndAdapting)
{
    // A JSON tuning for 48 kHz stereo, adapted to a 44.1 kHz mono stream, frames of 500.
    Record rec = fitted("loud-small-speaker.json", 44100, 1);
    std::vector<int16_t> in = music(9 * 500 + 77, 1);
    std::vector<int16_t> got = play("tuning \"" EQDRC_SOURCE_DIR "/tunings/loud-small-speaker.json\" frame 500 adapt on",
                                    in, 1, 256, 44100);
    EXPECT_EQ(got, reference(rec, 500, in));
}

// The samples collected towards the next frame are part of the delay the application
// sees, on top of the slave's own.
TEST_F(AlsaPlugin, DelayCountsTheSamplesHeldForTheFrame)
{
    std::string tuning = tuning_file("stereo.bin", fitted("music.json", 48000, 2));
    std::vector<int16_t> in = music(3 * kFrame + 100, 2);
    snd_pcm_t *pcm;
    ASSERT_NO_FATAL_FAILURE(start("tuning \"" + tuning + "\"", pcm));
    snd_pcm_sframes_t before = 0, after = 0;
    write_all(pcm, in.data(), 3 * kFrame, 256, 2);
    ASSERT_EQ(snd_pcm_delay(pcm, &before), 0);
    write_all(pcm, &in[2 * 3 * kFrame], 100, 100, 2);
    ASSERT_EQ(snd_pcm_delay(pcm, &after), 0);
    EXPECT_GE(before, 0);
    EXPECT_EQ(after - before, 100) << "the partial frame is not on its way to the slave yet";
    snd_pcm_drain(pcm);
    snd_pcm_close(pcm);
    EXPECT_EQ(slave_samples().size(), in.size());
}

// Pause and resume leave the stream as it was; drain passes on the padded last frame;
// every prepare (after a drain, after a drop) drops the partial frame and keeps the
// chain's filter state.
TEST_F(AlsaPlugin, PauseResumeDrainDropAndPrepare)
{
    Record rec = fitted("music.json", 48000, 2);
    std::string tuning = tuning_file("stereo.bin", rec);
    std::vector<int16_t> in = music(9 * kFrame, 2);
    const size_t first = 5 * kFrame + 100, second = kFrame + 50, third = 2 * kFrame;
    const int16_t *second_in = &in[2 * first], *third_in = &in[2 * (first + second)];
    snd_pcm_t *pcm;
    ASSERT_NO_FATAL_FAILURE(start("tuning \"" + tuning + "\"", pcm));
    write_all(pcm, in.data(), 3 * kFrame + 100, 256, 2);
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
    std::vector<int16_t> head(chain.begin(), chain.begin() + 2 * first);
    std::vector<int16_t> tail(chain.begin() + 2 * 7 * kFrame, chain.end());
    ASSERT_GE(got.size(), head.size() + tail.size());
    EXPECT_EQ(std::vector<int16_t>(got.begin(), got.begin() + static_cast<long>(head.size())), head);
    EXPECT_EQ(std::vector<int16_t>(got.end() - static_cast<long>(tail.size()), got.end()), tail);
}

// A replacement that fails the check is refused and the old tuning keeps playing; a good
// one takes effect at the logged frame, with the exact bits on both sides of it.
TEST_F(AlsaPlugin, ReplacedTuningTakesEffectAtTheLoggedFrame)
{
    Record first = fitted("music.json", 48000, 2), second = fitted("loud-small-speaker.json", 48000, 2);
    Record bad = second;
    bad[eqdrc_tool::Layout::embedded().word("header.bit_depth")] = 20.0f;
    std::string tuning = tuning_file("live.bin", first);
    std::vector<int16_t> in = music(60 * kFrame, 2);
    const size_t block = 300, total = in.size() / 2;
    size_t at = 0;
    std::string text;
    {
        StderrToFile capture(log());
        snd_pcm_t *pcm;
        ASSERT_NO_FATAL_FAILURE(start("tuning \"" + tuning + "\" reload on debug on", pcm, block));
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
        text = capture.text();
    }
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
}

TEST_F(AlsaPlugin, BadConfigurationsGiveAnErrorAndNoCrash)
{
    Record rec = fitted("music.json", 48000, 2), rejected = rec;
    std::string good = tuning_file("good.bin", rec);
    rejected[eqdrc_tool::Layout::embedded().word("header.tool_version")] = 3.0f;
    std::string rejectedPath = tuning_file("rejected.bin", rejected);
    std::string shortPath = dir / "short.bin";
    spit(shortPath, "not a tuning");
    struct Case {
        std::string options, message;
    } cases[] = {
        {"", "no tuning given"},
        {"tuning \"" + dir / "missing.bin" + "\"", dir / "missing.bin"},
        {"tuning \"" + dir.path() + "\"", dir.path()},
        {"tuning \"" + shortPath + "\"", shortPath},
        {"tuning \"" + rejectedPath + "\"", rejectedPath + ": error: header.tool_version"},
        {"tuning \"" + good + "\" frame 0", "frame must be"},
        {"tuning \"" + good + "\" reload maybe", "reload must be on or off"},
        {"tuning \"" + good + "\" volume 11", "unknown option volume"},
    };
    // Opens the device and, given a rate, sets up a stream: the first error and the log.
    auto attempt = [&](const std::string &options, unsigned rate = 0, int channels = 2,
                       snd_pcm_stream_t stream = SND_PCM_STREAM_PLAYBACK) {
        StderrToFile capture(log());
        snd_pcm_t *pcm = nullptr;
        int err = open(device(options), pcm, stream);
        if (err >= 0 && rate)
            err = set_up(pcm, rate, channels, 256);
        if (pcm)
            snd_pcm_close(pcm);
        return std::pair{err, capture.text()};
    };
    for (const Case &c : cases) {
        auto [err, text] = attempt(c.options);
        EXPECT_LT(err, 0) << c.options;
        EXPECT_NE(text.find(c.message), std::string::npos) << c.options << "\n" << text;
    }

    auto [err, text] = attempt("tuning \"" + good + "\"", 0, 2, SND_PCM_STREAM_CAPTURE);
    EXPECT_LT(err, 0);
    EXPECT_NE(text.find("playback only"), std::string::npos) << text;

    // A stream at another rate or channel count is refused at hw_params, naming both.
    const char *hint = " (adapt on retunes it for the stream)";
    for (auto [rate, channels, message] : {std::tuple{44100u, 2, "for 48000 Hz, the stream is 44100 Hz"},
                                          std::tuple{48000u, 1, "for 2 channel(s), the stream has 1"}}) {
        auto [err, text] = attempt("tuning \"" + good + "\"", rate, channels);
        EXPECT_LT(err, 0);
        EXPECT_NE(text.find(std::string(message) + hint), std::string::npos) << text;
    }
}

}  // namespace
