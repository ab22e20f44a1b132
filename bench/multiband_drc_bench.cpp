// Multi-band compressor on the shipped reference tuning: stereo, four bands with their
// dynamics on, 768-sample frames at 48 kHz.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "bench_util.h"
#include "core/record.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_bench;

// Programme spread over all four bands at about -12 dBFS, so every band's detector
// keeps working.
float four_bands(int c, int i)
{
    const double t = static_cast<double>(i) / kSampleRate;
    return static_cast<float>(3000.0 * std::sin(2.0 * M_PI * 90.0 * t) +
                              2000.0 * std::sin(2.0 * M_PI * (500.0 + 40.0 * c) * t) +
                              1500.0 * std::sin(2.0 * M_PI * 2200.0 * t) + 1000.0 * std::sin(2.0 * M_PI * 7000.0 * t));
}

void BM_MultiBandDRC_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    const float *section = record.data() + eqdrc::kSectionMultiBandDrc;
    if (static_cast<int>(section[0]) != 4 || static_cast<int>(section[100]) != 4) {
        state.SkipWithError("the reference tuning no longer has four compressor bands");
        return;
    }
    MultiBandDRCState *st = MultiBandDRC_Init(section, 16, kSampleRate, kChannels, 0);
    Programme p(four_bands);
    run_frames(state, p, [&](float **in, float **out) { MultiBandDRC_Process(st, in, out, kFrame); });
    MultiBandDRC_Destroy(st);
}

}  // namespace

BENCHMARK(BM_MultiBandDRC_Process)->Name("MultiBandDRC_Process");
