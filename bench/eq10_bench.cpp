// Ten-band equaliser on the shipped reference tuning: stereo, 768-sample frames at
// 48 kHz, all ten bands of each channel active.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench_util.h"
#include "core/record.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_bench;

void BM_EQ10_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    const float *section = record.data() + eqdrc::kSectionEq10;
    for (int c = 0; c < kChannels; c++)
        for (int b = 0; b < 10; b++)
            if (section[50 * c + 5 * b] != 1.0f) {
                state.SkipWithError("reference tuning no longer has ten bands per channel");
                return;
            }
    EQ10State *st = EQ10_Init(section, 16, kSampleRate, kChannels, kFrame, 0);
    Programme p(two_tone);
    run_frames(state, p, [&](float **in, float **out) { EQ10_Process(st, in, out, kFrame); });
    EQ10_Destroy(st);
}

}  // namespace

BENCHMARK(BM_EQ10_Process)->Name("EQ10_Process");
