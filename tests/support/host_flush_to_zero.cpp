// Preloaded into a program (LD_PRELOAD), sets a host's flush-to-zero environment on its
// main thread before main runs: test.sh runs the conformance vectors under it.
#include "support/host_environment.h"

#if defined(EQDRC_HAS_FP_CONTROL)
namespace {

__attribute__((constructor)) void set_host_environment()
{
    eqdrc::write_fp_control(eqdrc::read_fp_control() | eqdrc_test::kHostEnvironments[0].bits);
}

}  // namespace
#endif
