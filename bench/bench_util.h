// Shared set-up for the benchmarks: the reference record, programme signals and the
// counters.  Every benchmark runs stereo, 768-sample frames at 48 kHz.
#ifndef EQDRC_BENCH_UTIL_H
#define EQDRC_BENCH_UTIL_H

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "core/record.h"

namespace eqdrc_bench {

constexpr int kFrame = 768;
constexpr int kSampleRate = 48000;
constexpr int kChannels = 2;

// Per iteration one frame of kFrame stereo samples: reports ns per stereo sample and the
// real-time factor (seconds of audio per second of processing).
inline void report_per_sample(benchmark::State &state)
{
    state.counters["ns_per_sample"] = benchmark::Counter(
        static_cast<double>(kFrame) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["x_realtime"] = benchmark::Counter(static_cast<double>(kFrame) / kSampleRate,
                                                      benchmark::Counter::kIsIterationInvariantRate);
}

// Runs `make` with standard error silenced (set-up prints a banner).
template <class F>
auto quietly(F make)
{
    std::fflush(stderr);
    int saved = dup(2);
    std::FILE *null = std::fopen("/dev/null", "w");
    dup2(fileno(null), 2);
    auto result = make();
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::fclose(null);
    return result;
}

// A whole tuning record from the source tree (default: the shipped reference tuning).
// On failure the benchmark is skipped with the reason and false is returned.
inline bool load_record(benchmark::State &state, std::vector<float> *record,
                        const char *relative = "tunings/reference.bin")
{
    record->assign(eqdrc::kRecordWords, 0.0f);
    const std::string path = std::string(EQDRC_SOURCE_DIR) + "/" + relative;
    std::FILE *f = std::fopen(path.c_str(), "rb");
    size_t got = 0;
    if (f != nullptr) {
        got = std::fread(record->data(), sizeof(float), record->size(), f);
        std::fclose(f);
    }
    if (got != record->size()) {
        state.SkipWithError((relative + std::string(" not readable")).c_str());
        return false;
    }
    return true;
}

// One second of planar programme per channel, cycled frame by frame, with an output
// frame per channel.
struct Programme {
    std::vector<std::vector<float>> in;
    std::vector<std::vector<float>> out;
    float *outPtrs[kChannels];
    int pos = 0;

    // `sample(c, i)` gives sample i of channel c.
    template <class Sample>
    explicit Programme(Sample sample)
        : in(kChannels, std::vector<float>(kSampleRate)), out(kChannels, std::vector<float>(kFrame))
    {
        for (int c = 0; c < kChannels; c++) {
            for (int i = 0; i < kSampleRate; i++)
                in[c][i] = sample(c, i);
            outPtrs[c] = out[c].data();
        }
    }

    // Input pointers of the next frame.
    void next(float **inPtrs)
    {
        for (int c = 0; c < kChannels; c++)
            inPtrs[c] = in[c].data() + pos;
        pos = pos + 2 * kFrame > kSampleRate ? 0 : pos + kFrame;
    }
};

// The timed loop of a planar stage: `process(in, out)` runs one frame from the next input
// frame into the programme's output frame.
template <class Process>
void run_frames(benchmark::State &state, Programme &p, Process process)
{
    for (auto _ : state) {
        float *inPtrs[kChannels];
        p.next(inPtrs);
        process(inPtrs, p.outPtrs);
        benchmark::DoNotOptimize(p.out[kChannels - 1][kFrame - 1]);
    }
    report_per_sample(state);
}

// A two-tone programme at about -20 dBFS: 220 Hz and, per channel, 3 or 3.5 kHz.
inline float two_tone(int c, int i)
{
    return static_cast<float>(2000.0 * std::sin(2.0 * M_PI * 220.0 * i / kSampleRate) +
                              1000.0 * std::sin(2.0 * M_PI * (3000.0 + 500.0 * c) * i / kSampleRate));
}

// Interleaved stereo chords with noise bursts, `frames` frames long.
inline std::vector<int16_t> music_like(int frames)
{
    std::vector<int16_t> v(static_cast<size_t>(frames * kFrame * kChannels));
    uint32_t seed = 1;
    double burst = 0.0;
    for (size_t i = 0; i < v.size() / kChannels; i++) {
        double t = static_cast<double>(i) / kSampleRate;
        double tone = std::sin(2 * M_PI * 110 * t) + 0.5 * std::sin(2 * M_PI * 277.2 * t) +
                      0.3 * std::sin(2 * M_PI * 3300 * t);
        if (i % (kSampleRate / 4) == 0)
            burst = 1.0;
        burst *= 0.9995;
        seed = seed * 1664525u + 1013904223u;
        double noise = (static_cast<double>(seed >> 8) / 8388608.0 - 1.0) * burst;
        v[2 * i] = static_cast<int16_t>(7000 * tone + 6000 * noise);
        v[2 * i + 1] = static_cast<int16_t>(6000 * tone - 5000 * noise);
    }
    return v;
}

}  // namespace eqdrc_bench

#endif
