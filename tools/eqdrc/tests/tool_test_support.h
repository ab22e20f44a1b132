// Helpers shared by the eqdrc tests: sound files and running the tool. Scratch folders and
// whole files come from the tuning library's tests, capturing the library's log from the
// library tests' support.
#ifndef EQDRC_TOOL_TEST_SUPPORT_H
#define EQDRC_TOOL_TEST_SUPPORT_H

#include <cstdlib>
#include <sndfile.h>
#include <string>
#include <sys/wait.h>
#include <type_traits>
#include <vector>

#include "tuning_test_support.h"

namespace eqdrc_tool_test {

// Writes interleaved samples into a new sound file of `format` through libsndfile's
// interface for their type (int16_t, int or double, scaled as that interface does); false
// on failure.
template <typename Sample>
bool write_sound(const std::string &path, const std::vector<Sample> &samples, int channels, int rate, int format)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = format;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f)
        return false;
    const sf_count_t frames = static_cast<sf_count_t>(samples.size() / static_cast<size_t>(channels));
    sf_count_t written;
    if constexpr (std::is_same_v<Sample, int16_t>)
        written = sf_writef_short(f, samples.data(), frames);
    else if constexpr (std::is_same_v<Sample, int>)
        written = sf_writef_int(f, samples.data(), frames);
    else
        written = sf_writef_double(f, samples.data(), frames);
    return sf_close(f) == 0 && written == frames;
}

struct RunResult {
    int status;
    std::string out, err;
};

// Runs the eqdrc binary with shell-quoted arguments.
inline RunResult run_tool(const std::vector<std::string> &args)
{
    char tmpl[] = "/tmp/eqdrc-run-XXXXXX";
    std::string dir = mkdtemp(tmpl);
    std::string cmd = "'" EQDRC_TOOL "'";
    for (const std::string &a : args)
        cmd += " '" + a + "'";
    cmd += " >'" + dir + "/out' 2>'" + dir + "/err' </dev/null";
    int raw = std::system(cmd.c_str());
    RunResult r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir + "/out"), slurp(dir + "/err")};
    std::system(("rm -rf '" + dir + "'").c_str());
    return r;
}

}  // namespace eqdrc_tool_test

#endif
