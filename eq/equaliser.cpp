// Ten-band equaliser.
#include "eq/equaliser.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/numeric.h"
#include "core/record.h"
#include "dsp/buffer_aliasing.h"
#include "eq/eq_log.h"
#include "filters/biquad.h"
#include "filters/designer.h"
#include "filters/paired_cascade.h"

namespace {

using eqdrc::count_of;
using eqdrc::kBiquadCoeffs;
using eqdrc::kBiquadState;
using eqdrc::kEqBands;
using eqdrc::kEqBandWords;
using eqdrc::kEqChannelWords;
using eqdrc::zeroed;

// One section over a whole buffer in place, its memories held in registers for the
// buffer.  (b1*x - a1*y) + z2 is the order the tunings were verified with.
void run_section(const float *c, float *z, float *buf, int n)
{
    const float b0 = c[0], b1 = c[1], b2 = c[2], a1 = c[3], a2 = c[4];
    float z1 = z[0], z2 = z[1];
    for (int i = 0; i < n; i++) {
        const float x = buf[i];
        const float y = z1 + b0 * x;
        z1 = b1 * x - a1 * y + z2;
        z2 = b2 * x - a2 * y;
        buf[i] = y;
    }
    z[0] = z1;
    z[1] = z2;
}

}  // namespace

EQ10State *EQ10State::create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen,
                             int link)
{
    auto *st = zeroed<EQ10State>(1);
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->bitDepth = bitDepth;
    st->link = link;
    st->frameLen = frameLen;

    const size_t ch = count_of(channels);
    const size_t bands = ch * kEqBands;
    const size_t samples = count_of(frameLen);
    st->enable = zeroed<int32_t>(bands);
    st->filterTypes = zeroed<int32_t>(bands);
    st->fc = zeroed<float>(bands);
    st->Q = zeroed<float>(bands);
    st->boost = zeroed<float>(bands);
    st->activeBands = zeroed<float>(ch);
    st->scratch = zeroed<float>(samples);
    st->inputCopy = zeroed<float *>(ch);
    st->outputCopy = zeroed<float *>(ch);
    for (size_t c = 0; c < ch; c++) {
        st->inputCopy[c] = zeroed<float>(samples);
        st->outputCopy[c] = zeroed<float>(samples);
    }

    if (section != nullptr) {
        st->read_section(section);
    } else {
        // enable, filterTypes and activeBands are already zero.
        for (size_t i = 0; i < bands; i++) {
            st->fc[i] = eqdrc::kEqDefaultFc;
            st->Q[i] = eqdrc::kEqDefaultQ;
            st->boost[i] = eqdrc::kEqDefaultBoost;
        }
    }

    st->coeffs = zeroed<float>(bands * kBiquadCoeffs);
    st->memory = zeroed<float>(bands * kBiquadState);
    st->design_slots();
    return st;
}

int EQ10State::slot_count() const { return static_cast<int>(count_of(channels)) * kEqBands; }

// The third and later unlinked channels read their blocks beyond the two-block section:
// the record's next words, by the section's layout.
void EQ10State::read_section(const float *section)
{
    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, kEqChannelWords);
        int32_t sum = 0;
        for (int b = 0; b < kEqBands; b++) {
            const float *group = block + kEqBandWords * b;
            const int i = kEqBands * c + b;
            enable[i] = eqdrc::to_int32(group[eqdrc::kEqEnable]);
            filterTypes[i] = eqdrc::to_int32(group[eqdrc::kEqType]);
            fc[i] = group[eqdrc::kEqFc];
            Q[i] = group[eqdrc::kEqQ];
            boost[i] = group[eqdrc::kEqBoost];
            sum = eqdrc::wrapping_add(sum, enable[i]);
        }
        // Enables are counted as written: -1 designs a band but runs one fewer, 2 runs
        // one more.  Tunings rely on this arithmetic.
        activeBands[c] = static_cast<float>(sum);
    }
}

void EQ10State::design_slots()
{
    const float fs = static_cast<float>(sampleRate);
    int slot = 0;
    for (int i = 0; i < slot_count(); i++) {
        if (enable[i] == 0)
            continue;
        eqdrc::design_biquad(coeffs + kBiquadCoeffs * slot, filterTypes[i], fs, fc[i], Q[i], boost[i]);
        slot++;
    }
}

void EQ10State::process(const float *const *in, float *const *out, int n)
{
    // The scratch and copy buffers hold the creation length; a longer frame is cut to
    // it and the rest of `out` is left untouched.
    if (n > frameLen)
        n = frameLen;
    const size_t bytes = count_of(n) * sizeof(float);
    const int paired = paired_sections(in, out, n);
    if (paired > 0) {
        for (int c = 0; c < channels; c++)
            std::memcpy(inputCopy[c], in[c], bytes);
        run_pair(paired, n);
        for (int c = 0; c < channels; c++)
            std::memcpy(out[c], outputCopy[c], bytes);
        return;
    }
    const int slots = slot_count();
    int cursor = 0;  // slots run across channels, so it carries over
    for (int c = 0; c < channels; c++) {
        if (n >= 1) {
            std::memcpy(scratch, in[c], bytes);
            std::memcpy(inputCopy[c], in[c], bytes);
        }
        const float active = activeBands[c];
        if (active > 0.0f) {
            for (int32_t k = 0; static_cast<float>(k) < active; k++) {
                // Enables above 1 can count past the last slot: stop there.
                if (cursor >= slots)
                    break;
                run_section(coeffs + kBiquadCoeffs * cursor, memory + kBiquadState * cursor, scratch, n);
                cursor++;
            }
        }
        if (n >= 1) {
            std::memcpy(out[c], scratch, bytes);
            std::memcpy(outputCopy[c], scratch, bytes);
        }
    }
}

// Sections per channel when two channels can run in lock-step, else 0: both run the same
// number of sections and the slot walk below stays inside the slots, so channel 0 takes
// slots 0..K-1 and channel 1 slots K..2K-1.  Channel 1's input must not be channel 0's
// output, which the walk would have written first.
int EQ10State::paired_sections(const float *const *in, const float *const *out, int n) const
{
    if (channels != 2 || n < 1 || activeBands[0] != activeBands[1])
        return 0;
    const float active = activeBands[0];
    if (!(active >= 1.0f && active <= static_cast<float>(kEqBands)))
        return 0;
    if (!eqdrc::pair_runs_as_sequence(in, out, n))
        return 0;
    return static_cast<int>(active);
}

// Both channels at once, from the input copies to the output copies.
void EQ10State::run_pair(int sections, int n)
{
    eqdrc::CascadeSections s;
    s.count = sections;
    for (int c = 0; c < 2; c++) {
        for (int k = 0; k < sections; k++) {
            const int slot = c * sections + k;
            s.coeffs[c][k] = coeffs + kBiquadCoeffs * slot;
            s.state[c][k] = memory + kBiquadState * slot;
        }
    }
    eqdrc::run_paired_cascade(s, inputCopy, outputCopy, n);
}

void EQ10State::set_para(const float *section)
{
    if (channels < 1)
        return;
    read_section(section);
    design_slots();
}

void EQ10State::get_para(float *section) const
{
    for (int c = 0; c < channels; c++) {
        float *block = section + kEqChannelWords * c;
        for (int b = 0; b < kEqBands; b++) {
            float *group = block + kEqBandWords * b;
            const int i = kEqBands * c + b;
            group[eqdrc::kEqEnable] = static_cast<float>(enable[i]);
            group[eqdrc::kEqType] = static_cast<float>(filterTypes[i]);
            group[eqdrc::kEqFc] = fc[i];
            group[eqdrc::kEqQ] = Q[i];
            group[eqdrc::kEqBoost] = boost[i];
        }
    }
}

void EQ10State::get_data(float *const *inFrames, float *const *outFrames) const
{
    const size_t bytes = count_of(frameLen) * sizeof(float);
    for (int c = 0; c < channels; c++) {
        if (bytes == 0)
            continue;
        std::memcpy(inFrames[c], inputCopy[c], bytes);
        std::memcpy(outFrames[c], outputCopy[c], bytes);
    }
}

int EQ10State::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kEqPrintTitle, "EQ Param\n");
    for (int c = 0; c < channels; c++) {
        out.heading(eqdrc::site::kEqPrintChannel, eqdrc::kEquals, "channel", c);
        for (int b = 0; b < kEqBands; b++) {
            const int i = kEqBands * c + b;
            // Only bands switched on with exactly 1 are listed, though other non-zero
            // values run too.
            if (enable[i] != 1)
                continue;
            const char *label = eqdrc::filter_type_label(filterTypes[i]);
            out.skip_to(eqdrc::site::kEqPrintType);
            if (label != nullptr)
                out.text("filterTypes", label);
            out.skip_to(eqdrc::site::kEqPrintFc);
            out.value("fc", fc[i]);
            out.value("Q", Q[i]);
            out.value("boost", boost[i]);
        }
    }
    return out.last();
}

void EQ10State::destroy()
{
    for (int c = 0; c < channels; c++) {
        std::free(inputCopy[c]);
        std::free(outputCopy[c]);
    }
    std::free(inputCopy);
    std::free(outputCopy);
    std::free(scratch);
    std::free(activeBands);
    std::free(memory);
    std::free(coeffs);
    std::free(boost);
    std::free(Q);
    std::free(fc);
    std::free(filterTypes);
    std::free(enable);
    std::free(this);
}
