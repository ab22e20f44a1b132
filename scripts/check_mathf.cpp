// Compares eqdrc::mathf with this machine's C library, argument by argument.
//
//   check_mathf [--stride N] [FUNC...]   compare with the C library (default: all 2^32
//                                        arguments of every function)
//   check_mathf --hash [--stride N] [FUNC...]
//                                        print a hash of our results only, to compare
//                                        builds for other CPUs (run under qemu-user)
//
// FUNC: expf logf log10f sinf cosf sincosf tanf sinhf pow10 (pow10 is powf(10, y) over
// every float y).  Every NaN equals every NaN.  With MPFR (-DEQDRC_HAVE_MPFR) each
// difference is also classified: which side is correctly rounded.  Exit status 1 when
// any result differs.
#include "core/mathf.h"
#include "core/numeric.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#ifdef EQDRC_HAVE_MPFR
#include <mpfr.h>
#endif

namespace mf = eqdrc::mathf;

namespace {

using eqdrc::bits_of;
using eqdrc::float_of;

// Result bits with every NaN folded into one.
uint32_t canonical(float f) { return f != f ? 0x7fc00000u : bits_of(f); }

// The C library's functions through volatile pointers, so that the compiler neither
// folds nor replaces the calls.
float (*volatile libExpf)(float) = ::expf;
float (*volatile libLogf)(float) = ::logf;
float (*volatile libLog10f)(float) = ::log10f;
float (*volatile libSinf)(float) = ::sinf;
float (*volatile libCosf)(float) = ::cosf;
float (*volatile libTanf)(float) = ::tanf;
float (*volatile libSinhf)(float) = ::sinhf;
float (*volatile libPowf)(float, float) = ::powf;
void (*volatile libSincosf)(float, float *, float *) = ::sincosf;

float our_pow10(float y) { return mf::powf(mf::kTen, y); }
float lib_pow10(float y) { return libPowf(10.0f, y); }
float lib_expf(float x) { return libExpf(x); }
float lib_logf(float x) { return libLogf(x); }
float lib_log10f(float x) { return libLog10f(x); }
float lib_sinf(float x) { return libSinf(x); }
float lib_cosf(float x) { return libCosf(x); }
float lib_tanf(float x) { return libTanf(x); }
float lib_sinhf(float x) { return libSinhf(x); }

enum class Mpfr { Exp, Log, Log10, Sin, Cos, Tan, Sinh, Pow10 };

struct Function {
    const char *name;
    float (*ours)(float);
    float (*lib)(float);
    Mpfr exact;
};

// sincosf is checked as its two results, each against the C library's sincosf.
const Function kFunctions[] = {
    {"expf", mf::expf, lib_expf, Mpfr::Exp},     {"logf", mf::logf, lib_logf, Mpfr::Log},
    {"log10f", mf::log10f, lib_log10f, Mpfr::Log10}, {"sinf", mf::sinf, lib_sinf, Mpfr::Sin},
    {"cosf", mf::cosf, lib_cosf, Mpfr::Cos},     {"sincosf", nullptr, nullptr, Mpfr::Sin},
    {"tanf", mf::tanf, lib_tanf, Mpfr::Tan},     {"sinhf", mf::sinhf, lib_sinhf, Mpfr::Sinh},
    {"pow10", our_pow10, lib_pow10, Mpfr::Pow10},
};

#ifdef EQDRC_HAVE_MPFR
float correctly_rounded(Mpfr f, float x)
{
    mpfr_set_emin(-148);  // float's range, so that subnormals round as floats do
    mpfr_set_emax(128);
    mpfr_t a, r;
    mpfr_init2(a, 24);
    mpfr_init2(r, 24);
    mpfr_set_flt(a, x, MPFR_RNDN);
    int inexact = 0;
    switch (f) {
    case Mpfr::Exp: inexact = mpfr_exp(r, a, MPFR_RNDN); break;
    case Mpfr::Log: inexact = mpfr_log(r, a, MPFR_RNDN); break;
    case Mpfr::Log10: inexact = mpfr_log10(r, a, MPFR_RNDN); break;
    case Mpfr::Sin: inexact = mpfr_sin(r, a, MPFR_RNDN); break;
    case Mpfr::Cos: inexact = mpfr_cos(r, a, MPFR_RNDN); break;
    case Mpfr::Tan: inexact = mpfr_tan(r, a, MPFR_RNDN); break;
    case Mpfr::Sinh: inexact = mpfr_sinh(r, a, MPFR_RNDN); break;
    case Mpfr::Pow10: {
        mpfr_t ten;
        mpfr_init2(ten, 24);
        mpfr_set_ui(ten, 10, MPFR_RNDN);
        inexact = mpfr_pow(r, ten, a, MPFR_RNDN);
        mpfr_clear(ten);
        break;
    }
    }
    mpfr_subnormalize(r, inexact, MPFR_RNDN);
    const float y = mpfr_get_flt(r, MPFR_RNDN);
    mpfr_clear(a);
    mpfr_clear(r);
    return y;
}
#endif

struct Options {
    uint64_t stride = 1;
    bool hash = false;
    int threads = 2;
};

struct Tally {
    std::atomic<uint64_t> differ{0};
    std::atomic<uint64_t> oursCorrect{0};  // differences where ours is correctly rounded
    std::atomic<uint64_t> hash{0};         // sum of per-argument hashes (order-free)
    std::mutex printLock;
    int printed = 0;
};

uint64_t mix(uint64_t v)  // splitmix64 finaliser
{
    v ^= v >> 30;
    v *= 0xbf58476d1ce4e5b9u;
    v ^= v >> 27;
    v *= 0x94d049bb133111ebu;
    v ^= v >> 31;
    return v;
}

void report_difference(Tally &tally, const char *name, uint32_t x, float ours, float lib, Mpfr exact)
{
    tally.differ++;
    bool oursRight = false;
#ifdef EQDRC_HAVE_MPFR
    const float cr = correctly_rounded(exact, float_of(x));
    oursRight = canonical(cr) == canonical(ours);
    if (oursRight)
        tally.oursCorrect++;
#else
    (void)exact;
#endif
    std::lock_guard<std::mutex> hold(tally.printLock);
    if (tally.printed++ < 10)
        std::printf("  %s(%a = 0x%08x): ours 0x%08x, C library 0x%08x%s\n", name, static_cast<double>(float_of(x)), x,
                    bits_of(ours), bits_of(lib), oursRight ? " (ours correctly rounded)" : "");
}

void run_slice(const Function &f, const Options &opt, uint64_t first, uint64_t step, Tally &tally)
{
    uint64_t hash = 0;
    const bool sincos = f.ours == nullptr;
    for (uint64_t v = first; v <= 0xffffffffu; v += step) {
        const uint32_t x = static_cast<uint32_t>(v);
        const float a = float_of(x);
        if (sincos) {
            float s, c;
            mf::sincosf(a, &s, &c);
            if (opt.hash) {
                hash += mix((uint64_t{x} << 32) ^ canonical(s)) + mix((uint64_t{canonical(c)} << 32) ^ x);
                continue;
            }
            float ls, lc;
            libSincosf(a, &ls, &lc);
            if (canonical(s) != canonical(ls))
                report_difference(tally, "sincosf.sin", x, s, ls, Mpfr::Sin);
            if (canonical(c) != canonical(lc))
                report_difference(tally, "sincosf.cos", x, c, lc, Mpfr::Cos);
            continue;
        }
        const float ours = f.ours(a);
        if (opt.hash) {
            hash += mix((uint64_t{x} << 32) ^ canonical(ours));
            continue;
        }
        const float lib = f.lib(a);
        if (canonical(ours) != canonical(lib))
            report_difference(tally, f.name, x, ours, lib, f.exact);
    }
    tally.hash += hash;
}

int run(const Function &f, const Options &opt)
{
    Tally tally;
    const auto t0 = std::chrono::steady_clock::now();
    std::vector<std::thread> workers;
    for (int t = 0; t < opt.threads; ++t)
        workers.emplace_back([&, t] {
            run_slice(f, opt, static_cast<uint64_t>(t) * opt.stride, opt.stride * static_cast<uint64_t>(opt.threads),
                      tally);
        });
    for (std::thread &w : workers)
        w.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const uint64_t count = (uint64_t{1} << 32) / opt.stride;
    if (opt.hash) {
        std::printf("%-8s %10llu arguments  hash %016llx\n", f.name, static_cast<unsigned long long>(count),
                    static_cast<unsigned long long>(tally.hash.load()));
        std::fflush(stdout);
        return 0;
    }
    std::printf("%-8s %10llu arguments  %llu differ", f.name, static_cast<unsigned long long>(count),
                static_cast<unsigned long long>(tally.differ.load()));
#ifdef EQDRC_HAVE_MPFR
    if (tally.differ != 0)
        std::printf(" (ours correctly rounded in %llu)", static_cast<unsigned long long>(tally.oursCorrect.load()));
#endif
    std::printf("  %.1f s\n", seconds);
    std::fflush(stdout);
    return tally.differ != 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char **argv)
{
    Options opt;
    std::vector<const Function *> chosen;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--hash") {
            opt.hash = true;
        } else if (arg == "--stride" && i + 1 < argc) {
            opt.stride = std::strtoull(argv[++i], nullptr, 0);
            if (opt.stride == 0)
                opt.stride = 1;
        } else if (arg == "--threads" && i + 1 < argc) {
            opt.threads = std::atoi(argv[++i]);
            if (opt.threads < 1)
                opt.threads = 1;
        } else {
            const Function *found = nullptr;
            for (const Function &f : kFunctions)
                if (arg == f.name)
                    found = &f;
            if (found == nullptr) {
                std::fprintf(stderr, "unknown argument %s\n", arg.c_str());
                return 2;
            }
            chosen.push_back(found);
        }
    }
    if (chosen.empty())
        for (const Function &f : kFunctions)
            chosen.push_back(&f);
    int status = 0;
    for (const Function *f : chosen)
        status |= run(*f, opt);
    return status;
}
