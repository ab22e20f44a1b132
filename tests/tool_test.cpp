// The command-line test program end to end, as a separate process.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "support/test_support.h"

using eqdrc_test::blank_record;
using eqdrc_test::read_file;
using eqdrc_test::temp_path;
using eqdrc_test::write_file;

namespace {

constexpr size_t kFrameBytes = 768 * 2 * 2;

struct ToolRun {
    int status;
    std::string out;
};

ToolRun run_tool(const std::string &args)
{
    const std::string so = temp_path("tool.stdout");
    // A rejected record ends the program with its partly built chain still allocated, on
    // purpose; the leak checker would turn that exit status into its own.
    std::string cmd = "ASAN_OPTIONS=detect_leaks=0 " + std::string(EQDRC_TEST_RUNNER) + " " + EQDRC_QUORVEL_ENH + " " + args + " >" + so + " 2>/dev/null";
    int st = std::system(cmd.c_str());
    ToolRun r{WIFEXITED(st) ? WEXITSTATUS(st) : -1, read_file(so)};
    std::remove(so.c_str());
    return r;
}

void write_record(const std::string &path, const std::vector<float> &rec, size_t bytes = 2176)
{
    write_file(path, rec.data(), bytes);
}

std::string constant_pcm(size_t frames, int16_t value, size_t extraBytes = 0)
{
    std::string pcm(frames * kFrameBytes + extraBytes, '\0');
    auto *s = reinterpret_cast<int16_t *>(&pcm[0]);
    for (size_t i = 0; i < pcm.size() / 2; i++)
        s[i] = value;
    return pcm;
}

struct ToolFiles {
    std::string in = temp_path("in.raw"), out = temp_path("out.raw"), a = temp_path("a.rec"),
                b = temp_path("b.rec"), dump = temp_path("dump.rec");
    ~ToolFiles()
    {
        for (auto *p : {&in, &out, &a, &b, &dump})
            std::remove(p->c_str());
    }
    std::string args(const char *mode = "0") const
    {
        return in + " " + out + " " + a + " " + b + " " + dump + " " + mode;
    }
};

}  // namespace

TEST(TestProgram, TooFewArgumentsPrintUsage)
{
    ToolRun r = run_tool("only-one");
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "Error: Wrong input parameters! A example is as following: \n"
                     "quorvel_enh test_in.wav test_out.wav test.bin 0\n");
}

TEST(TestProgram, BypassRecordCopiesWholeFramesAndDumpsTheReadBack)
{
    ToolFiles f;
    std::string pcm;
    for (int i = 0; i < 10 * 768 * 2; i++) {
        int16_t v = static_cast<int16_t>((i * 7919) % 65536 - 32768);
        pcm.append(reinterpret_cast<const char *>(&v), 2);
    }
    pcm.append(1000, '\x11');  // a partial last frame is dropped
    write_file(f.in, pcm.data(), pcm.size());
    auto rec = blank_record();
    rec[5] = 3.0f;  // the parameter version is never read back
    write_record(f.a, rec);
    write_record(f.b, rec);
    ToolRun r = run_tool(f.args());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Finished, speech_time = 0.000000, cost_time = ", 0), 0u);
    EXPECT_EQ(read_file(f.out), pcm.substr(0, 10 * kFrameBytes));
    std::string dump = read_file(f.dump);
    ASSERT_EQ(dump.size(), 2176u);
    auto back = blank_record();
    back[5] = 0.0f;
    EXPECT_EQ(dump, std::string(reinterpret_cast<const char *>(back.data()), 2176));

    EXPECT_EQ(run_tool(f.args("bypath")).status, 0);
    EXPECT_EQ(read_file(f.out), pcm.substr(0, 10 * kFrameBytes));
}

TEST(TestProgram, BadRecordsEndTheRun)
{
    ToolFiles f;
    write_file(f.in, constant_pcm(1, 0).data(), kFrameBytes);
    auto rec = blank_record();
    write_record(f.a, rec, 2000);
    write_record(f.b, rec);
    ToolRun r = run_tool(f.args());
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "error\n");

    rec[4] = 1.0f;
    write_record(f.a, rec);
    EXPECT_EQ(run_tool(f.args()).status, 255);
    EXPECT_EQ(run_tool(f.args("bypath")).status, 255);
}

TEST(TestProgram, SecondRecordIsSwappedInAtFrame5000AndOutAt8000)
{
    ToolFiles f;
    std::string pcm = constant_pcm(8001, 1000);
    write_file(f.in, pcm.data(), pcm.size());
    auto a = blank_record();
    auto b = blank_record();
    b[20] = b[25] = -6.0206f;
    write_record(f.a, a);
    write_record(f.b, b);
    ASSERT_EQ(run_tool(f.args()).status, 0);
    std::string out = read_file(f.out);
    ASSERT_EQ(out.size(), pcm.size());
    auto sample_of_frame = [&](size_t frameNo) {
        return reinterpret_cast<const int16_t *>(out.data())[(frameNo - 1) * 768 * 2];
    };
    EXPECT_EQ(sample_of_frame(4999), 1000);
    EXPECT_EQ(sample_of_frame(5000), 500);
    EXPECT_EQ(sample_of_frame(7999), 500);
    EXPECT_EQ(sample_of_frame(8000), 1000);
}
