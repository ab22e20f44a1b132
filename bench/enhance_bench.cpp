// Bass enhancer, exciter and de-esser on the shipped reference tuning: stereo,
// 768-sample frames at 48 kHz.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "chain/record.h"
#include "tqaudio_eqdrc.h"

namespace {

constexpr int kFs = 48000;
constexpr int kFrame = 768;
constexpr int kChannels = 2;

bool load_reference(std::vector<float> *record)
{
    record->assign(eqdrc::kRecordWords, 0.0f);
    std::FILE *f = std::fopen(EQDRC_SOURCE_DIR "/tunings/reference.bin", "rb");
    if (f == nullptr)
        return false;
    const size_t got = std::fread(record->data(), sizeof(float), eqdrc::kRecordWords, f);
    std::fclose(f);
    return got == static_cast<size_t>(eqdrc::kRecordWords);
}

// A second of bass, mids and sibilant highs at about -12 dBFS, cycled frame by frame.
struct Programme {
    std::vector<std::vector<float>> in;
    std::vector<std::vector<float>> out;
    float *outPtrs[kChannels];
    int pos = 0;

    Programme() : in(kChannels, std::vector<float>(kFs)), out(kChannels, std::vector<float>(kFrame))
    {
        for (int c = 0; c < kChannels; c++) {
            for (int i = 0; i < kFs; i++)
                in[c][i] = static_cast<float>(4000.0 * std::sin(2.0 * M_PI * 55.0 * i / kFs) +
                                              2000.0 * std::sin(2.0 * M_PI * (440.0 + 110.0 * c) * i / kFs) +
                                              2000.0 * std::sin(2.0 * M_PI * 6000.0 * i / kFs));
            outPtrs[c] = out[c].data();
        }
    }
    // Input pointers of the next frame.
    void next(float **inPtrs)
    {
        for (int c = 0; c < kChannels; c++)
            inPtrs[c] = in[c].data() + pos;
        pos = pos + 2 * kFrame > kFs ? 0 : pos + kFrame;
    }
};

void set_counters(benchmark::State &state)
{
    // Per stereo sample, as the other benchmarks count.
    state.counters["ns_per_sample"] =
        benchmark::Counter(kFrame * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["x_realtime"] =
        benchmark::Counter(static_cast<double>(kFrame) / kFs, benchmark::Counter::kIsIterationInvariantRate);
}

template <class State, class Init, class Process, class Destroy>
void run_stage(benchmark::State &state, int section, Init init, Process process, Destroy destroy)
{
    std::vector<float> record;
    if (!load_reference(&record)) {
        state.SkipWithError("tunings/reference.bin not readable");
        return;
    }
    State *st = init(record.data() + section);
    Programme p;
    for (auto _ : state) {
        float *inPtrs[kChannels];
        p.next(inPtrs);
        process(st, inPtrs, p.outPtrs, kFrame);
        benchmark::DoNotOptimize(p.out[0][kFrame - 1]);
    }
    destroy(st);
    set_counters(state);
}

void BM_BassEnhancer_Process(benchmark::State &state)
{
    run_stage<BassEnhancerState>(
        state, eqdrc::kSectionBassEnhancer,
        [](const float *s) { return BassEnhancer_Init(s, 16, kFs, kChannels, 0); }, BassEnhancer_Process,
        BassEnhancer_Destroy);
}

void BM_Exciter_Process(benchmark::State &state)
{
    run_stage<ExciterState>(
        state, eqdrc::kSectionExciter, [](const float *s) { return Exciter_Init(s, 16, kFs, kChannels, 0); },
        Exciter_Process, Exciter_Destroy);
}

void BM_DeEsser_Process(benchmark::State &state)
{
    run_stage<DeEsserState>(
        state, eqdrc::kSectionDeEsser, [](const float *s) { return DeEsser_Init(s, 16, kFs, kChannels, kFrame, 0); },
        DeEsser_Process, DeEsser_Destroy);
}

}  // namespace

BENCHMARK(BM_BassEnhancer_Process)->Name("BassEnhancer_Process");
BENCHMARK(BM_Exciter_Process)->Name("Exciter_Process");
BENCHMARK(BM_DeEsser_Process)->Name("DeEsser_Process");
