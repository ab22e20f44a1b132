// Floating-point environments audio hosts leave on their threads, as bits set on top of
// the default one: flush-to-zero with denormals-as-zero first, then the rounding modes.
#ifndef EQDRC_TESTS_HOST_ENVIRONMENT_H
#define EQDRC_TESTS_HOST_ENVIRONMENT_H

#include "core/fp_environment.h"

#if defined(EQDRC_HAS_FP_CONTROL)
namespace eqdrc_test {

struct HostEnvironment {
    const char *name;
    eqdrc::FpControl bits;
};

#if defined(EQDRC_FP_CONTROL_MXCSR)
constexpr HostEnvironment kHostEnvironments[] = {
    {"FTZ|DAZ", 0x8040u}, {"toward -inf", 0x2000u}, {"toward +inf", 0x4000u}, {"toward zero", 0x6000u}};
#else  // FPCR and FPSCR: FZ at bit 24, the rounding mode at bits 22-23
constexpr HostEnvironment kHostEnvironments[] = {
    {"FZ", 1u << 24}, {"toward +inf", 1u << 22}, {"toward -inf", 2u << 22}, {"toward zero", 3u << 22}};
#endif

}  // namespace eqdrc_test
#endif

#endif
