// eqdrc::mathf: special values, the inputs where the reference's rounding is not the
// correct one, the fused re-evaluation, symmetry, and agreement with the platform's
// libm where that is the reference (x86-64 glibc 2.36 on a CPU with FMA).
#include "core/mathf.h"
#include "core/numeric.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__GLIBC__)
#include <gnu/libc-version.h>
#endif

#include "support/test_support.h"

namespace mf = eqdrc::mathf;
using eqdrc_test::same_bits;

namespace {

uint32_t bits(float f) { return eqdrc::bits_of(f); }
float flt(uint32_t u) { return eqdrc::float_of(u); }

const float kInf = flt(0x7f800000u);
const float kNaN = flt(0x7fc00000u);
const float kMinSubnormal = flt(0x00000001u);
const float kMaxFloat = flt(0x7f7fffffu);

float pow10(float y) { return mf::powf(mf::kTen, y); }

struct Expected {
    uint32_t x, y;
};

void expect_values(float (*f)(float), const char *name, std::initializer_list<Expected> cases)
{
    for (const Expected &c : cases)
        EXPECT_EQ(bits(f(flt(c.x))), c.y) << name << "(0x" << std::hex << c.x << ")";
}

// ---------------------------------------------------------------------------------

TEST(MathfSpecialValues, Exponentials)
{
    for (float (*f)(float) : {mf::expf, pow10}) {
        EXPECT_EQ(bits(f(0.0f)), bits(1.0f));
        EXPECT_EQ(bits(f(-0.0f)), bits(1.0f));
        EXPECT_EQ(bits(f(kInf)), bits(kInf));
        EXPECT_EQ(bits(f(-kInf)), bits(0.0f));
        EXPECT_TRUE(std::isnan(f(kNaN)));
        EXPECT_EQ(bits(f(kMinSubnormal)), bits(1.0f));
    }
    expect_values(mf::expf, "expf",
                  {
                      {0x42b17217u, 0x7f7fff84u},  // last finite result
                      {0x42b17218u, 0x7f800000u},  // first overflow
                      {0xc2c80000u, 0x0000001bu},  // e^-100: subnormal
                      {0xc2ce8ecfu, 0x00000001u},  // the reported underflow that rounds up
                      {0xc2cff1b4u, 0x00000001u},
                      {0xc2cff1b5u, 0x00000000u},  // below ln 2^-150
                  });
    expect_values(pow10, "powf(10, y)",
                  {
                      {0x421a209au, 0x7f7fffb3u},  // last finite result
                      {0x421a209bu, 0x7f800000u},
                      {0xc2300000u, 0x00000007u},  // 1e-44: subnormal
                      {0xc2349d8fu, 0x00000001u},
                      {0xc2349d90u, 0x00000001u},
                  });
    // Whole powers of ten are exact up to 10^10 (and 1/10^n rounds correctly).
    float expected = 1.0f;
    for (int n = 0; n <= 10; ++n, expected *= 10.0f)
        EXPECT_EQ(bits(pow10(static_cast<float>(n))), bits(expected)) << "10^" << n;
    EXPECT_EQ(bits(pow10(-1.0f)), bits(0.1f));
    EXPECT_EQ(bits(pow10(-3.0f)), bits(0.001f));
}

TEST(MathfSpecialValues, Logarithms)
{
    for (float (*f)(float) : {mf::logf, mf::log10f}) {
        EXPECT_EQ(bits(f(0.0f)), bits(-kInf));
        EXPECT_EQ(bits(f(-0.0f)), bits(-kInf));
        EXPECT_EQ(bits(f(kInf)), bits(kInf));
        EXPECT_TRUE(std::isnan(f(-kInf)));
        EXPECT_TRUE(std::isnan(f(-1.0f)));
        EXPECT_TRUE(std::isnan(f(-kMinSubnormal)));
        EXPECT_TRUE(std::isnan(f(kNaN)));
        EXPECT_EQ(bits(f(1.0f)), bits(0.0f));
    }
    expect_values(mf::logf, "logf",
                  {
                      {0x00000001u, 0xc2ce8ed0u},  // smallest subnormal
                      {0x007fffffu, 0xc2aeac50u},  // largest subnormal
                      {0x7f7fffffu, 0x42b17218u},
                      {0x3f7fffffu, 0xb3800000u},  // either side of 1
                      {0x3f800001u, 0x33ffffffu},
                  });
    expect_values(mf::log10f, "log10f",
                  {
                      {0x00000001u, 0xc23369f4u},
                      {0x007fffffu, 0xc217b818u},
                      {0x7f7fffffu, 0x421a209bu},
                      {0x3f7fffffu, 0xb2de5bd9u},
                      {0x3f800001u, 0x335e5bd8u},
                      {0x47000000u, 0x40907e91u},  // 32768: the 16-bit full scale
                  });
    float ten = 1.0f;
    for (int n = 0; n <= 10; ++n, ten *= 10.0f)
        EXPECT_EQ(bits(mf::log10f(ten)), bits(static_cast<float>(n))) << "log10(10^" << n << ")";
    EXPECT_EQ(bits(mf::log10f(0.1f)), bits(-1.0f));
}

TEST(MathfSpecialValues, Trigonometric)
{
    for (float (*f)(float) : {mf::sinf, mf::tanf}) {
        EXPECT_EQ(bits(f(0.0f)), bits(0.0f));
        EXPECT_EQ(bits(f(-0.0f)), bits(-0.0f));
        EXPECT_EQ(bits(f(kMinSubnormal)), bits(kMinSubnormal));  // tiny: x itself
        EXPECT_EQ(bits(f(-kMinSubnormal)), bits(-kMinSubnormal));
    }
    for (float (*f)(float) : {mf::sinf, mf::cosf, mf::tanf}) {
        EXPECT_TRUE(std::isnan(f(kInf)));
        EXPECT_TRUE(std::isnan(f(-kInf)));
        EXPECT_TRUE(std::isnan(f(kNaN)));
    }
    EXPECT_EQ(bits(mf::cosf(-0.0f)), bits(1.0f));
    EXPECT_EQ(bits(mf::cosf(kMinSubnormal)), bits(1.0f));
    float s, c;
    mf::sincosf(kInf, &s, &c);
    EXPECT_TRUE(std::isnan(s) && std::isnan(c));
    mf::sincosf(-0.0f, &s, &c);
    EXPECT_EQ(bits(s), bits(-0.0f));
    EXPECT_EQ(bits(c), bits(1.0f));

    // Each branch: polynomial only, fast reduction (pi, pi/2, just below 120), the
    // integer reduction (120 and up, to the largest float).
    struct Trig {
        uint32_t x, sin, cos, tan;
    };
    const Trig kTrig[] = {
        {0x3f800000u, 0x3f576aa4u, 0x3f0a5140u, 0x3fc75923u},  // 1
        {0x3f490fdau, 0x3f3504f3u, 0x3f3504f4u, 0x3f7fffffu},  // below pi/4
        {0x3f2ca140u, 0x3f1fd743u, 0x3f47f79du, 0x3f4ca13cu},  // tanf's pi/4 - x branch
        {0x40490fdbu, 0xb3bbbd2eu, 0xbf800000u, 0x33bbbd2eu},  // float nearest pi
        {0x3fc90fdbu, 0x3f800000u, 0xb33bbd2eu, 0xcbae8a4bu},  // nearest pi/2: the pole
        {0x42effffeu, 0x3f14a21fu, 0x3f506ebfu, 0x3f368db9u},
        {0x42f00000u, 0x3f14a2efu, 0x3f506e2au, 0x3f368f3bu},  // 120
        {0x4b7ffffeu, 0xbe7afbbcu, 0xbf7830feu, 0x3e81709du},
        {0x64078678u, 0xbf3becc4u, 0x3f2dd6f7u, 0xbf8a5efeu},  // 1e22
        {0x7f7fffffu, 0xbf0599b3u, 0x3f5a5f96u, 0xbf1c9ecau},
    };
    for (const Trig &t : kTrig) {
        const float x = flt(t.x);
        EXPECT_EQ(bits(mf::sinf(x)), t.sin) << "sinf(0x" << std::hex << t.x << ")";
        EXPECT_EQ(bits(mf::cosf(x)), t.cos) << "cosf(0x" << std::hex << t.x << ")";
        EXPECT_EQ(bits(mf::tanf(x)), t.tan) << "tanf(0x" << std::hex << t.x << ")";
    }
}

TEST(MathfSpecialValues, HyperbolicSine)
{
    EXPECT_EQ(bits(mf::sinhf(0.0f)), bits(0.0f));
    EXPECT_EQ(bits(mf::sinhf(-0.0f)), bits(-0.0f));
    EXPECT_EQ(bits(mf::sinhf(kInf)), bits(kInf));
    EXPECT_EQ(bits(mf::sinhf(-kInf)), bits(-kInf));
    EXPECT_TRUE(std::isnan(mf::sinhf(kNaN)));
    EXPECT_EQ(bits(mf::sinhf(kMinSubnormal)), bits(kMinSubnormal));
    EXPECT_EQ(bits(mf::sinhf(kMaxFloat)), bits(kInf));
    expect_values(mf::sinhf, "sinhf",
                  {
                      {0x317fffffu, 0x317fffffu},  // below 2^-28: x itself
                      {0x31800000u, 0x31800000u},
                      {0x3f800000u, 0x3f966cfeu},  // 1: expm1 branches
                      {0x41afffffu, 0x4ed5ad53u},  // either side of 22
                      {0x41b00000u, 0x4ed5ad6eu},
                      {0x42b1717fu, 0x7effb390u},  // either side of ln FLT_MAX
                      {0x42b17180u, 0x7effb410u},
                      {0x42b2d4fcu, 0x7f7fffecu},  // last finite result
                      {0x42b2d4fdu, 0x7f800000u},
                  });
}

// Where the reference's result is not the correctly rounded one, ours is the
// reference's (the correctly rounded value is one ulp away).
TEST(MathfReference, FollowsTheReferenceWhereItIsNotCorrectlyRounded)
{
    struct Deviation {
        const char *name;
        float (*f)(float);
        uint32_t x, reference, correctlyRounded;
    };
    const Deviation kDeviations[] = {
        {"expf", mf::expf, 0x3f19dbcau, 0x3fe97786u, 0x3fe97785u},
        {"expf", mf::expf, 0x3f8f8d1cu, 0x404471a4u, 0x404471a3u},
        {"logf", mf::logf, 0x4c5d65a5u, 0x418f034au, 0x418f034bu},
        {"sinf", mf::sinf, 0x3f007bbcu, 0x3ef65053u, 0x3ef65054u},  // no reduction
        {"sinf", mf::sinf, 0x410b99a0u, 0x3f24e004u, 0x3f24e003u},  // reduced
        {"cosf", mf::cosf, 0x3f4f824eu, 0x3f306756u, 0x3f306755u},
        {"cosf", mf::cosf, 0x3f4fdf1bu, 0x3f30240au, 0x3f302409u},
        {"tanf", mf::tanf, 0x3fc90fdbu, 0xcbae8a4bu, 0xcbae8a4au},
        {"sinhf", mf::sinhf, 0x3c23d70au, 0x3c23d7bcu, 0x3c23d7bdu},
        {"powf(10, y)", pow10, 0x3f61647au, 0x40f2fd95u, 0x40f2fd94u},
        {"powf(10, y)", pow10, 0x3fd27e52u, 0x42306ab5u, 0x42306ab4u},
    };
    for (const Deviation &d : kDeviations) {
        EXPECT_EQ(bits(d.f(flt(d.x))), d.reference) << d.name << "(0x" << std::hex << d.x << ")";
        EXPECT_NE(d.reference, d.correctlyRounded);
    }
}

// Near a float rounding midpoint the separately rounded multiply-adds land on the
// other side; the fused re-evaluation must then decide, and give the reference's bits.
TEST(MathfReference, FusedEvaluationDecidesNextToAMidpoint)
{
    struct Hard {
        uint32_t x, reference;
    };
    for (const Hard &h : {Hard{0x4202422fu, 0x56fc9f1cu}, Hard{0xc27c65d9u, 0x11fa2993u}}) {
        EXPECT_EQ(bits(mf::expf(flt(h.x))), h.reference);
        // sinhf(x) = e^x / 2 here: it goes through the same expf.
        if (flt(h.x) > 22.0f)
            EXPECT_EQ(bits(mf::sinhf(flt(h.x))), bits(0.5f * flt(h.reference)));
    }
}

// A spread of arguments over every binade: strided through all 2^32 patterns.
template <class Body>
void for_spread_of_floats(Body body)
{
    for (uint64_t v = 0; v <= 0xffffffffu; v += 65521)
        body(flt(static_cast<uint32_t>(v)));
}

TEST(MathfSymmetry, OddAndEvenFunctions)
{
    for_spread_of_floats([](float x) {
        ASSERT_TRUE(same_bits(mf::sinf(-x), -mf::sinf(x))) << x;
        ASSERT_TRUE(same_bits(mf::cosf(-x), mf::cosf(x))) << x;
        ASSERT_TRUE(same_bits(mf::tanf(-x), -mf::tanf(x))) << x;
        ASSERT_TRUE(same_bits(mf::sinhf(-x), -mf::sinhf(x))) << x;
    });
}

TEST(MathfSymmetry, SincosIsSinAndCos)
{
    for_spread_of_floats([](float x) {
        float s, c;
        mf::sincosf(x, &s, &c);
        ASSERT_TRUE(same_bits(s, mf::sinf(x))) << x;
        ASSERT_TRUE(same_bits(c, mf::cosf(x))) << x;
    });
}

// The platform's functions give the library's bits only on x86-64 glibc 2.36 with FMA
// (its FMA variants are the reference); elsewhere this comparison is skipped.
bool platform_is_reference()
{
#if defined(__x86_64__) && defined(__GLIBC__)
    return std::strcmp(gnu_get_libc_version(), "2.36") == 0 && __builtin_cpu_supports("fma") &&
           __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

float (*volatile platformExpf)(float) = ::expf;
float (*volatile platformLogf)(float) = ::logf;
float (*volatile platformLog10f)(float) = ::log10f;
float (*volatile platformSinf)(float) = ::sinf;
float (*volatile platformCosf)(float) = ::cosf;
float (*volatile platformTanf)(float) = ::tanf;
float (*volatile platformSinhf)(float) = ::sinhf;
float (*volatile platformPowf)(float, float) = ::powf;

TEST(MathfPlatform, AgreesWithX86Glibc)
{
    if (!platform_is_reference())
        GTEST_SKIP() << "the platform's libm is not the reference (x86-64 glibc 2.36 with FMA)";
    int differ = 0;
    for_spread_of_floats([&](float x) {
        differ += !same_bits(mf::expf(x), platformExpf(x));
        differ += !same_bits(mf::logf(x), platformLogf(x));
        differ += !same_bits(mf::log10f(x), platformLog10f(x));
        differ += !same_bits(mf::sinf(x), platformSinf(x));
        differ += !same_bits(mf::cosf(x), platformCosf(x));
        differ += !same_bits(mf::tanf(x), platformTanf(x));
        differ += !same_bits(mf::sinhf(x), platformSinhf(x));
        differ += !same_bits(pow10(x), platformPowf(10.0f, x));
    });
    EXPECT_EQ(differ, 0);
}

}  // namespace
