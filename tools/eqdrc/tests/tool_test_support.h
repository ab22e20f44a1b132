// Helpers shared by the eqdrc tests: scratch folders and running the tool. Capturing the
// library's log and its required leaks come from the library tests' support.
#ifndef EQDRC_TOOL_TEST_SUPPORT_H
#define EQDRC_TOOL_TEST_SUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/test_support.h"

namespace eqdrc_tool_test {

using eqdrc_test::capture_stderr;
using eqdrc_test::with_required_leak;

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
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

inline void spit(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

struct RunResult {
    int status;
    std::string out;
    std::string err;
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
