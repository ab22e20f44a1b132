// The processing code's builds (scalar lanes, SSE2, AVX2 on x86-64): how one is chosen,
// and that each gives the same bits, through the test program as a separate process
// (the choice is made once, when the library is loaded), which names it in its banner.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/simd_path.h"
#include "support/test_support.h"

using eqdrc_test::read_file;
using eqdrc_test::temp_path;
using eqdrc_test::write_file;

namespace {

using eqdrc_simd::Path;

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
public:
    ScopedEnv(const char *name, const char *value) : name_(name)
    {
        const char *old = std::getenv(name);
        had_ = old != nullptr;
        if (had_)
            old_ = old;
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnv() { had_ ? setenv(name_, old_.c_str(), 1) : unsetenv(name_); }

private:
    const char *name_;
    bool had_ = false;
    std::string old_;
};

// The version banner's build-stamp line, from a run's standard error.
std::string building_line(const std::string &log)
{
    const size_t at = log.find(" building: ");
    if (at == std::string::npos)
        return "(no building line)";
    const size_t begin = log.rfind('\n', at) + 1, end = log.find('\n', at);
    return log.substr(begin, end - begin);
}

TEST(SimdPath, ForcedByTheVariableAndNeverWiderThanTheCpu)
{
    const Path widest = eqdrc_simd::widest_path();
    for (auto [value, want] : {std::pair<const char *, Path>{"scalar", Path::kScalar}, {"sse2", Path::kSse2},
                               {"avx2", widest}, {"avx512", widest}, {nullptr, widest}}) {
        ScopedEnv simd("EQDRC_SIMD", value);
        EXPECT_EQ(eqdrc_simd::chosen_path(), want) << (value ? value : "(unset)");
    }
    ScopedEnv preload("LD_PRELOAD", "/usr/libexec/valgrind/vgpreload_core-amd64-linux.so");
    ScopedEnv simd("EQDRC_SIMD", "avx2");
    EXPECT_EQ(eqdrc_simd::chosen_path(), Path::kSse2) << "valgrind cannot run every AVX2 form";
}

// Each forced path is the one that runs: the test program, a separate process (the
// choice is made when the library is loaded), names it in its banner. That every path
// gives the same bits is the conformance vectors' to check, run once per path.
TEST(SimdPath, TheForcedPathIsTheOneThatRuns)
{
    const std::string in = temp_path("simd_in.raw"), out = temp_path("simd_out.raw"),
                      dump = temp_path("simd_dump.rec"), log = temp_path("simd_log.txt"),
                      rec = std::string(EQDRC_SOURCE_DIR) + "/tunings/reference.bin";
    const std::vector<int16_t> pcm(2 * 768, 1000);
    write_file(in, pcm.data(), pcm.size() * sizeof(int16_t));
    for (const char *path : {"scalar", "sse2", "avx2"}) {
        const std::string cmd = std::string("EQDRC_SIMD=") + path + " ASAN_OPTIONS=detect_leaks=0 " +
                                EQDRC_TEST_RUNNER + " " + EQDRC_QUORVEL_ENH + " " + in + " " + out + " " + rec + " " +
                                rec + " " + dump + " >/dev/null 2>" + log;
        const int st = std::system(cmd.c_str());
        ASSERT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << path;
        const std::string banner = building_line(read_file(log));
#if EQDRC_SIMD_DISPATCH
        ScopedEnv simd("EQDRC_SIMD", path);
        const std::string ran = eqdrc_simd::path_name(eqdrc_simd::chosen_path());
#else
        const std::string ran = AudioPost_GetProcessingCode();  // the library's only copy
#endif
        EXPECT_NE(banner.find(", " + ran + " processing code"), std::string::npos) << path << ": " << banner;
    }
    for (const std::string &f : {in, out, dump, log})
        std::remove(f.c_str());
}

}  // namespace
