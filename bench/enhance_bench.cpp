// Bass enhancer, exciter and de-esser on the shipped reference tuning: stereo,
// 768-sample frames at 48 kHz.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "bench_util.h"
#include "core/record.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_bench;

// Bass, mids and sibilant highs at about -12 dBFS.
float bass_mids_highs(int c, int i)
{
    return static_cast<float>(4000.0 * std::sin(2.0 * M_PI * 55.0 * i / kSampleRate) +
                              2000.0 * std::sin(2.0 * M_PI * (440.0 + 110.0 * c) * i / kSampleRate) +
                              2000.0 * std::sin(2.0 * M_PI * 6000.0 * i / kSampleRate));
}

template <class State, class Init, class Process, class Destroy>
void run_stage(benchmark::State &state, int section, Init init, Process process, Destroy destroy)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    State *st = init(record.data() + section);
    Programme p(bass_mids_highs);
    run_frames(state, p, [&](float **in, float **out) { process(st, in, out, kFrame); });
    destroy(st);
}

void BM_BassEnhancer_Process(benchmark::State &state)
{
    run_stage<BassEnhancerState>(
        state, eqdrc::kSectionBassEnhancer,
        [](const float *s) { return BassEnhancer_Init(s, 16, kSampleRate, kChannels, 0); }, BassEnhancer_Process,
        BassEnhancer_Destroy);
}

void BM_Exciter_Process(benchmark::State &state)
{
    run_stage<ExciterState>(
        state, eqdrc::kSectionExciter, [](const float *s) { return Exciter_Init(s, 16, kSampleRate, kChannels, 0); },
        Exciter_Process, Exciter_Destroy);
}

void BM_DeEsser_Process(benchmark::State &state)
{
    run_stage<DeEsserState>(
        state, eqdrc::kSectionDeEsser,
        [](const float *s) { return DeEsser_Init(s, 16, kSampleRate, kChannels, kFrame, 0); }, DeEsser_Process,
        DeEsser_Destroy);
}

}  // namespace

BENCHMARK(BM_BassEnhancer_Process)->Name("BassEnhancer_Process");
BENCHMARK(BM_Exciter_Process)->Name("Exciter_Process");
BENCHMARK(BM_DeEsser_Process)->Name("DeEsser_Process");
