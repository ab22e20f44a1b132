// The library's own floating-point environment, set for the length of every exported
// call that computes or prints: round to nearest, denormals kept as they are (no
// flush-to-zero, no denormals-as-zero), no traps. Audio hosts often set FTZ|DAZ or
// another rounding mode on their threads, and any of them changes the chain's bits (a
// decaying tail flushed early, a sum rounded the other way, a printed value off by a
// digit). The caller's environment, status flags included, is back when the call returns.
#ifndef EQDRC_CORE_FP_ENVIRONMENT_H
#define EQDRC_CORE_FP_ENVIRONMENT_H

#include <cstdint>

#if defined(__SSE2__) || defined(__x86_64__)
#include <xmmintrin.h>
#define EQDRC_FP_CONTROL_MXCSR 1
#define EQDRC_HAS_FP_CONTROL 1
#elif defined(__aarch64__)
#define EQDRC_FP_CONTROL_TYPE uint64_t
#define EQDRC_FP_CONTROL_READ "mrs %0, fpcr"
#define EQDRC_FP_CONTROL_WRITE "msr fpcr, %0"
#define EQDRC_HAS_FP_CONTROL 1
#elif defined(__arm__) && defined(__ARM_FP)
#define EQDRC_FP_CONTROL_TYPE uint32_t
#define EQDRC_FP_CONTROL_READ "vmrs %0, fpscr"
#define EQDRC_FP_CONTROL_WRITE "vmsr fpscr, %0"
#define EQDRC_HAS_FP_CONTROL 1
#endif
// WebAssembly has one environment (round to nearest, denormals kept) and no control.

namespace eqdrc {

#if defined(EQDRC_FP_CONTROL_MXCSR)
using FpControl = unsigned int;
// Every exception masked, round to nearest, FTZ and DAZ clear, no status flag.
constexpr FpControl kLibraryFpControl = 0x1F80u;
inline FpControl read_fp_control() { return _mm_getcsr(); }
inline void write_fp_control(FpControl v) { _mm_setcsr(v); }
#elif defined(EQDRC_HAS_FP_CONTROL)  // FPCR (aarch64), FPSCR (32-bit ARM): the same bits here
using FpControl = EQDRC_FP_CONTROL_TYPE;
// Round to nearest; FZ, DN (and on aarch64 FZ16 and the alternate-handling bits) clear;
// no trap enabled.
constexpr FpControl kLibraryFpControl = 0;
inline FpControl read_fp_control()
{
    FpControl v;
    asm volatile(EQDRC_FP_CONTROL_READ : "=r"(v));
    return v;
}
inline void write_fp_control(FpControl v) { asm volatile(EQDRC_FP_CONTROL_WRITE : : "r"(v) : "memory"); }
#endif

#if defined(EQDRC_HAS_FP_CONTROL)
// Held for the length of an entry point: sets the library's environment and puts the
// caller's back on every return path. The register accesses are volatile, so the
// compiler keeps them in place around the calls that compute.
class FpEnvironment {
public:
    FpEnvironment() : caller_(read_fp_control()) { write_fp_control(kLibraryFpControl); }
    ~FpEnvironment() { write_fp_control(caller_); }
    FpEnvironment(const FpEnvironment &) = delete;
    FpEnvironment &operator=(const FpEnvironment &) = delete;

private:
    FpControl caller_;
};
#else
class FpEnvironment {
public:
    FpEnvironment() {}
    FpEnvironment(const FpEnvironment &) = delete;
    FpEnvironment &operator=(const FpEnvironment &) = delete;
};
#endif

}  // namespace eqdrc

#endif
