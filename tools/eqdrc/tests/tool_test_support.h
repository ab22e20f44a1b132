// Helpers shared by the eqdrc tests: scratch folders, sound files and running the tool.
// Capturing the library's log comes from the library tests' support.
#ifndef EQDRC_TOOL_TEST_SUPPORT_H
#define EQDRC_TOOL_TEST_SUPPORT_H

#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sndfile.h>
#include <type_traits>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/test_support.h"

namespace eqdrc_tool_test {

using eqdrc_test::capture_stderr;

// A folder that disappears with the test.
class ScratchDir {
public:
    ScratchDir()
    {
        char tmpl[] = "/tmp/eqdrc-test-XXXXXX";
        path_ = mkdtemp(tmpl);
    }
    ~ScratchDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }
    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        if (DIR *d = opendir(path_.c_str())) {
            while (dirent *e = readdir(d))
                if (e->d_name[0] != '.')
                    names.push_back(e->d_name);
            closedir(d);
        }
        return names;
    }

private:
    std::string path_;
};

inline std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void spit(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

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
