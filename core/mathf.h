// The library's own single-precision maths functions: the same bits on every CPU and C
// library, and the same bits as x86-64 glibc 2.36 for every float argument: x86-64
// glibc 2.36 is the platform whose maths defines the library's results.
//
// Each follows the reference C library's algorithm, transcribed with exactly specified
// operations only (IEEE add, subtract, multiply, divide, std::fma, integer bit work and
// the reference's tables), so no result depends on the platform's libm.  Where the
// reference's x86-64 build fuses a multiply and an add, the evaluation here multiplies
// and adds separately and redoes the few results that land within a hair of a float
// rounding midpoint with std::fma (a library call on x86-64 without FMA code
// generation); scripts/check-mathf.sh proves the agreement over all 2^32 arguments.
//
// Special values follow the reference: NaN in, NaN out (sign and payload unspecified).
#ifndef EQDRC_CORE_MATHF_H
#define EQDRC_CORE_MATHF_H

namespace eqdrc::mathf {

/// e^x.  +inf above 0x1.62e42ep6 (88.72), +0 below -0x1.9fe368p6 (-103.97).
float expf(float x);

/// Natural logarithm.  -inf for ±0, NaN below zero, +inf for +inf.
float logf(float x);

/// Base-10 logarithm.  -inf for ±0, NaN below zero, +inf for +inf.
float log10f(float x);

/// Sine and cosine of x in radians, for every finite x; NaN for ±inf.
float sinf(float x);
float cosf(float x);

/// sinf(x) and cosf(x) from one argument reduction (the same bits as the two calls).
void sincosf(float x, float *sinOut, float *cosOut);

/// Tangent of x in radians; NaN for ±inf.
float tanf(float x);

/// Hyperbolic sine; ±inf beyond about ±89.42.
float sinhf(float x);

/// The base of powf: the library only ever raises ten to a power (dB to linear).
struct Ten {};
constexpr Ten kTen{};

/// powf(10, y): 10^y as the reference's powf computes it.  1 for y = ±0, +inf above
/// about 38.53, +0 below about -45.15, NaN for NaN.
float powf(Ten base, float y);

}  // namespace eqdrc::mathf

#endif
