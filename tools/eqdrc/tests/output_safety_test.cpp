// What the tool must never do to a user's files: replace an input, leave a partial
// output behind when a signal ends the run, or write a record the library would refuse;
// and the exit statuses the help and the README promise.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <thread>

#include "tool_test_support.h"

using namespace eqdrc_tool_test;

namespace {

const std::string kTunings = EQDRC_SOURCE_DIR "/tunings/";

// A stereo 16-bit WAV header announcing `frames` frames, for feeding through a pipe.
std::string wav_header(uint32_t frames)
{
    auto u32 = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    auto u16 = [](uint16_t v) { return std::string{char(v), char(v >> 8)}; };
    const uint32_t bytes = frames * 4;
    return "RIFF" + u32(36 + bytes) + "WAVEfmt " + u32(16) + u16(1) + u16(2) + u32(48000) + u32(48000 * 4) + u16(4) +
           u16(16) + "data" + u32(bytes);
}

bool has_temporary(const ScratchDir &dir)
{
    const std::vector<std::string> names = dir.entries();
    return std::any_of(names.begin(), names.end(), [](const std::string &n) { return n.find(".eqdrc-") != n.npos; });
}

}  // namespace

TEST(OutputSafety, NeverReplacesAnInputUnlessForced)
{
    ScratchDir dir;
    ASSERT_TRUE(write_sound(dir / "song.wav", std::vector<int16_t>(2 * 4800, 1000), 2, 48000,
                            SF_FORMAT_WAV | SF_FORMAT_PCM_16));
    spit(dir / "tuning.json", slurp(kTunings + "music.json"));
    spit(dir / "tuning.bin", slurp(kTunings + "reference.bin"));
    ASSERT_EQ(::symlink((dir / "song.wav").c_str(), (dir / "song-link.wav").c_str()), 0);
    ASSERT_EQ(::link((dir / "tuning.bin").c_str(), (dir / "hard.bin").c_str()), 0);

    struct Case {
        std::vector<std::string> args;
        std::string output, input;
    };
    const std::vector<Case> cases = {
        {{"process", dir / "song.wav", dir / "song.wav"}, dir / "song.wav", dir / "song.wav"},
        {{"process", dir / "song.wav", dir / "song-link.wav"}, dir / "song-link.wav", dir / "song.wav"},
        {{"tuning", "compile", dir / "tuning.json", "-o", dir / "tuning.json"}, dir / "tuning.json", dir / "tuning.json"},
        {{"tuning", "compile", dir / "tuning.bin", "-o", dir / "hard.bin"}, dir / "hard.bin", dir / "tuning.bin"},
        {{"tuning", "decompile", dir / "tuning.bin", "-o", dir / "hard.bin"}, dir / "hard.bin", dir / "tuning.bin"},
    };
    const std::vector<std::string> before = dir.entries();
    for (const Case &c : cases) {
        const std::string original = slurp(c.input);
        RunResult r = run_tool(c.args);
        EXPECT_EQ(r.status, 2) << c.output;
        EXPECT_EQ(r.err, "eqdrc: " + c.output + ": is the input " + c.input +
                             "; write elsewhere, or add --force to replace it\n");
        EXPECT_EQ(slurp(c.input), original) << c.output;
        EXPECT_EQ(dir.entries().size(), before.size()) << c.output;
    }

    // Forced, the output replaces the input (the tuning is read before it is replaced).
    ASSERT_EQ(run_tool({"tuning", "compile", dir / "tuning.json", "-o", dir / "tuning.json", "--force"}).status, 0);
    EXPECT_EQ(slurp(dir / "tuning.json").size(), 2176u);
    RunResult overSong = run_tool({"process", dir / "song.wav", dir / "song.wav", "--force"});
    EXPECT_EQ(overSong.status, 0) << overSong.err;
}

// The run blocks reading a pipe after the temporary output exists; whatever signal ends
// it, the temporary output goes with it.
TEST(OutputSafety, EveryEndingSignalRemovesThePartialOutput)
{
    for (int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGUSR1, SIGALRM}) {
        ScratchDir dir;
        const std::string fifo = dir / "in.wav";
        ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int devnull = ::open("/dev/null", O_WRONLY);
            ::dup2(devnull, STDOUT_FILENO);
            ::dup2(devnull, STDERR_FILENO);
            ::execl(EQDRC_TOOL, EQDRC_TOOL, "process", fifo.c_str(), (dir / "out.wav").c_str(), (char *)nullptr);
            ::_exit(127);
        }
        int w = ::open(fifo.c_str(), O_WRONLY);
        ASSERT_GE(w, 0);
        std::string head = wav_header(48000 * 60) + std::string(4 * 768 * 4, '\0');
        ASSERT_EQ(::write(w, head.data(), head.size()), static_cast<ssize_t>(head.size()));
        for (int i = 0; i < 3000 && !has_temporary(dir); ++i)  // up to 30 s on a loaded machine
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(has_temporary(dir)) << "signal " << sig;
        ::kill(pid, sig);
        int status = 0;
        ::waitpid(pid, &status, 0);
        ::close(w);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig) << "signal " << sig << ", status " << status;
        EXPECT_FALSE(has_temporary(dir)) << "signal " << sig << " left the temporary output";
        EXPECT_EQ(dir.entries(), std::vector<std::string>{"in.wav"});
    }
}

TEST(CompileCommand, RefusesARecordWithErrorsUnlessForced)
{
    ScratchDir dir;
    auto with = [](const std::string &from, const std::string &to) {
        std::string text = slurp(kTunings + "music.json");
        size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    };
    spit(dir / "bad.json", with("\"fc\": 2500.0", "\"fc\": 30000.0"));
    spit(dir / "warned.json", with("\"boost\": -1.0", "\"boost\": -30.0"));

    RunResult bad = run_tool({"tuning", "compile", dir / "bad.json", "-o", dir / "bad.bin"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("eqdrc: " + dir / "bad.json" + ": error: eq10.channels[0].bands[2].fc = 30000"),
              std::string::npos) << bad.err;
    EXPECT_NE(bad.err.find(" error(s) above; nothing written (--force writes it anyway)"), std::string::npos);
    EXPECT_EQ(slurp(dir / "bad.bin"), "");
    EXPECT_EQ(dir.entries().size(), 2u);
    EXPECT_EQ(run_tool({"tuning", "compile", dir / "bad.json", "-o", dir / "bad.bin", "--force"}).status, 0);
    EXPECT_EQ(slurp(dir / "bad.bin").size(), 2176u);

    RunResult warned = run_tool({"tuning", "compile", dir / "warned.json", "-o", dir / "warned.bin"});
    EXPECT_EQ(warned.status, 0);
    EXPECT_NE(warned.err.find("warning: eq10.channels[0].bands[1].boost = -30"), std::string::npos) << warned.err;
    EXPECT_EQ(slurp(dir / "warned.bin").size(), 2176u);
}

TEST(CommandLine, UsageErrorsExitTwoAndHelpStatesTheContract)
{
    ScratchDir dir;
    const std::vector<std::vector<std::string>> usage = {
        {}, {"process"}, {"process", "a.wav"}, {"process", "a.wav", "b.wav", "--frame", "many"},
        {"--no-such-option"}, {"tuning"}, {"tuning", "compile", "x.json"}, {"frobnicate"},
    };
    for (const auto &args : usage) {
        RunResult r = run_tool(args);
        EXPECT_EQ(r.status, 2) << (args.empty() ? "(no arguments)" : args[0] + " ...") << r.err;
        EXPECT_NE(r.err, "");
    }

    RunResult version = run_tool({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("eqdrc 2."), std::string::npos) << version.out;
    EXPECT_NE(version.out.find("libtqaudio_effect_eqdrc 2."), std::string::npos) << version.out;

    RunResult help = run_tool({"process", "--help"});
    EXPECT_EQ(help.status, 0);
    for (const char *text : {"Exit status: 0", "1 the tuning check", "2 a usage error", "auto_gain, bass_enhancer, "
                             "exciter, de_esser, eq10, multiband_drc, agc, maximizer"})
        EXPECT_NE(help.out.find(text), std::string::npos) << text << " missing from\n" << help.out;
}
