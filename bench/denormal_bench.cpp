// Denormals: every stage and the whole chain on the reference tuning, once on
// programme ("music") and once on a decaying tail: 50 ms of programme, then silence for
// the rest of each second, so the recursive filters, envelopes and gains ring down
// through the denormal range.  A stage whose "tail" figure is well above its "music"
// figure pays for denormal arithmetic.  Stereo, 768-sample frames at 48 kHz.
// On x86 each case also runs with the CPU flushing denormals (ftz:1, FTZ and DAZ set):
// a gap that closes there is the cost of denormals.  The library itself never sets
// these flags (they change results).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "bench_util.h"
#include "core/record.h"
#include "tqaudio_eqdrc.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace {

using namespace eqdrc_bench;

constexpr int kBurstSamples = kSampleRate / 20;  // 50 ms of programme per second

float music(int c, int i) { return two_tone(c, i) * 4.0f; }

float tail(int c, int i) { return i < kBurstSamples ? music(c, i) : 0.0f; }

enum Signal { kMusic, kTail };

// Sets FTZ and DAZ for the benchmark's lifetime when its second argument asks for it.
class Flush {
public:
    explicit Flush(bool on)
    {
#if defined(__SSE__)
        saved_ = _mm_getcsr();
        if (on)
            _mm_setcsr(saved_ | 0x8040u);
#else
        (void)on;
#endif
    }
    ~Flush()
    {
#if defined(__SSE__)
        _mm_setcsr(saved_);
#endif
    }

private:
    unsigned saved_ = 0;
};

// One planar stage, created from its section of the reference record.
template <class State, class Init, class Process, class Destroy>
void run_stage(benchmark::State &state, int section, Init init, Process process, Destroy destroy)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    Flush flush(state.range(1) != 0);
    State *st = quietly([&] { return init(record.data() + section); });
    Programme p(state.range(0) == kMusic ? music : tail);
    run_frames(state, p, [&](float **in, float **out) { process(st, in, out, kFrame); });
    destroy(st);
}

void BM_EQ10(benchmark::State &state)
{
    run_stage<EQ10State>(
        state, eqdrc::kSectionEq10,
        [](const float *s) { return EQ10_Init(s, 16, kSampleRate, kChannels, kFrame, 0); }, EQ10_Process,
        EQ10_Destroy);
}

void BM_MultiBandDRC(benchmark::State &state)
{
    run_stage<MultiBandDRCState>(
        state, eqdrc::kSectionMultiBandDrc,
        [](const float *s) { return MultiBandDRC_Init(s, 16, kSampleRate, kChannels, 0); }, MultiBandDRC_Process,
        MultiBandDRC_Destroy);
}

void BM_AgcMaximizer(benchmark::State &state)
{
    run_stage<MaximizerState>(
        state, eqdrc::kSectionMaximizer,
        [](const float *s) { return Maximizer_Init(s, 16, kSampleRate, kChannels, kFrame, 0); },
        [](MaximizerState *st, float **in, float **out, int n) {
            Agc_Process(st, in, out, n);
            Maximizer_Process(st, out, out, n);
        },
        Maximizer_Destroy);
}

void BM_AutoGain(benchmark::State &state)
{
    run_stage<AutoGainState>(
        state, eqdrc::kSectionAutoGain,
        [](const float *s) { return AutoGain_Init(s, 16, kSampleRate, kChannels, kFrame); }, AutoGain_Process,
        AutoGain_Destroy);
}

void BM_BassEnhancer(benchmark::State &state)
{
    run_stage<BassEnhancerState>(
        state, eqdrc::kSectionBassEnhancer,
        [](const float *s) { return BassEnhancer_Init(s, 16, kSampleRate, kChannels, 0); }, BassEnhancer_Process,
        BassEnhancer_Destroy);
}

void BM_Exciter(benchmark::State &state)
{
    run_stage<ExciterState>(
        state, eqdrc::kSectionExciter, [](const float *s) { return Exciter_Init(s, 16, kSampleRate, kChannels, 0); },
        Exciter_Process, Exciter_Destroy);
}

void BM_DeEsser(benchmark::State &state)
{
    run_stage<DeEsserState>(
        state, eqdrc::kSectionDeEsser,
        [](const float *s) { return DeEsser_Init(s, 16, kSampleRate, kChannels, kFrame, 0); }, DeEsser_Process,
        DeEsser_Destroy);
}

// The chain on interleaved 16-bit frames: music, or one second of music-like frames
// of which all but the first 50 ms are zero.
void BM_Chain(benchmark::State &state)
{
    std::vector<float> record;
    if (!load_record(state, &record))
        return;
    Flush flush(state.range(1) != 0);
    AudioPostState *chain = quietly([&] { return AudioPost_Init(record.data(), kFrame); });
    std::vector<int16_t> pcm = music_like(kSampleRate / kFrame);
    if (state.range(0) == kTail)
        std::fill(pcm.begin() + kBurstSamples * kChannels, pcm.end(), int16_t{0});
    std::vector<int16_t> frame(kFrame * kChannels);
    size_t offset = 0;
    for (auto _ : state) {
        std::copy(pcm.begin() + static_cast<long>(offset), pcm.begin() + static_cast<long>(offset + frame.size()),
                  frame.begin());
        AudioPost_Process(chain, frame.data(), frame.data(), kChannels, kFrame);
        benchmark::DoNotOptimize(frame.data());
        offset = (offset + frame.size()) % pcm.size();
    }
    report_per_sample(state);
    AudioPost_Destroy(chain);
}

void signals(benchmark::internal::Benchmark *b)
{
#if defined(__SSE__)
    b->ArgNames({"tail", "ftz"})->ArgsProduct({{kMusic, kTail}, {0, 1}});
#else
    b->ArgNames({"tail", "ftz"})->ArgsProduct({{kMusic, kTail}, {0}});
#endif
}

}  // namespace

BENCHMARK(BM_EQ10)->Apply(signals);
BENCHMARK(BM_MultiBandDRC)->Apply(signals);
BENCHMARK(BM_AgcMaximizer)->Apply(signals);
BENCHMARK(BM_AutoGain)->Apply(signals);
BENCHMARK(BM_BassEnhancer)->Apply(signals);
BENCHMARK(BM_Exciter)->Apply(signals);
BENCHMARK(BM_DeEsser)->Apply(signals);
BENCHMARK(BM_Chain)->Apply(signals);
