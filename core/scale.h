// Full-scale constants by bit depth, shared by the chain and every stage.
#ifndef EQDRC_CORE_SCALE_H
#define EQDRC_CORE_SCALE_H

namespace eqdrc {

// The chain clamps its output to [-1 - FS, FS] with these: one below the stages' 16- and
// 24-bit full scales, so a clamped sample still fits the signed output word.
constexpr float kChainFullScale16 = 32767.0f;
constexpr float kChainFullScale24 = 8388607.0f;
constexpr float kChainFullScale32 = 2147483648.0f;

// The stages measure against these.
constexpr float kFullScale16 = 32768.0f;
constexpr float kFullScale24 = 8388608.0f;
constexpr float kFullScale32 = 2147483648.0f;

// log10 of the stage full scales, as the float32 values the tuning was made with.
constexpr float kLog10FullScale16 = 4.51545f;
constexpr float kLog10FullScale24 = 6.92369f;
constexpr float kLog10FullScale32 = 9.33193f;

struct BitDepthScale {
    float fullScale;       // stage full scale
    float log10FullScale;  // log10 of it
    float chainFullScale;  // the chain's clamp
};

// Fills `out` for 16, 24 or 32 bits; returns false for any other depth.
inline bool scale_for_bits(int bits, BitDepthScale *out)
{
    switch (bits) {
    case 16: *out = {kFullScale16, kLog10FullScale16, kChainFullScale16}; return true;
    case 24: *out = {kFullScale24, kLog10FullScale24, kChainFullScale24}; return true;
    case 32: *out = {kFullScale32, kLog10FullScale32, kChainFullScale32}; return true;
    default: return false;
    }
}

}  // namespace eqdrc

#endif
