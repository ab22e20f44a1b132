// Reload storm: the tuning file replaced SECONDS long, RATE times a second, while an
// audio thread plays through a FrameStream in real time (768-sample stereo frames at
// 48 kHz). Versions alternate between two good tunings, renamed over the file or
// written in place; every tenth is refused (a bit depth the chain cannot run), every
// twenty-fifth is deleted first. Prints what the watcher offered and refused, its log
// lines, the hand-overs, and the audio thread's longest call with and without a
// hand-over in it, on the thread's CPU clock and the wall clock.
//   eqdrc_reload_storm [SECONDS (10)] [RATE (100)]
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <thread>
#include <vector>

#include "frame_stream.h"
#include "layout.h"
#include "tuning.h"
#include "tuning_source.h"
#include "tuning_watcher.h"

namespace {

using namespace eqdrc_plugin;

constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr int kFrame = kDefaultFrameLen;
constexpr int kRefusedEvery = 10;
constexpr int kDeletedEvery = 25;

double thread_cpu_us()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e6 + t.tv_nsec / 1e3;
}

Record tuning(const char *name)
{
    return eqdrc_tool::read_tuning(std::string(EQDRC_SOURCE_DIR "/tunings/") + name);
}

struct Worst {
    double cpu = 0, wall = 0;
    void note(double c, double w)
    {
        cpu = std::max(cpu, c);
        wall = std::max(wall, w);
    }
};

}  // namespace

int main(int argc, char **argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
    const double rate = argc > 2 ? std::atof(argv[2]) : 100.0;
    char folderName[] = "/tmp/eqdrc-storm-XXXXXX";
    const std::string folder = mkdtemp(folderName), path = folder + "/speaker.bin", log = folder + "/log.txt";
    const Record music = tuning("music.json"), loud = tuning("loud-small-speaker.json");
    Record bad = music;
    bad[eqdrc_tool::Layout::embedded().word("header.bit_depth")] = 20.0f;
    eqdrc_tool::write_file_atomic(path, eqdrc_tool::record_to_bytes(music));

    RecordHandoff handoff;
    std::string error;
    Record first;
    if (!fit_tuning(music, "music.json", kRate, kChannels, false, kFrame, first, error))
        return std::fprintf(stdout, "%s\n", error.c_str()), 1;
    auto stream = FrameStream::create(first, kFrame, &handoff, error);
    // From here on the log lines (the watcher's) go to a file, to be counted.
    int logFd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), savedErr = ::dup(2);
    ::dup2(logFd, 2);
    auto watcher = TuningWatcher::start(path, kRate, kChannels, false, kFrame, handoff, error);
    if (!stream || !watcher)
        return std::fprintf(stdout, "%s\n", error.c_str()), 1;
    std::atomic<long long> swaps{0};
    stream->set_swap_callback([](void *c, long long) { ++*static_cast<std::atomic<long long> *>(c); }, &swaps);

    std::atomic<bool> done{false};
    long written = 0, refusedWritten = 0;
    std::thread storm([&] {
        const auto period = std::chrono::duration<double>(1.0 / rate);
        auto next = std::chrono::steady_clock::now();
        for (long v = 1; !done; ++v) {
            const Record &rec = v % kRefusedEvery == 0 ? bad : v % 2 ? loud : music;
            refusedWritten += v % kRefusedEvery == 0;
            if (v % kDeletedEvery == 0)
                ::unlink(path.c_str());
            if (v % 3 == 0) {  // in place
                FILE *f = std::fopen(path.c_str(), "wb");
                std::string bytes = eqdrc_tool::record_to_bytes(rec);
                std::fwrite(bytes.data(), 1, bytes.size(), f);
                std::fclose(f);
            } else {
                eqdrc_tool::write_file_atomic(path, eqdrc_tool::record_to_bytes(rec));
            }
            ++written;
            next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
            std::this_thread::sleep_until(next);
        }
    });

    // The audio thread: one frame every 16 ms, as a sound card asks for it.
    std::vector<int16_t> in(kFrame * kChannels), out(kFrame * kChannels);
    Worst plain, handedOver;
    const long frames = static_cast<long>(seconds * kRate / kFrame);
    auto next = std::chrono::steady_clock::now();
    for (long f = 0; f < frames; ++f) {
        for (int i = 0; i < kFrame; ++i) {
            const double t = static_cast<double>(f * kFrame + i) / kRate;
            const auto s = static_cast<int16_t>(9000.0 * std::sin(2 * M_PI * 110.0 * t) * (0.6 + 0.4 * std::sin(t)));
            in[i * kChannels] = s;
            in[i * kChannels + 1] = static_cast<int16_t>(s / 2);
        }
        const long long before = swaps;
        const double c0 = thread_cpu_us();
        const auto w0 = std::chrono::steady_clock::now();
        stream->write(in.data(), kFrame);
        stream->read(out.data(), kFrame);
        const double wall = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - w0).count();
        (swaps != before ? handedOver : plain).note(thread_cpu_us() - c0, wall);
        next += std::chrono::microseconds(kFrame * 1000000LL / kRate);
        std::this_thread::sleep_until(next);
    }
    done = true;
    storm.join();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the last version read
    const unsigned long offered = watcher->offered(), refused = watcher->refused();
    watcher.reset();
    ::dup2(savedErr, 2);
    std::string logText = eqdrc_tool::read_file(log);
    long lines = std::count(logText.begin(), logText.end(), '\n');
    std::printf("storm: %.0f s, %ld versions written (%ld refused by design, every %dth deleted first)\n", seconds,
                written, refusedWritten, kDeletedEvery);
    std::printf("watcher: %lu offered, %lu refused, %ld log lines; %lld hand-overs in %ld frames\n",
                offered, refused, lines, swaps.load(), frames);
    std::printf("longest frame call, thread CPU / wall: %.0f / %.0f us without a hand-over, %.0f / %.0f us with one\n",
                plain.cpu, plain.wall, handedOver.cpu, handedOver.wall);
    std::string rm = "rm -rf " + folder;
    return std::system(rm.c_str()) == 0 ? 0 : 1;
}
