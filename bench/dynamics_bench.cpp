// Automatic gain control followed by the maximizer, as the chain runs them, on the
// shipped reference tuning: stereo, 768-sample frames at 48 kHz.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "bench_util.h"
#include "core/record.h"
#include "tqaudio_eqdrc.h"

namespace {

using namespace eqdrc_bench;

// A level swinging over 30 dB twice a second, so that both the AGC's paths and the
// limiter's attack and release all run.
float swinging(int c, int i)
{
    const double envelope = std::pow(10.0, (-20.0 + 15.0 * std::sin(2.0 * M_PI * 2.0 * i / kSampleRate)) / 20.0);
    return static_cast<float>(32768.0 * envelope * std::sin(2.0 * M_PI * (220.0 + 110.0 * c) * i / kSampleRate));
}

void BM_AgcMaximizer_Process(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    MaximizerState *st =
        Maximizer_Init(record.data() + eqdrc::kSectionMaximizer, 16, kSampleRate, kChannels, kFrame, 0);
    Programme p(swinging);
    // In place, as in the chain: the frame is copied into the output buffers first.
    run_frames(state, p, [&](float **in, float **out) {
        for (int c = 0; c < kChannels; c++)
            std::copy(in[c], in[c] + kFrame, out[c]);
        Agc_Process(st, out, out, kFrame);
        Maximizer_Process(st, out, out, kFrame);
    });
    Maximizer_Destroy(st);
}

}  // namespace

BENCHMARK(BM_AgcMaximizer_Process)->Name("Agc_Process+Maximizer_Process");
