// Auto gain (and the loudness meter inside it) on the shipped reference tuning:
// stereo, 768-sample frames at 48 kHz, 400 ms window, 100 ms step.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench_util.h"
#include "core/record.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_bench;

void BM_AutoGain_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    float *section = record.data() + eqdrc::kSectionAutoGain;
    section[3] = 400.0f;  // the reference's own window and step, pinned
    section[4] = 100.0f;
    AutoGainState *st = AutoGain_Init(section, 16, kSampleRate, kChannels, kFrame);
    Programme p(two_tone);
    run_frames(state, p, [&](float **in, float **out) { AutoGain_Process(st, in, out, kFrame); });
    AutoGain_Destroy(st);
}

}  // namespace

BENCHMARK(BM_AutoGain_Process)->Name("AutoGain_Process");
