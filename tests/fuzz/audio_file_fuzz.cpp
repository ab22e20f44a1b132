// Audio files as `eqdrc process` reads them: whatever libsndfile opens (WAV, AIFF,
// FLAC, ...), converted to 16-bit frames and run through the chain with the built-in
// tuning adapted to the file's rate and channels, output and loudness included.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "process.h"

namespace {

// One scratch folder per fuzzing process, removed at exit.
struct Scratch {
    Scratch()
    {
        char tmpl[] = "/tmp/eqdrc-audio-fuzz-XXXXXX";
        dir = mkdtemp(tmpl) ? tmpl : "/tmp";
        input = dir + "/in";
        output = dir + "/out.wav";
        log = std::fopen("/dev/null", "w");
    }
    ~Scratch()
    {
        unlink(input.c_str());
        unlink(output.c_str());
        rmdir(dir.c_str());
        std::fclose(log);
    }
    std::string dir, input, output;
    FILE *log;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Scratch scratch;
    FILE *f = std::fopen(scratch.input.c_str(), "wb");
    if (f == nullptr)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    eqdrc_tool::ProcessOptions o;
    o.input = scratch.input;
    o.output = scratch.output;
    try {
        eqdrc_tool::process_file(o, scratch.log);
    } catch (const eqdrc_tool::Error &) {
        // unreadable, unsupported rate or channel count: refused with a message
    }
    unlink(scratch.output.c_str());
    return 0;
}
