// The whole chain on the reference tuning: 48 kHz, 16-bit stereo, 768-sample frames,
// every stage on.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "bench_util.h"
#include "tqaudio_eqdrc.h"

namespace {

void BM_AudioPostProcess(benchmark::State &state)
{
    std::vector<float> record = eqdrc_bench::load_record("tunings/reference.bin");
    AudioPostState *chain = eqdrc_bench::quietly([&] { return AudioPost_Init(record.data(), eqdrc_bench::kFrame); });
    std::vector<int16_t> music = eqdrc_bench::music_like(200);
    std::vector<int16_t> frame(eqdrc_bench::kFrame * 2);
    size_t offset = 0;
    for (auto _ : state) {
        std::copy(music.begin() + static_cast<long>(offset),
                  music.begin() + static_cast<long>(offset + frame.size()), frame.begin());
        AudioPost_Process(chain, frame.data(), frame.data(), 2, eqdrc_bench::kFrame);
        benchmark::DoNotOptimize(frame.data());
        offset = (offset + frame.size()) % music.size();
    }
    eqdrc_bench::report_per_sample(state);
    AudioPost_Destroy(chain);
}
BENCHMARK(BM_AudioPostProcess);

}  // namespace
