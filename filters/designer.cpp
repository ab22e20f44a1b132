// Cookbook-style section design.  All arithmetic is float32; the constants and the
// odd Butterworth-with-gain formulas are what the tunings were made with.
#include "filters/designer.h"

#include <cmath>

#include "core/log.h"
#include "core/mathf.h"
#include "filters/filters_log.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {
namespace {

constexpr float kTwoPi = 6.2831855f;             // 2*pi rounded to float
constexpr float kHalfLn2 = 0.3465736f;            // ln(2) / 2, octave bandwidth law
constexpr float kButterworthRoot2 = 1.4142f;      // the literal, not sqrt(2)
constexpr float kMaxGainDb = EQDRC_DESIGN_GAIN_MAX_DB;
constexpr float kMinQ = EQDRC_DESIGN_Q_MIN;
constexpr float kMaxQ = EQDRC_DESIGN_Q_MAX;
constexpr float kMaxSlope = EQDRC_DESIGN_SLOPE_MAX;
constexpr float kMaxOctaves = EQDRC_DESIGN_OCTAVES_MAX;

float clamp_q(float q, float upper)
{
    if (q > upper)
        return upper;
    if (q < kMinQ)
        return kMinQ;
    return q;
}

void design_peaking(float *c, float w0, float q, float gainDb)
{
    float A = mathf::powf(mathf::kTen, gainDb / 40.0f);
    float alpha = mathf::sinf(w0) / (2.0f * q);
    float cs = mathf::cosf(w0);
    float D = 1.0f + alpha / A;
    c[0] = (1.0f + alpha * A) / D;
    c[1] = (-2.0f * cs) / D;
    c[2] = (1.0f - alpha * A) / D;
    c[3] = (-2.0f * cs) / D;
    c[4] = (1.0f - alpha / A) / D;
}

void design_shelf(float *c, bool high, float w0, float S, float gainDb)
{
    float A = mathf::powf(mathf::kTen, gainDb / 40.0f);
    float R = 2.0f + (1.0f / A + A) * (1.0f / S - 1.0f);
    float s = R > 0.0f ? sqrtf(R) : 0.0f;
    float alpha = (mathf::sinf(w0) * 0.5f) * s;
    float cs = mathf::cosf(w0);
    float k = 2.0f * sqrtf(A) * alpha;
    float a0, b0, b1, b2, a1, a2;
    if (!high) {
        a0 = (A + 1.0f) + (A - 1.0f) * cs + k;
        b0 = A * ((A + 1.0f) - (A - 1.0f) * cs + k);
        b1 = 2.0f * A * ((A - 1.0f) - (A + 1.0f) * cs);
        b2 = A * ((A + 1.0f) - (A - 1.0f) * cs - k);
        a1 = -2.0f * ((A - 1.0f) + (A + 1.0f) * cs);
        a2 = (A + 1.0f) + (A - 1.0f) * cs - k;
    } else {
        a0 = (A + 1.0f) - (A - 1.0f) * cs + k;
        b0 = A * ((A + 1.0f) + (A - 1.0f) * cs + k);
        b1 = -2.0f * A * ((A - 1.0f) + (A + 1.0f) * cs);
        b2 = A * ((A + 1.0f) + (A - 1.0f) * cs - k);
        a1 = 2.0f * ((A - 1.0f) - (A + 1.0f) * cs);
        a2 = (A + 1.0f) - (A - 1.0f) * cs - k;
    }
    c[0] = b0 / a0;
    c[1] = b1 / a0;
    c[2] = b2 / a0;
    c[3] = a1 / a0;
    c[4] = a2 / a0;
}

void design_general(float *c, bool high, float w0, float q, float gainDb)
{
    float A = mathf::powf(mathf::kTen, gainDb / 20.0f);
    float alpha = mathf::sinf(w0) / (2.0f * q);
    float cs = mathf::cosf(w0);
    float D = 1.0f + alpha;
    if (!high) {
        c[0] = ((1.0f - cs) * 0.5f * A) / D;
        c[1] = ((1.0f - cs) * A) / D;
    } else {
        c[0] = ((1.0f + cs) * 0.5f * A) / D;
        c[1] = -((1.0f + cs) * A) / D;
    }
    c[2] = c[0];
    c[3] = (-2.0f * cs) / D;
    c[4] = (1.0f - alpha) / D;
}

void design_band_pass(float *c, float w0, float octaves, float gainDb)
{
    float A = mathf::powf(mathf::kTen, gainDb / 20.0f);
    float sn = mathf::sinf(w0);
    float alpha = sn * mathf::sinhf((octaves * kHalfLn2 * w0) / sn);
    float cs = mathf::cosf(w0);
    float D = 1.0f + alpha;
    c[0] = (A * alpha) / D;
    c[1] = 0.0f / D;
    c[2] = -(alpha * A) / D;
    c[3] = (-2.0f * cs) / D;
    c[4] = (1.0f - alpha) / D;
}

// The gain enters the numerator twice and the denominator once: a true Butterworth
// section only at 0 dB, which is all the callers use.
void design_butterworth(float *c, bool high, float w0, float gainDb)
{
    float K = high ? mathf::tanf(w0 * 0.5f) : 1.0f / mathf::tanf(w0 * 0.5f);
    float A = mathf::powf(mathf::kTen, gainDb / 20.0f);
    float r = K * kButterworthRoot2;
    float K2 = K * K;
    float D = r + 1.0f + K2;
    float g = (1.0f / D) * A;
    c[0] = g;
    c[1] = high ? -2.0f * g * A : 2.0f * g * A;
    c[2] = g * A;
    c[3] = high ? (2.0f * g) * (K2 - 1.0f) : (1.0f - K2) * (2.0f * g);
    c[4] = (1.0f - r + K2) * g;
}

}  // namespace

const char *filter_type_label(int type)
{
    static const char *const kLabels[] = {"Parametric", "LowShelf", "HighShelf", "GeneralLP", "GeneralHP"};
    return type >= 0 && type < 5 ? kLabels[type] : nullptr;
}

void design_biquad(float c[5], int type, float fs, float fc, float q, float gainDb)
{
    if (gainDb > kMaxGainDb)
        gainDb = kMaxGainDb;
    else if (gainDb < -kMaxGainDb)
        gainDb = -kMaxGainDb;
    float w0 = (fc * kTwoPi) / fs;

    switch (type) {
    case kParametric: design_peaking(c, w0, clamp_q(q, kMaxQ), gainDb); break;
    case kLowShelf: design_shelf(c, false, w0, clamp_q(q, kMaxSlope), gainDb); break;
    case kHighShelf: design_shelf(c, true, w0, clamp_q(q, kMaxSlope), gainDb); break;
    case kGeneralLP: design_general(c, false, w0, clamp_q(q, kMaxQ), gainDb); break;
    case kGeneralHP: design_general(c, true, w0, clamp_q(q, kMaxQ), gainDb); break;
    case kBandPass: design_band_pass(c, w0, clamp_q(q, kMaxOctaves), gainDb); break;
    case kButterworthLP: design_butterworth(c, false, w0, gainDb); break;
    case kButterworthHP: design_butterworth(c, true, w0, gainDb); break;
    default:
        log_line(site::kDesignerUnknownType, "ErrorXXX: You should choose a filter type!\n\n");
        fatal_exit();
    }
}

void biquad_response_db(const float c[5], double fs, const double *freqs, double *db, int count)
{
    constexpr double kTwoPiDouble = 6.283185307179586;
    for (int i = 0; i < count; i++) {
        // b0 + b1 z^-1 + b2 z^-2 over 1 + a1 z^-1 + a2 z^-2 at z = e^jw.
        const double w = kTwoPiDouble * freqs[i] / fs, c1 = std::cos(w), c2 = std::cos(2.0 * w);
        const double s1 = std::sin(w), s2 = std::sin(2.0 * w);
        const double nr = c[0] + c[1] * c1 + c[2] * c2, ni = -(c[1] * s1 + c[2] * s2);
        const double dr = 1.0 + c[3] * c1 + c[4] * c2, di = -(c[3] * s1 + c[4] * s2);
        db[i] = 10.0 * std::log10((nr * nr + ni * ni) / (dr * dr + di * di));
    }
}

}  // namespace eqdrc
