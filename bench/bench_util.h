// Shared set-up for the benchmarks: the reference frame, signals and counters.
#ifndef EQDRC_BENCH_UTIL_H
#define EQDRC_BENCH_UTIL_H

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace eqdrc_bench {

constexpr int kFrame = 768;
constexpr int kSampleRate = 48000;

// Per iteration one stereo frame: report ns per stereo sample and the real-time factor.
inline void report_per_sample(benchmark::State &state)
{
    state.counters["ns_per_sample"] =
        benchmark::Counter(static_cast<double>(kFrame) * 1e-9, benchmark::Counter::kIsIterationInvariantRate |
                                                                     benchmark::Counter::kInvert);
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

inline std::vector<float> load_record(const std::string &relative)
{
    std::vector<float> rec(544, 0.0f);
    std::string path = std::string(EQDRC_SOURCE_DIR) + "/" + relative;
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr || std::fread(rec.data(), 4, rec.size(), f) != rec.size()) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        std::exit(1);
    }
    std::fclose(f);
    return rec;
}

// Interleaved stereo chords with noise bursts, `frames` frames long.
inline std::vector<int16_t> music_like(int frames)
{
    std::vector<int16_t> v(static_cast<size_t>(frames * kFrame * 2));
    uint32_t seed = 1;
    double burst = 0.0;
    for (size_t i = 0; i < v.size() / 2; i++) {
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
