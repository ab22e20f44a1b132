// The name of the lane code this copy of the library was compiled as ("avx2", "sse2",
// "scalar", ...), for the version banner: on x86-64 the library holds several copies and
// runs the one chosen at load, so the banner tells which one produced the output.
#ifndef EQDRC_DSP_LANE_CODE_H
#define EQDRC_DSP_LANE_CODE_H

#include "dsp/lanes8.h"

#if EQDRC_EIGHT_LANES
#define EQDRC_LANE_CODE "avx2"
#elif EQDRC_SCALAR_LANES
#define EQDRC_LANE_CODE "scalar"
#elif defined(__SSE4_1__)
#define EQDRC_LANE_CODE "sse4.1"
#elif defined(__SSE2__)
#define EQDRC_LANE_CODE "sse2"
#elif defined(__SSE__)
#define EQDRC_LANE_CODE "sse"
#elif defined(__aarch64__)
#define EQDRC_LANE_CODE "neon"
#else
#define EQDRC_LANE_CODE "generic vector"
#endif

#endif
