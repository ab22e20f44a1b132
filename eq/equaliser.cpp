// The equaliser's parameter side: the bands from the record's groups, their sections'
// design, and the bands and last frames given back (read-back, print-out).
#include "eq/equaliser.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/numeric.h"
#include "core/record.h"
#include "eq/eq_log.h"
#include "filters/designer.h"

namespace {

using eqdrc::count_of;
using eqdrc::kEqBands;
using eqdrc::kEqBandWords;
using eqdrc::kEqChannelWords;
using eqdrc::zeroed;

}  // namespace

eqdrc::EqBandSettings eqdrc::EqBandSettings::from_group(const float *group)
{
    return {to_int32(group[kEqEnable]), to_int32(group[kEqType]), group[kEqFc], group[kEqQ], group[kEqBoost]};
}

void eqdrc::EqBandSettings::to_group(float *group) const
{
    group[kEqEnable] = static_cast<float>(enable);
    group[kEqType] = static_cast<float>(filterType);
    group[kEqFc] = fc;
    group[kEqQ] = Q;
    group[kEqBoost] = boost;
}

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
    st->bands = zeroed<eqdrc::EqBandSettings>(bands);
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
        // Enables, types and activeBands are already zero.
        for (size_t i = 0; i < bands; i++) {
            st->bands[i].fc = eqdrc::kEqDefaultFc;
            st->bands[i].Q = eqdrc::kEqDefaultQ;
            st->bands[i].boost = eqdrc::kEqDefaultBoost;
        }
    }

    st->sections = zeroed<eqdrc::EqSection>(bands);
    st->design_sections();
    return st;
}

int EQ10State::band_count() const { return static_cast<int>(count_of(channels)) * kEqBands; }

// The third and later unlinked channels read their blocks beyond the two-block section:
// the record's next words, by the section's layout.
void EQ10State::read_section(const float *section)
{
    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, kEqChannelWords);
        int32_t sum = 0;
        for (int b = 0; b < kEqBands; b++) {
            eqdrc::EqBandSettings &band = bands[kEqBands * c + b];
            band = eqdrc::EqBandSettings::from_group(block + kEqBandWords * b);
            sum = eqdrc::wrapping_add(sum, band.enable);
        }
        // Enables are counted as written: -1 designs a band but runs one fewer, 2 runs
        // one more.  Tunings rely on this arithmetic.
        activeBands[c] = static_cast<float>(sum);
    }
}

void EQ10State::design_sections()
{
    const float fs = static_cast<float>(sampleRate);
    int next = 0;
    for (int i = 0; i < band_count(); i++) {
        const eqdrc::EqBandSettings &band = bands[i];
        if (band.enable == 0)
            continue;
        eqdrc::design_biquad(sections[next].coeffs, band.filterType, fs, band.fc, band.Q, band.boost);
        next++;
    }
}

void EQ10State::set_para(const float *section)
{
    if (channels < 1)
        return;
    read_section(section);
    design_sections();
}

void EQ10State::get_para(float *section) const
{
    for (int c = 0; c < channels; c++) {
        float *block = section + kEqChannelWords * c;
        for (int b = 0; b < kEqBands; b++)
            bands[kEqBands * c + b].to_group(block + kEqBandWords * b);
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
            const eqdrc::EqBandSettings &band = bands[kEqBands * c + b];
            // Only bands switched on with exactly 1 are listed, though other non-zero
            // values run too.
            if (band.enable != 1)
                continue;
            const char *label = eqdrc::filter_type_label(band.filterType);
            out.skip_to(eqdrc::site::kEqPrintType);
            if (label != nullptr)
                out.text("filterTypes", label);
            out.skip_to(eqdrc::site::kEqPrintFc);
            out.value("fc", band.fc);
            out.value("Q", band.Q);
            out.value("boost", band.boost);
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
    std::free(sections);
    std::free(bands);
    std::free(this);
}
