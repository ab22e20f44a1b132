// The whole chain on the reference tuning: 48 kHz, 16-bit stereo, 768-sample frames,
// every stage on.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "bench_util.h"
#include "core/fp_environment.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_bench;

void BM_AudioPostProcess(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    AudioPostState *chain = quietly([&] { return AudioPost_Init(record.data(), kFrame); });
    std::vector<int16_t> music = music_like(200);
    std::vector<int16_t> frame(kFrame * kChannels);
    size_t offset = 0;
    for (auto _ : state) {
        std::copy(music.begin() + static_cast<long>(offset),
                  music.begin() + static_cast<long>(offset + frame.size()), frame.begin());
        AudioPost_Process(chain, frame.data(), frame.data(), 2, kFrame);
        benchmark::DoNotOptimize(frame.data());
        offset = (offset + frame.size()) % music.size();
    }
    report_per_sample(state);
    AudioPost_Destroy(chain);
}
BENCHMARK(BM_AudioPostProcess);

// Reading the meters after a frame: the output peaks and the stages' gains in dB.
void BM_AudioPostGetMeters(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    AudioPostState *chain = quietly([&] { return AudioPost_Init(record.data(), kFrame); });
    std::vector<int16_t> frame = music_like(1);
    AudioPost_Process(chain, frame.data(), frame.data(), 0, kFrame);
    AudioPostMeters meters;
    for (auto _ : state) {
        AudioPost_GetMeters(chain, &meters);
        benchmark::DoNotOptimize(meters);
    }
    AudioPost_Destroy(chain);
}
BENCHMARK(BM_AudioPostGetMeters);

// What every exported call pays to compute in the library's own floating-point
// environment: saving the caller's, setting the library's, putting the caller's back.
void BM_FpEnvironmentSwitch(benchmark::State &state)
{
    for (auto _ : state) {
        const eqdrc::FpEnvironment libraryEnvironment;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FpEnvironmentSwitch);

}  // namespace
