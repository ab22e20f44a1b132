// Thread safety: the library keeps its state in its objects only, so chains on
// different threads give the bits they give alone, and a record handed over from a
// control thread without a lock retunes a running chain exactly as the same record
// applied at the same frame on one thread.  Run under ThreadSanitizer in CI.
#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>
#include <utility>

#include "support/test_support.h"

// Builds without the eqdrc tool (cross builds) have no plugins' hand-over.
#if __has_include("record_handoff.h")
#include "record_handoff.h"
#define EQDRC_HAVE_HANDOFF 1
#endif

namespace {

constexpr int kFrame = 768;
constexpr int kChannels = 2;
constexpr int kThreads = 4;
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kFrames = 150;  // the sanitizers cost ten times and more
#else
constexpr int kFrames = 600;
#endif
constexpr int kStampWord = 7;  // the parameter version's patch word: no stage reads it

// Tuning number `n`: the reference with its auto gain target, pre-gains and limiter
// threshold moved, stamped with n.
std::vector<float> tuning(int n)
{
    static const std::vector<float> reference = eqdrc_test::reference_record();
    std::vector<float> rec = reference;
    rec[kStampWord] = static_cast<float>(n);
    rec[30] -= static_cast<float>(n % 5);
    rec[20] = -0.5f * static_cast<float>(n % 7);
    rec[25] = -0.25f * static_cast<float>(n % 3);
    rec[400] -= 0.1f * static_cast<float>(n % 4);
    return rec;
}

std::vector<int16_t> input(int frames, unsigned seed)
{
    std::vector<int16_t> v(static_cast<size_t>(kFrame * kChannels * frames));
    for (size_t i = 0; i < v.size(); ++i) {
        seed = seed * 1103515245u + 12345u;
        const double tone = 9000.0 * std::sin(static_cast<double>(i / 2) * (i % 2 ? 0.013 : 0.029));
        v[i] = static_cast<int16_t>(tone + static_cast<int>(seed >> 20) - 2048);
    }
    return v;
}

// Runs `in` through a chain created from tuning `first`; at frame f, when schedule[f]
// is not zero, SetPara with that tuning.
std::vector<int16_t> run(int first, const std::vector<int16_t> &in, const std::vector<int> &schedule)
{
    std::vector<float> rec = tuning(first);
    AudioPostState *st = AudioPost_Init(rec.data(), kFrame);
    EXPECT_NE(st, nullptr);
    std::vector<int16_t> out(in.size());
    const size_t step = kFrame * kChannels;
    for (size_t f = 0; f * step < in.size(); ++f) {
        if (f < schedule.size() && schedule[f] != 0) {
            rec = tuning(schedule[f]);
            AudioPost_SetPara(st, rec.data(), kFrame);
        }
        AudioPost_Process(st, in.data() + f * step, out.data() + f * step, 0, kFrame);
    }
    AudioPost_Destroy(st);
    return out;
}

}  // namespace

// Each thread creates, retunes, runs and destroys its own chain and its own stand-alone
// stages, all at once.
TEST(Threads, ChainsOnFourThreadsGiveTheirSingleThreadBits)
{
    std::vector<std::vector<int16_t>> inputs, alone(kThreads), together(kThreads);
    std::vector<std::vector<int>> schedules(kThreads, std::vector<int>(kFrames));
    for (int t = 0; t < kThreads; ++t) {
        inputs.push_back(input(kFrames, 77u + static_cast<unsigned>(t)));
        for (int f = 50; f < kFrames; f += 50)
            schedules[static_cast<size_t>(t)][static_cast<size_t>(f)] = t * 100 + f / 50;
    }
    eqdrc_test::capture_stderr([&] {
        for (int t = 0; t < kThreads; ++t)
            alone[static_cast<size_t>(t)] = run(t, inputs[static_cast<size_t>(t)], schedules[static_cast<size_t>(t)]);
    });

    std::vector<std::vector<float>> meterAlone(kThreads), meterTogether(kThreads);
    auto meter = [&](int t) {  // a stand-alone stage too: the loudness meter, read every frame
        Ebur128State *m = ebur128_init(16, 48000, kChannels, 400, 100);
        eqdrc_test::Planar p(kChannels, kFrame);
        std::vector<float> readings;
        for (int f = 0; f < kFrames; ++f) {
            for (int c = 0; c < kChannels; ++c)
                for (int i = 0; i < kFrame; ++i)
                    p.data[c][i] = inputs[static_cast<size_t>(t)][static_cast<size_t>((f * kFrame + i) * kChannels + c)];
            ebur128_addframes(m, p.ptrs(), kFrame);
            readings.push_back(ebur128_gatedloudness(m));
        }
        ebur128_destroy(m);
        return readings;
    };
    for (int t = 0; t < kThreads; ++t)
        meterAlone[static_cast<size_t>(t)] = meter(t);

    std::vector<std::thread> threads;
    std::atomic<int> ready{0};
    eqdrc_test::capture_stderr([&] {
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                ready.fetch_add(1);
                while (ready.load() < kThreads) {
                }
                const size_t i = static_cast<size_t>(t);
                together[i] = run(t, inputs[i], schedules[i]);
                meterTogether[i] = meter(t);
            });
        for (auto &th : threads)
            th.join();
    });
    for (size_t t = 0; t < kThreads; ++t) {
        EXPECT_TRUE(together[t] == alone[t]) << "chain on thread " << t;
        std::vector<float> a = meterAlone[t], b = meterTogether[t];
        EXPECT_TRUE(eqdrc_test::same_bits(a, b)) << "meter on thread " << t;
    }
}

#ifdef EQDRC_HAVE_HANDOFF
// A control thread offers new tunings as fast as it can while the audio thread takes
// the newest between frames and applies it.  The audio thread logs which tuning it
// applied at which frame; replaying that log on one thread gives the same bits.
TEST(Threads, RecordHandedOverWhileProcessingRetunesLikeTheSameRecordBetweenFrames)
{
    using eqdrc_plugin::Record;
    const std::vector<int16_t> in = input(kFrames, 5u);
    std::vector<int16_t> out(in.size());
    std::vector<int> applied(kFrames, 0);
    eqdrc_plugin::RecordHandoff handoff;
    std::atomic<bool> done{false};
    std::atomic<int> offered{0};

    eqdrc_test::capture_stderr([&] {
        std::thread control([&] {
            for (int n = 1; !done.load(std::memory_order_relaxed); ++n) {
                Record rec;
                std::vector<float> t = tuning(n);
                std::copy(t.begin(), t.end(), rec.begin());
                handoff.offer(rec);
                offered.store(n, std::memory_order_relaxed);
                std::this_thread::yield();
            }
        });
        std::vector<float> first = tuning(0);
        AudioPostState *st = AudioPost_Init(first.data(), kFrame);
        const size_t step = kFrame * kChannels;
        for (size_t f = 0; f < static_cast<size_t>(kFrames); ++f) {
            // Every tenth frame waits for a fresh offer, so the test does not depend on
            // how the scheduler shares a loaded machine between the two threads.
            if (f % 10 == 0)
                for (int seen = offered.load(); offered.load() == seen;)
                    std::this_thread::yield();
            if (const Record *r = handoff.take()) {
                AudioPost_SetPara(st, r->data(), kFrame);
                applied[f] = static_cast<int>((*r)[kStampWord]);
                const std::vector<float> expected = tuning(applied[f]);
                for (int w = 0; w < EQDRC_RECORD_WORDS; ++w)
                    if ((*r)[static_cast<size_t>(w)] != expected[static_cast<size_t>(w)])
                        ADD_FAILURE() << "torn record " << applied[f] << " at word " << w;
            }
            AudioPost_Process(st, in.data() + f * step, out.data() + f * step, 0, kFrame);
        }
        AudioPost_Destroy(st);
        done.store(true);
        control.join();
    });

    int retunes = 0, last = 0;
    for (int n : applied)
        if (n != 0) {
            EXPECT_GT(n, last) << "an older tuning after a newer one";
            last = n;
            ++retunes;
        }
    EXPECT_GE(retunes, kFrames / 10) << "the control thread offered " << offered.load();
    std::vector<int16_t> replay;
    eqdrc_test::capture_stderr([&] { replay = run(0, in, applied); });
    EXPECT_TRUE(replay == out);
}
#endif
