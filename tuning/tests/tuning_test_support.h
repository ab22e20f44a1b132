// Helpers shared by the tuning library's tests and the tests of what uses it (the tool,
// the plugins): scratch folders and whole files. Capturing the library's log comes from
// the library tests' support.
#ifndef EQDRC_TUNING_TEST_SUPPORT_H
#define EQDRC_TUNING_TEST_SUPPORT_H

#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
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

}  // namespace eqdrc_tool_test

#endif
