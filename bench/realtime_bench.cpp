// Real-time figures: the per-frame latency distribution of AudioPost_Process over ten
// minutes of music-like audio retuned every second, and the cost of every call the
// header lists as not real-time safe (mean and worst case).  Times are µs per call;
// frames are 768 stereo samples at 48 kHz (16 ms of audio).  Latency is given twice:
// wall clock (p50_us, p99_us, max_us) and this thread's processor time (cpu_*), which
// leaves out preemption by other processes.
//   build/bench/realtime_bench [--benchmark_filter=Latency]
#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>

#include "bench_util.h"
#include "tqaudio_eqdrc.h"

using namespace eqdrc_bench;

namespace {

using Clock = std::chrono::steady_clock;

double micros(Clock::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }

// This thread's processor time in µs: unlike the wall clock it leaves out the time the
// thread was preempted, which on a shared machine dominates the worst case.
double thread_cpu_us()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_nsec) * 1e-3;
}

// Standard error to /dev/null for the life of the object: the set-up calls print.
struct SilentStderr {
    SilentStderr() : saved(dup(2))
    {
        std::fflush(stderr);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 2);
        close(null);
    }
    ~SilentStderr()
    {
        std::fflush(stderr);
        dup2(saved, 2);
        close(saved);
    }
    int saved;
};

// Tuning `n` of a cycle of eight: the reference with its gains and limiter moved.
std::vector<float> retuned(const std::vector<float> &base, int n)
{
    std::vector<float> rec = base;
    rec[eqdrc::kSectionAutoGain] -= static_cast<float>(n % 4);
    rec[eqdrc::kWordPreGain] = -0.5f * static_cast<float>(n % 8);
    rec[eqdrc::kSectionMaximizer] -= 0.1f * static_cast<float>(n % 3);
    return rec;
}

double percentile(std::vector<double> v, double p)
{
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(p * static_cast<double>(v.size() - 1))];
}

// Ten minutes (37500 frames) of ten seconds of music-like audio looped, each pass at
// another level, with a whole new record every second (between frames, as a host
// would apply one handed over from its control thread).
void BM_Latency10Minutes(benchmark::State &state)
{
    std::vector<float> base;
    if (!load_record(state, &base))
        return;
    const int framesPerPass = 10 * kSampleRate / kFrame;
    const int frames = 600 * kSampleRate / kFrame;
    const std::vector<int16_t> music = music_like(framesPerPass);
    std::vector<int16_t> in(static_cast<size_t>(kFrame * kChannels)), out(in.size());
    for (auto _ : state) {
        SilentStderr quiet;
        AudioPostState *st = AudioPost_Init(base.data(), kFrame);
        std::vector<double> process, cpu, retune;
        process.reserve(static_cast<size_t>(frames));
        cpu.reserve(static_cast<size_t>(frames));
        long samples = 0;
        for (int f = 0; f < frames; f++) {
            const int pass = f / framesPerPass;
            const double level = 0.1 + 0.9 * ((pass * 7) % 10) / 9.0;
            const size_t off = static_cast<size_t>((f % framesPerPass) * kFrame * kChannels);
            for (size_t i = 0; i < in.size(); i++)
                in[i] = static_cast<int16_t>(music[off + i] * level);
            if (samples / kSampleRate != (samples + kFrame) / kSampleRate) {
                const std::vector<float> rec = retuned(base, f);
                const Clock::time_point t0 = Clock::now();
                AudioPost_SetPara(st, rec.data(), kFrame);
                retune.push_back(micros(Clock::now() - t0));
            }
            samples += kFrame;
            const double c0 = thread_cpu_us();
            const Clock::time_point t0 = Clock::now();
            AudioPost_Process(st, in.data(), out.data(), 0, kFrame);
            process.push_back(micros(Clock::now() - t0));
            cpu.push_back(thread_cpu_us() - c0);
            benchmark::DoNotOptimize(out[0]);
        }
        AudioPost_Destroy(st);
        state.counters["p50_us"] = percentile(process, 0.50);
        state.counters["p99_us"] = percentile(process, 0.99);
        state.counters["p99.9_us"] = percentile(process, 0.999);
        state.counters["max_us"] = *std::max_element(process.begin(), process.end());
        state.counters["cpu_p50_us"] = percentile(cpu, 0.50);
        state.counters["cpu_p99_us"] = percentile(cpu, 0.99);
        state.counters["cpu_max_us"] = *std::max_element(cpu.begin(), cpu.end());
        state.counters["frames"] = static_cast<double>(process.size());
        state.counters["retune_max_us"] = *std::max_element(retune.begin(), retune.end());
    }
}
BENCHMARK(BM_Latency10Minutes)->Iterations(1)->Unit(benchmark::kSecond);

// Times `call` once per iteration after an untimed `prepare`, and reports the mean and
// the worst case.
void time_calls(benchmark::State &state, const std::function<void()> &prepare, const std::function<void()> &call)
{
    double worst = 0.0, total = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        prepare();
        state.ResumeTiming();
        const Clock::time_point t0 = Clock::now();
        call();
        const double us = micros(Clock::now() - t0);
        worst = std::max(worst, us);
        total += us;
    }
    state.counters["mean_us"] = total / static_cast<double>(state.iterations());
    state.counters["max_us"] = worst;
}

// The calls that allocate or print, each from the state a host would call it in.
void BM_NotRealTimeSafe(benchmark::State &state)
{
    std::vector<float> rec;
    if (!load_record(state, &rec))
        return;
    SilentStderr quiet;
    std::vector<float> noDeEsser = rec, newWindow = rec, badVersion = rec;
    noDeEsser[eqdrc::kWordEnable + 3] = 0.0f;
    newWindow[eqdrc::kSectionAutoGain + 3] += 100.0f;
    badVersion[eqdrc::kWordToolVersion] = 3.0f;
    const std::string path = std::string(EQDRC_SOURCE_DIR) + "/tunings/reference.bin";
    AudioPostState *st = nullptr;
    auto fresh = [&](const std::vector<float> &r) {
        return [&] {
            if (st)
                AudioPost_Destroy(st);
            st = AudioPost_Init(r.data(), kFrame);
        };
    };
    auto none = [] {};
    switch (state.range(0)) {
    case 0:
    case 1: {
        const bool byPath = state.range(0) == 1;
        state.SetLabel(byPath ? "AudioPost_InitByPath" : "AudioPost_Init, every stage");
        time_calls(state, [&] { if (st) AudioPost_Destroy(st); st = nullptr; },
                   [&] { st = byPath ? AudioPost_InitByPath(path.c_str(), kFrame) : AudioPost_Init(rec.data(), kFrame); });
        break;
    }
    case 2:
        state.SetLabel("AudioPost_Destroy");
        time_calls(state, [&] { st = AudioPost_Init(rec.data(), kFrame); },
                   [&] { AudioPost_Destroy(st); st = nullptr; });
        break;
    case 3:
        state.SetLabel("SetPara enabling the de-esser");
        time_calls(state, fresh(noDeEsser), [&] { AudioPost_SetPara(st, rec.data(), kFrame); });
        break;
    case 4:
        state.SetLabel("SetPara with a new loudness window");
        time_calls(state, fresh(rec), [&] { AudioPost_SetPara(st, newWindow.data(), kFrame); });
        break;
    case 5:
        state.SetLabel("SetPara refused (wrong tool version)");
        time_calls(state, fresh(rec), [&] { AudioPost_SetPara(st, badVersion.data(), kFrame); });
        break;
    case 6:
        state.SetLabel("Agc_AdjustPara refused");
        st = AudioPost_Init(rec.data(), kFrame);
        time_calls(state, none,
                   [&] { AudioPost_Agc_AdjustPara(st, 0, -50.0f, -20.0f, -70.0f, 6.0f, -3.0f, 5, 200, 10); });
        break;
    case 7:
        state.SetLabel("SetPara, same stages (real-time safe)");
        st = AudioPost_Init(rec.data(), kFrame);
        time_calls(state, none, [&] { AudioPost_SetPara(st, rec.data(), kFrame); });
        break;
    }
    if (st)
        AudioPost_Destroy(st);
}
BENCHMARK(BM_NotRealTimeSafe)->DenseRange(0, 7)->Unit(benchmark::kMicrosecond)->Iterations(300);

}  // namespace
