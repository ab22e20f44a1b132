// The exported entry points of an x86-64 library that holds the processing code three
// times (cmake/simd_dispatch.cmake): each one is a jump through a pointer to the same
// function of the copy chosen at load. The jump leaves every argument register and the
// stack as the caller set them, so one stub serves every signature.
#include "core/simd_path.h"

#define EQDRC_EXPORT(name)                \
    extern "C" void eqdrc_scalar_##name(); \
    extern "C" void eqdrc_sse2_##name();   \
    extern "C" void eqdrc_avx2_##name();   \
    extern "C" {                           \
    __attribute__((visibility("hidden"))) void (*eqdrc_target_##name)() = &eqdrc_sse2_##name; \
    }
#include "eqdrc_exports.inc"
#undef EQDRC_EXPORT

// The stubs themselves: `endbr64` keeps them valid targets where indirect branch
// tracking is on (a no-op elsewhere).
#define EQDRC_EXPORT(name)                                  \
    asm(".text\n"                                           \
        ".globl " #name "\n"                                \
        ".type " #name ", @function\n"                      \
        ".p2align 4\n" #name ":\n"                          \
        "\tendbr64\n"                                       \
        "\tjmp *eqdrc_target_" #name "(%rip)\n"             \
        ".size " #name ", . - " #name "\n");
#include "eqdrc_exports.inc"
#undef EQDRC_EXPORT

namespace {

// Runs when the library is loaded, before any caller can reach a stub.
__attribute__((constructor)) void choose_path()
{
    const eqdrc_simd::Path path = eqdrc_simd::chosen_path();
#define EQDRC_EXPORT(name)                                                 \
    eqdrc_target_##name = path == eqdrc_simd::Path::kScalar ? &eqdrc_scalar_##name \
                          : path == eqdrc_simd::Path::kAvx2 ? &eqdrc_avx2_##name   \
                                                            : &eqdrc_sse2_##name;
#include "eqdrc_exports.inc"
#undef EQDRC_EXPORT
}

}  // namespace
