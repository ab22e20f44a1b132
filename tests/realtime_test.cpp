// Real-time safety: on the processing path nothing allocates, locks, sleeps or does I/O.
//
// This executable defines the allocator, the C++ allocation operators, the mutex calls,
// file and socket I/O and the sleeps itself.  The library is a shared object, so its
// calls to them bind to these definitions, which count a call while the calling thread
// is "armed" and forward it to the C library.  Sanitizer builds replace the same
// functions, so there the test is skipped.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>

#include "support/test_support.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define EQDRC_RT_INTERPOSED 0
#else
#define EQDRC_RT_INTERPOSED 1
#endif

namespace {

enum Kind { kAlloc, kLock, kIo, kSleep, kKinds };
const char *const kKindNames[kKinds] = {"allocation", "lock", "I/O", "sleep"};

thread_local bool t_armed = false;
thread_local std::array<int, kKinds> t_calls{};

inline void note(Kind k)
{
    if (t_armed)
        ++t_calls[k];
}

// The next definition of `name` after this executable's, looked up once.
template <class F>
F next_symbol(F &cache, const char *name)
{
    if (cache == nullptr)
        cache = reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
    return cache;
}

}  // namespace

#if EQDRC_RT_INTERPOSED
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);

// The allocator's entry points, counted and passed to glibc's own.
#define EQDRC_RT_COUNTED(ret, name, params, body) \
    ret name params                               \
    {                                             \
        note(kAlloc);                             \
        body;                                     \
    }
EQDRC_RT_COUNTED(void *, malloc, (size_t n), return __libc_malloc(n))
EQDRC_RT_COUNTED(void *, calloc, (size_t n, size_t size), return __libc_calloc(n, size))
EQDRC_RT_COUNTED(void *, realloc, (void *p, size_t n), return __libc_realloc(p, n))
EQDRC_RT_COUNTED(void, free, (void *p), __libc_free(p))
EQDRC_RT_COUNTED(void *, aligned_alloc, (size_t align, size_t n), return __libc_memalign(align, n))
EQDRC_RT_COUNTED(void *, memalign, (size_t align, size_t n), return __libc_memalign(align, n))
EQDRC_RT_COUNTED(int, posix_memalign, (void **p, size_t align, size_t n),
                 return (*p = __libc_memalign(align, n)) ? 0 : ENOMEM)

#define EQDRC_RT_FORWARD(kind, ret, name, params, args) \
    ret name params                                     \
    {                                                   \
        note(kind);                                     \
        static ret(*next) params = nullptr;             \
        return next_symbol(next, #name) args;           \
    }

EQDRC_RT_FORWARD(kLock, int, pthread_mutex_lock, (pthread_mutex_t * m), (m))
EQDRC_RT_FORWARD(kLock, int, pthread_mutex_trylock, (pthread_mutex_t * m), (m))
EQDRC_RT_FORWARD(kLock, int, pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t *m), (c, m))
EQDRC_RT_FORWARD(kLock, int, pthread_rwlock_rdlock, (pthread_rwlock_t * l), (l))
EQDRC_RT_FORWARD(kLock, int, pthread_rwlock_wrlock, (pthread_rwlock_t * l), (l))
EQDRC_RT_FORWARD(kIo, ssize_t, read, (int fd, void *buf, size_t n), (fd, buf, n))
EQDRC_RT_FORWARD(kIo, ssize_t, write, (int fd, const void *buf, size_t n), (fd, buf, n))
EQDRC_RT_FORWARD(kIo, int, close, (int fd), (fd))
EQDRC_RT_FORWARD(kIo, FILE *, fopen, (const char *path, const char *mode), (path, mode))
EQDRC_RT_FORWARD(kIo, FILE *, fopen64, (const char *path, const char *mode), (path, mode))
EQDRC_RT_FORWARD(kIo, size_t, fread, (void *p, size_t size, size_t n, FILE *f), (p, size, n, f))
EQDRC_RT_FORWARD(kIo, size_t, fwrite, (const void *p, size_t size, size_t n, FILE *f), (p, size, n, f))
EQDRC_RT_FORWARD(kIo, int, fputs, (const char *s, FILE *f), (s, f))
EQDRC_RT_FORWARD(kIo, int, fputc, (int c, FILE *f), (c, f))
EQDRC_RT_FORWARD(kIo, int, puts, (const char *s), (s))
EQDRC_RT_FORWARD(kIo, int, fflush, (FILE * f), (f))
EQDRC_RT_FORWARD(kIo, int, fclose, (FILE * f), (f))
EQDRC_RT_FORWARD(kIo, int, vfprintf, (FILE * f, const char *fmt, va_list ap), (f, fmt, ap))
EQDRC_RT_FORWARD(kIo, int, vprintf, (const char *fmt, va_list ap), (fmt, ap))
EQDRC_RT_FORWARD(kIo, int, socket, (int domain, int type, int protocol), (domain, type, protocol))
EQDRC_RT_FORWARD(kIo, int, connect, (int fd, const struct sockaddr *a, socklen_t n), (fd, a, n))
EQDRC_RT_FORWARD(kIo, ssize_t, send, (int fd, const void *buf, size_t n, int flags), (fd, buf, n, flags))
EQDRC_RT_FORWARD(kIo, ssize_t, recv, (int fd, void *buf, size_t n, int flags), (fd, buf, n, flags))
EQDRC_RT_FORWARD(kSleep, unsigned, sleep, (unsigned s), (s))
EQDRC_RT_FORWARD(kSleep, int, usleep, (useconds_t us), (us))
EQDRC_RT_FORWARD(kSleep, int, nanosleep, (const struct timespec *t, struct timespec *rem), (t, rem))
EQDRC_RT_FORWARD(kSleep, int, clock_nanosleep,
                 (clockid_t c, int flags, const struct timespec *t, struct timespec *rem), (c, flags, t, rem))

// The variadic ones: open's mode is only there with O_CREAT/O_TMPFILE, but reading it
// regardless is harmless on the ABIs we build for.
static int forward_open(int (*&next)(const char *, int, ...), const char *name, const char *path, int flags,
                        va_list ap)
{
    note(kIo);
    mode_t mode = va_arg(ap, mode_t);
    return next_symbol(next, name)(path, flags, mode);
}
int open(const char *path, int flags, ...)
{
    static int (*next)(const char *, int, ...) = nullptr;
    va_list ap;
    va_start(ap, flags);
    int fd = forward_open(next, "open", path, flags, ap);
    va_end(ap);
    return fd;
}
int open64(const char *path, int flags, ...)
{
    static int (*next)(const char *, int, ...) = nullptr;
    va_list ap;
    va_start(ap, flags);
    int fd = forward_open(next, "open64", path, flags, ap);
    va_end(ap);
    return fd;
}
int fprintf(FILE *f, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int n = vfprintf(f, fmt, ap);
    va_end(ap);
    return n;
}
int printf(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int n = vprintf(fmt, ap);
    va_end(ap);
    return n;
}
}  // extern "C"

void *operator new(size_t n)
{
    note(kAlloc);
    if (void *p = __libc_malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
void *operator new[](size_t n) { return operator new(n); }
void *operator new(size_t n, const std::nothrow_t &) noexcept
{
    note(kAlloc);
    return __libc_malloc(n ? n : 1);
}
void *operator new[](size_t n, const std::nothrow_t &t) noexcept { return operator new(n, t); }
void operator delete(void *p) noexcept
{
    note(kAlloc);
    __libc_free(p);
}
void operator delete[](void *p) noexcept { operator delete(p); }
void operator delete(void *p, size_t) noexcept { operator delete(p); }
void operator delete[](void *p, size_t) noexcept { operator delete(p); }
#endif

namespace {

using eqdrc_test::Planar;

constexpr int kFrame = 768;
constexpr int kChannels = 2;
constexpr int kRate = 48000;
constexpr int kBits = 16;
constexpr int kFrames = 2000;  // 32 s of audio per pass

// The calls `body` makes on this thread, by kind.
std::array<int, kKinds> calls_during(const std::function<void()> &body)
{
    t_calls = {};
    t_armed = true;
    body();
    t_armed = false;
    return t_calls;
}

std::string describe(const std::array<int, kKinds> &c)
{
    std::string s;
    for (int k = 0; k < kKinds; ++k)
        if (c[k])
            s += std::to_string(c[k]) + " " + kKindNames[k] + " call(s); ";
    return s.empty() ? "none" : s;
}

#define EXPECT_REALTIME_SAFE(what, body) \
    EXPECT_EQ(describe(calls_during([&] { body; })), "none") << (what)

// Music-like stereo test input: two detuned tones and a noise burst that comes and goes,
// loud enough to drive every dynamics stage both ways.
void fill_frame(int16_t *dst, int frame)
{
    unsigned seed = 12345u + static_cast<unsigned>(frame);
    for (int i = 0; i < kFrame; ++i) {
        const double t = static_cast<double>(frame * kFrame + i) / kRate;
        seed = seed * 1103515245u + 12345u;
        const double burst = (frame / 20) % 2 ? static_cast<int>(seed >> 17) - 16384 : 0.0;
        const double level = 0.2 + 0.8 * ((frame / 50) % 3) / 2.0;
        const double l = level * (12000.0 * std::sin(2 * M_PI * 110.0 * t) + 6000.0 * std::sin(2 * M_PI * 4300.0 * t)) +
                         0.4 * burst;
        const double r = level * (12000.0 * std::sin(2 * M_PI * 82.0 * t) + 6000.0 * std::sin(2 * M_PI * 7100.0 * t)) -
                         0.4 * burst;
        dst[2 * i] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, l)));
        dst[2 * i + 1] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, r)));
    }
}

class RealTime : public testing::Test {
protected:
    void SetUp() override
    {
#if !EQDRC_RT_INTERPOSED
        GTEST_SKIP() << "sanitizers replace the interposed functions";
#endif
        rec = eqdrc_test::reference_record();
        for (int f = 0; f < 2; ++f)
            for (int k = 10; k <= 17; ++k)
                ASSERT_NE(rec[static_cast<size_t>(k)], 0.0f) << "the reference tuning enables every stage";
    }
    std::vector<float> rec;
};

}  // namespace

// The interposition itself works: a plain allocation, a write and a lock are seen.
TEST_F(RealTime, InterpositionSeesTheCallsItCounts)
{
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    auto c = calls_during([&] {
        free(malloc(16));
        pthread_mutex_lock(&m);
        pthread_mutex_unlock(&m);
        std::fwrite("", 1, 0, stderr);
        usleep(0);
    });
    EXPECT_EQ(c[kAlloc], 2);
    EXPECT_EQ(c[kLock], 1);
    EXPECT_EQ(c[kIo], 1);
    EXPECT_EQ(c[kSleep], 1);
}

// The whole chain, every stage on, with every real-time-safe live call between frames.
TEST_F(RealTime, ChainProcessAndLiveAdjustCallsNeitherAllocateLockNorDoIo)
{
    AudioPostState *st = eqdrc_test::quiet_chain(rec.data(), kFrame);
    ASSERT_NE(st, nullptr);
    std::vector<int16_t> in(kFrame * kChannels), out(in.size());
    std::vector<float> readBack(EQDRC_RECORD_WORDS), eq(100);
    Planar eqIn(kChannels, kFrame), eqOut(kChannels, kFrame);
    AudioPostMeters meters;
    std::vector<float> retune = rec;
    for (int f = 0; f < kFrames; ++f) {
        fill_frame(in.data(), f);
        const float wobble = static_cast<float>(f % 7);
        EXPECT_REALTIME_SAFE("frame " + std::to_string(f), {
            AudioPost_Process(st, in.data(), out.data(), 0, kFrame);
            AudioPost_Maximizer_AdjustPara(st, f % 2, -1.0f - wobble * 0.1f, -0.3f, 50.0f + wobble);
            AudioPost_Agc_AdjustPara(st, f % 2, -20.0f, -50.0f, -70.0f, 6.0f + wobble * 0.1f, -3.0f, 5.0f, 200.0f,
                                     10.0f);
            AudioPost_MultiBandDRC_DRC_AdjustPara(st, f % 2, f % 4, 1, 1.0f, -24.0f + wobble, -50.0f, -70.0f, 6.0f,
                                                  -3.0f, 5.0f, 100.0f, 10.0f);
            AudioPost_MultiBandDRC_Crossover_AdjustPara(st, f % 2, 150.0f + wobble, 5000.0f, 150.0f, 1500.0f,
                                                        1500.0f, 5000.0f);
            AudioPost_EQ10_GetPara(st, eq.data());
            AudioPost_EQ10_SetPara(st, eq.data());
            AudioPost_EQ10_GetData(st, eqIn.ptrs(), eqOut.ptrs());
            AudioPost_GetMeters(st, &meters);
            AudioPost_GetPara(st, readBack.data());
        });
        if (testing::Test::HasFailure())
            break;
        if (f % 100 == 99) {  // a whole new record with the same stages enabled
            retune[30] = rec[30] + wobble;
            EXPECT_REALTIME_SAFE("SetPara at frame " + std::to_string(f),
                                 AudioPost_SetPara(st, retune.data(), kFrame));
        }
    }
    eqdrc_test::destroy_quietly(st);
}

// The exported meters and primitives the chain does not run: the level detector, the
// loudness meter's read-out, a crossover bank and a biquad section, after creation.
TEST_F(RealTime, MetersAndPrimitivesNeitherAllocateLockNorDoIo)
{
    LevelDetectorState *ld = LevelDetector_Init(kBits, kRate, kChannels, kFrame);
    Ebur128State *meter = ebur128_init(kBits, kRate, kChannels, 400, 100);
    CrossoverParam *xp = Filters_Crossover_paramInit();
    CrossoverState *xo = Filters_Crossover_filterInit(kRate, kChannels, xp);
    BiquadState *bq = biquad_init();
    float coeffs[5];
    filter_calculateCoeffs(coeffs, 0, kRate, 1000.0f, 0.7f, 3.0f);
    biquad_setCoefficients(bq, coeffs);
    ASSERT_TRUE(ld && meter && xp && xo && bq);

    std::vector<int16_t> pcm(kFrame * kChannels);
    Planar a(kChannels, kFrame);
    LevelDetectorResult levels;
    std::vector<float> xoIn(kFrame * kChannels, 1000.0f), xoOut(kChannels * 4);
    for (int f = 0; f < kFrames / 4; ++f) {
        fill_frame(pcm.data(), f);
        for (int c = 0; c < kChannels; ++c)
            for (int i = 0; i < kFrame; ++i)
                a.data[c][i] = pcm[static_cast<size_t>(i * kChannels + c)];
        EXPECT_REALTIME_SAFE("frame " + std::to_string(f), {
            LevelDetector_Process(ld, pcm.data(), kFrame);
            LevelDetector_GetRes(ld, &levels);
            ebur128_addframes(meter, a.ptrs(), kFrame);
            ebur128_gatedloudness(meter);
            for (int i = 0; i < kFrame; ++i)
                Filters_Crossover_filterProcess(xo, xoIn.data() + i * kChannels, xoOut.data());
            for (int i = 0; i < kFrame; ++i)
                biquad_processAudioSample(bq, a.data[0][static_cast<size_t>(i)]);
        });
        if (testing::Test::HasFailure())
            break;
    }
    biquad_destroy(bq);
    Filters_Crossover_filterDestroy(xo);
    free(xp);
    ebur128_destroy(meter);
    LevelDetector_Destroy(ld);
}

// The calls the header lists as not real-time safe are so for the reason it gives:
// if one of them became safe, or another kind of call crept in, the list is wrong.
TEST_F(RealTime, CallsListedAsNotRealTimeSafeDoWhatTheHeaderSays)
{
    std::vector<float> base = rec;
    base[13] = 0.0f;  // de-esser off, to be enabled live
    AudioPostState *st = eqdrc_test::quiet_chain(base.data(), kFrame);
    ASSERT_NE(st, nullptr);
    std::array<int, kKinds> c{};
    eqdrc_test::capture_stderr([&] { c = calls_during([&] { AudioPost_SetPara(st, rec.data(), kFrame); }); });
    EXPECT_GT(c[kAlloc], 0) << "SetPara enabling a stage creates it";
    eqdrc_test::destroy_quietly(st);

    // Each of these is refused or restarts something, and says so or reallocates.
    struct Case {
        const char *what;
        Kind kind;
        std::function<void(AudioPostState *)> call;
    };
    std::vector<float> newWindow = rec, badVersion = rec;
    newWindow[33] += 100.0f;  // auto gain meter window
    badVersion[4] = 3.0f;
    const Case cases[] = {
        {"SetPara changing the loudness window", kAlloc,
         [&](AudioPostState *s) { AudioPost_SetPara(s, newWindow.data(), kFrame); }},
        {"SetPara with a wrong tool version", kIo,
         [&](AudioPostState *s) { AudioPost_SetPara(s, badVersion.data(), kFrame); }},
        {"an AGC curve that is not monotonic", kIo,
         [](AudioPostState *s) { AudioPost_Agc_AdjustPara(s, 0, -50.0f, -20.0f, -70.0f, 6.0f, -3.0f, 5, 200, 10); }},
        {"a compressor band out of range", kIo,
         [](AudioPostState *s) {
             AudioPost_MultiBandDRC_DRC_AdjustPara(s, 0, 9, 1, 0, -24, -50, -70, 6, -3, 5, 100, 10);
         }},
        {"a compressor curve that is not monotonic", kIo,
         [](AudioPostState *s) {
             AudioPost_MultiBandDRC_DRC_AdjustPara(s, 0, 0, 1, 0, -50, -24, -70, 6, -3, 5, 100, 10);
         }},
    };
    for (const Case &k : cases) {
        st = eqdrc_test::quiet_chain(rec.data(), kFrame);
        eqdrc_test::capture_stderr([&] { c = calls_during([&] { k.call(st); }); });
        EXPECT_GT(c[k.kind], 0) << k.what << ": " << describe(c);
        eqdrc_test::destroy_quietly(st);
    }

    eqdrc_test::capture_stderr([&] {
        c = calls_during([&] { st = AudioPost_Init(rec.data(), kFrame); });
        EXPECT_GT(c[kAlloc], 0);
        EXPECT_GT(c[kIo], 0) << "creation prints the version banner";
        c = calls_during([&] { AudioPost_Destroy(st); });
        EXPECT_GT(c[kAlloc], 0);
    });
}
