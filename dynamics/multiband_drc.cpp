// The multi-band compressor's parameter side: slots from the record's band groups, their
// coefficients, gain tables and level indexes, and the slots given back (read-back,
// print-out) or retuned (adjust calls).
#include "dynamics/multiband_drc.h"

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/log.h"
#include "core/print_out.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "core/time_constant.h"
#include "dynamics/dynamics_log.h"
#include "dynamics/gain_table.h"

namespace {

using eqdrc::drc_slot;
using eqdrc::kDrcBandCapacity;
using eqdrc::kDrcChannels;
using eqdrc::kDrcSlots;
using eqdrc::kDrcSlotsPerChannel;

constexpr const char *kCrossoverMessage = "There is something wrong with crossover, please check again\n\n";
constexpr const char *kConsistencyMessage = "wrong param for MultiDRC, please check again\n\n";

constexpr float kTableHeadroomDb = 4.0f;  // tables start this far below noiseThresholdDb
constexpr float kTableTopDb = 0.0f;       // and end at full scale
constexpr int kCrossoverModeOffset = 2;   // crossover band mode = band count - 2

// A slot's table grid, for building its level index.
struct LevelGrid {
    float log10FullScale;
    float x0;
    float scale;
};

int grid_entry(const void *ctx, float e)
{
    const LevelGrid *g = static_cast<const LevelGrid *>(ctx);
    return eqdrc::gain_table_entry(eqdrc::drc_band_level(e, g->log10FullScale), g->x0, g->scale);
}

bool known_channel(int ch) { return ch >= 0 && ch < kDrcChannels; }

// The group of band b in a channel block: a band past the fourth has none of its own,
// is reported, and reads the low band's.
int group_offset(int b, eqdrc::LogSite crossoverSite)
{
    if (b < kDrcSlotsPerChannel)
        return eqdrc::kDrcGroupOffset[b];
    eqdrc::log_line(crossoverSite, "%s", kCrossoverMessage);
    return eqdrc::kDrcLowGroup;
}

}  // namespace

eqdrc::DrcSlotSettings eqdrc::DrcSlotSettings::from_group(const float *group)
{
    return {group[kGroupFreqStart],
            group[kGroupFreqEnd],
            group[kGroupGainDb],
            to_int32(group[kGroupDrcEnable]),
            {group[kGroupCompressStart], group[kGroupExpandEnd], group[kGroupNoiseThreshold], group[kGroupMaxGain],
             group[kGroupMaxPeak]},
            to_int32(group[kGroupAttackMs]),
            to_int32(group[kGroupReleaseMs]),
            to_int32(group[kGroupHoldMs])};
}

void eqdrc::DrcSlotSettings::to_group(float *group) const
{
    group[kGroupFreqStart] = freqStartHz;
    group[kGroupFreqEnd] = freqEndHz;
    group[kGroupCompressStart] = curve.compressStartDb;
    group[kGroupExpandEnd] = curve.expandEndDb;
    group[kGroupNoiseThreshold] = curve.noiseThresholdDb;
    group[kGroupMaxGain] = curve.maxGainDb;
    group[kGroupMaxPeak] = curve.maxPeakDb;
    group[kGroupAttackMs] = static_cast<float>(attackMs);
    group[kGroupReleaseMs] = static_cast<float>(releaseMs);
    group[kGroupHoldMs] = static_cast<float>(holdMs);
}

void eqdrc::DrcSlotSettings::retune(const DrcBandSettings &s)
{
    gainDb = s.gainDb;
    drcEnable = s.drcEnable;
    curve = s.curve;
    attackMs = to_int32(s.attackMs);
    releaseMs = to_int32(s.releaseMs);
    holdMs = to_int32(s.holdMs);
}

MultiBandDRCState *MultiBandDRCState::create(const float *section, int bitDepth, int sampleRate, int channels,
                                             int link)
{
    eqdrc::require_channels(eqdrc::site::kDrcInitChannels, channels, kDrcChannels);
    auto *st = eqdrc::zeroed<MultiBandDRCState>(1);
    st->bitDepth = bitDepth;
    st->sampleRate = sampleRate;
    st->channels = channels;
    st->link = link;
    eqdrc::BitDepthScale scale;
    if (!eqdrc::scale_or_report(eqdrc::site::kDrcInitBitDepth, bitDepth, &scale))
        return eqdrc::refuse_keeping_record(st);
    st->log10FullScale = scale.log10FullScale;
    if (section == nullptr)
        return st;

    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kDrcBlockWords);
        const int32_t count = eqdrc::to_int32(block[eqdrc::kDrcBandCountWord]);
        st->channel[c].bandCount = count;
        st->fill_crossover_param(block, count);
        st->channel[c].crossover = CrossoverState::create(sampleRate, 1, &st->crossoverParam);
    }
    st->load_bands(section, eqdrc::site::kDrcInitCrossover, eqdrc::site::kDrcInitCurve);
    st->build_tables();
    return st;
}

void MultiBandDRCState::fill_crossover_param(const float *block, int count)
{
    using namespace eqdrc;
    const float *low = block + kDrcGroupOffset[0];
    const float *high = block + kDrcGroupOffset[1];
    const float *mid1 = block + kDrcGroupOffset[2];
    const float *mid2 = block + kDrcGroupOffset[3];
    crossoverParam.bandMode = eqdrc::wrapping_sub(count, kCrossoverModeOffset);
    crossoverParam.freq[kCornerLowLp] = low[kGroupFreqEnd];
    crossoverParam.freq[kCornerHighHp] = high[kGroupFreqStart];
    crossoverParam.freq[kCornerBand2Hp] = mid1[kGroupFreqStart];
    crossoverParam.freq[kCornerBand2Lp] = mid1[kGroupFreqEnd];
    crossoverParam.freq[kCornerBand3Hp] = mid2[kGroupFreqStart];
    crossoverParam.freq[kCornerBand3Lp] = mid2[kGroupFreqEnd];
}

// Band slots of every channel from their groups, in channel order: a channel with more
// than four bands fills the next channel's first slots with its low group, and that
// channel then overwrites them.
void MultiBandDRCState::load_bands(const float *section, eqdrc::LogSite crossoverSite, eqdrc::LogSite curveSite)
{
    for (int c = 0; c < channels; c++) {
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kDrcBlockWords);
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++) {
            const int slot = drc_slot(c, b);
            settings[slot] = eqdrc::DrcSlotSettings::from_group(block + group_offset(b, crossoverSite));
            derive_slot(slot);
            check_slot(slot, curveSite);
        }
    }
}

void MultiBandDRCState::derive_slot(int slot)
{
    const eqdrc::DrcSlotSettings &s = settings[slot];
    eqdrc::DrcSlotCoefficients &k = coefficients[slot];
    k.attackCoef = eqdrc::sample_decay(sampleRate, s.attackMs);
    k.releaseCoef = eqdrc::sample_decay(sampleRate, s.releaseMs);
    k.bandGain = eqdrc::mathf::powf(eqdrc::mathf::kTen, s.gainDb / 20.0f);
}

// A curve against the rule (its NaN-fails form) is reported and used as given.
void MultiBandDRCState::check_slot(int slot, eqdrc::LogSite site) const
{
    if (!settings[slot].curve.consistent_nan_fails())
        eqdrc::log_line(site, "%s", kConsistencyMessage);
}

void MultiBandDRCState::build_tables()
{
    for (int c = 0; c < channels; c++) {
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++)
            build_table(c, b);
    }
}

// Every band gets a table, dynamics on or not, from noiseThresholdDb - 4 dB to 0 dBFS.
void MultiBandDRCState::build_table(int c, int b)
{
    const int slot = drc_slot(c, b);
    float *&table = channel[c].band[b].table;
    if (table == nullptr)
        table = eqdrc::zeroed<float>(eqdrc::kGainTableSize);
    const eqdrc::CurveSettings curve = settings[slot].curve;
    const eqdrc::GainTableGrid grid = eqdrc::build_gain_table(
        table, curve.noiseThresholdDb - kTableHeadroomDb, kTableTopDb, [&curve](float x) { return curve.level_db(x); },
        eqdrc::GainFloorTest::kFloat);
    eqdrc::DrcSlotCoefficients &k = coefficients[slot];
    k.tableStart = grid.x0;
    k.tableScale = grid.scale;
    if (k.levelIndex == nullptr)
        k.levelIndex = eqdrc::zeroed<eqdrc::LevelIndex>(1);
    const LevelGrid g{log10FullScale, grid.x0, grid.scale};
    k.levelIndex->build(grid_entry, &g);
}

void MultiBandDRCState::set_para(const float *section)
{
    for (int c = 0; c < channels; c++) {
        eqdrc::DrcChannel &ch = channel[c];
        const float *block = eqdrc::channel_block(section, c, link, eqdrc::kDrcBlockWords);
        const int32_t count = eqdrc::to_int32(block[eqdrc::kDrcBandCountWord]);
        const int32_t old = ch.bandCount;
        ch.bandCount = count;
        fill_crossover_param(block, count);
        if (count == old) {
            if (ch.crossover != nullptr)  // none after a creation without a section
                ch.crossover->set_param(&crossoverParam);
        } else {
            if (ch.crossover != nullptr)
                ch.crossover->destroy();
            ch.crossover = CrossoverState::create(sampleRate, 1, &crossoverParam);
            // The smoothed gains keep their values; being sized for every band, a raised
            // count stays inside them.
            for (int b = 0; b < kDrcBandCapacity; b++) {
                ch.bandBuf[b] = 0.0f;
                ch.band[b].envelope = 0.0f;
            }
        }
    }
    load_bands(section, eqdrc::site::kDrcSetParaCrossover, eqdrc::site::kDrcSetParaCurve);
    build_tables();
}

// gainDb and drcEnable are not written back: the caller's words stay as they were.
void MultiBandDRCState::get_para(float *section) const
{
    for (int c = 0; c < channels; c++) {
        float *block = section + eqdrc::kDrcBlockWords * c;  // every channel's own block, linked or not
        block[eqdrc::kDrcBandCountWord] = static_cast<float>(channel[c].bandCount);
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++)
            settings[drc_slot(c, b)].to_group(block + group_offset(b, eqdrc::site::kDrcGetParaCrossover));
    }
}

int MultiBandDRCState::print_para() const
{
    eqdrc::PrintOut out(eqdrc::site::kDrcPrintTitle, "MultiBandDRC Param\n");
    for (int c = 0; c < channels; c++) {
        out.heading(eqdrc::site::kDrcPrintChannel, eqdrc::kEquals, "channel", c);
        out.value("crossover_band", channel[c].bandCount);
        const int bands = bands_with_slots(c);
        for (int b = 0; b < bands; b++) {
            const eqdrc::DrcSlotSettings &s = settings[drc_slot(c, b)];
            out.heading(eqdrc::site::kDrcPrintBand, eqdrc::kDashes, "band", b);
            out.value("freq_start", s.freqStartHz);
            out.value("freq_end", s.freqEndHz);
            out.value("gain_dB", s.gainDb);
            out.value("drc_enable", s.drcEnable);
            s.curve.print(out);
            out.value("attack_time", s.attackMs);
            out.value("release_time", s.releaseMs);
            out.value("hold_time", s.holdMs);
        }
    }
    return out.last();
}

// Linked channels all take the corners; the given channel's band count decides which
// slots are rewritten.  The band mode in the scratch record is irrelevant here.
void MultiBandDRCState::adjust_crossover(int ch, const float corners[eqdrc::kCrossoverCorners])
{
    using namespace eqdrc;
    std::memcpy(crossoverParam.freq, corners, sizeof crossoverParam.freq);
    // A channel past the two that exist has no band count, crossover or slots.
    const int count = known_channel(ch) ? channel[ch].bandCount : 0;
    const int first = link ? 0 : ch;
    const int last = link ? channels : (known_channel(ch) ? ch + 1 : ch);
    for (int c = first; c < last; c++) {
        if (channel[c].crossover != nullptr)  // a channel never built has none
            channel[c].crossover->set_param(&crossoverParam);
        DrcSlotSettings *s = settings + drc_slot(c, 0);
        s[0].freqEndHz = corners[kCornerLowLp];
        s[1].freqStartHz = corners[kCornerHighHp];
        if (count > 2) {
            s[2].freqStartHz = corners[kCornerBand2Hp];
            s[2].freqEndHz = corners[kCornerBand2Lp];
        }
        if (count == 4) {
            s[3].freqStartHz = corners[kCornerBand3Hp];
            s[3].freqEndHz = corners[kCornerBand3Lp];
        }
    }
}

void MultiBandDRCState::adjust_band(int ch, int band, const eqdrc::DrcBandSettings &bandSettings)
{
    // Only a warning: the band is written all the same (it may be a slot of the next
    // channel).
    if (!known_channel(ch) || band >= channel[ch].bandCount)
        eqdrc::log_line(eqdrc::site::kDrcAdjustBand, "i_band out of bound\n");
    if (link) {
        for (int c = 0; c < channels; c++)
            retune_band(c, band, bandSettings);
    } else {
        retune_band(ch, band, bandSettings);
    }
}

void MultiBandDRCState::retune_band(int c, int band, const eqdrc::DrcBandSettings &bandSettings)
{
    const int64_t wideSlot = static_cast<int64_t>(kDrcSlotsPerChannel) * c + band;
    if (wideSlot < 0 || wideSlot >= kDrcSlots)
        return;  // no such slot: the write is dropped
    const int slot = static_cast<int>(wideSlot);
    settings[slot].retune(bandSettings);
    derive_slot(slot);
    check_slot(slot, eqdrc::site::kDrcAdjustCurve);
    // Only a band the channel has owns a table; a slot reached past the band count
    // changes that slot's settings but no table.
    if (known_channel(c) && band >= 0 && band < bands_with_slots(c))
        build_table(c, band);
}

int MultiBandDRCState::curve(int ch, int band, const float *levelDb, float *gainDb, int count) const
{
    if (ch < 0 || ch >= channels || ch >= eqdrc::kDrcChannels || band < 0 || band >= bands_with_slots(ch) ||
        channel[ch].band[band].table == nullptr)
        return -1;
    const eqdrc::DrcSlotCoefficients &k = coefficients[drc_slot(ch, band)];
    eqdrc::gain_table_curve_db(channel[ch].band[band].table, k.tableStart, k.tableScale, levelDb, gainDb, count);
    return eqdrc::kGainCurveKnee;
}

float MultiBandDRCState::band_gain(int ch, int band) const
{
    if (ch < 0 || ch >= channels || ch >= eqdrc::kDrcChannels || band < 0 || band >= bands_with_slots(ch))
        return 1.0f;
    // The sum takes band 3 only at exactly four bands (see process_samples).
    const int count = channel[ch].bandCount;
    const int summed = count == eqdrc::kDrcSlotsPerChannel ? count : count < 3 ? count : 3;
    if (band >= summed || settings[drc_slot(ch, band)].drcEnable == 0)
        return 1.0f;
    return channel[ch].band[band].smoothedGain;
}

void MultiBandDRCState::destroy()
{
    for (int c = 0; c < kDrcChannels; c++) {
        for (int b = 0; b < kDrcBandCapacity; b++)
            std::free(channel[c].band[b].table);
        if (channel[c].crossover != nullptr)
            channel[c].crossover->destroy();
    }
    for (int s = 0; s < kDrcSlots; s++)
        std::free(coefficients[s].levelIndex);
    std::free(this);
}
