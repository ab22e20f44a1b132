// Which build of the processing code runs on this machine (x86-64): the library holds
// the whole code three times, with scalar lanes, with SSE2 (the x86-64 baseline) and
// with AVX2 (never FMA), each giving the same bits. The widest one the CPU has is chosen
// once, when the library is loaded; EQDRC_SIMD=scalar|sse2|avx2 forces one, and a forced
// path the CPU lacks falls back to the widest it has; under valgrind the widest is SSE2.
// Header-only, so that the tools
// report the choice the library makes.
#ifndef EQDRC_CORE_SIMD_PATH_H
#define EQDRC_CORE_SIMD_PATH_H

#include <cstdlib>
#include <cstring>

namespace eqdrc_simd {

enum class Path { kScalar, kSse2, kAvx2 };

inline const char *path_name(Path p)
{
    return p == Path::kScalar ? "scalar" : p == Path::kSse2 ? "sse2" : "avx2";
}

// valgrind (3.19) reports AVX2 but cannot decode every AVX2 form the compiler emits; it
// always preloads its vgpreload_ core, which is how it is recognised here.
inline bool under_valgrind()
{
    const char *preload = std::getenv("LD_PRELOAD");
    return preload != nullptr && std::strstr(preload, "/vgpreload_") != nullptr;
}

inline Path widest_path()
{
#if defined(__x86_64__) && defined(__GNUC__)
    if (under_valgrind())
        return Path::kSse2;
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2"))
        return Path::kAvx2;
#endif
    return Path::kSse2;
}

inline Path chosen_path()
{
    Path widest = widest_path();
    const char *forced = std::getenv("EQDRC_SIMD");
    if (forced == nullptr)
        return widest;
    if (std::strcmp(forced, "scalar") == 0)
        return Path::kScalar;
    if (std::strcmp(forced, "sse2") == 0)
        return Path::kSse2;
    return widest;  // "avx2" where the CPU has it; anything else is the default
}

}  // namespace eqdrc_simd

#endif
