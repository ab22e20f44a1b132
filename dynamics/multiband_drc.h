// Multi-band compressor: each channel is split into 2..4 crossover bands; every band
// gets a make-up gain and, where its dynamics are on, a level-dependent gain read from
// its 201-entry table and smoothed per sample; the bands are summed back.
#ifndef EQDRC_DYNAMICS_MULTIBAND_DRC_H
#define EQDRC_DYNAMICS_MULTIBAND_DRC_H

#include <cstdint>

#include "core/log.h"
#include "core/mathf.h"
#include "dynamics/gain_table.h"
#include "dynamics/level_index.h"
#include "filters/crossover.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {

constexpr int kDrcChannels = 2;
constexpr int kDrcBlockWords = 100;  // one channel block of the 200-word section
constexpr int kDrcBandCountWord = 0;

// Parameter slots: four per channel, index 4 * channel + band.
constexpr int kDrcSlotsPerChannel = 4;
constexpr int kDrcSlots = kDrcChannels * kDrcSlotsPerChannel;
// Band counts above four run band indices into the next channel's slots, so channel 0
// can address bands 0..7; per-channel band arrays are that long.
constexpr int kDrcBandCapacity = kDrcSlots;

// Block word of the twelve-word group of band slots 0..3: low, high, middle 1, middle 2,
// the order of the crossover's outputs.
constexpr int kDrcGroupOffset[kDrcSlotsPerChannel] = {10, 70, 30, 50};
constexpr int kDrcLowGroup = 10;

// Words of a band group.
constexpr int kGroupFreqStart = 0;
constexpr int kGroupFreqEnd = 1;
constexpr int kGroupGainDb = 2;
constexpr int kGroupDrcEnable = 3;
constexpr int kGroupCompressStart = 4;
constexpr int kGroupExpandEnd = 5;
constexpr int kGroupNoiseThreshold = 6;
constexpr int kGroupMaxGain = 7;
constexpr int kGroupMaxPeak = 8;
constexpr int kGroupAttackMs = 9;
constexpr int kGroupReleaseMs = 10;
constexpr int kGroupHoldMs = 11;

// One band's curve and times as the adjust call passes them (times in ms, truncated
// when stored).
struct DrcBandSettings {
    int32_t drcEnable;
    float gainDb;
    CurveSettings curve;
    float attackMs;
    float releaseMs;
    float holdMs;
};

// A parameter slot as its band group holds it.
struct DrcSlotSettings {
    float freqStartHz;
    float freqEndHz;
    float gainDb;
    int32_t drcEnable;
    CurveSettings curve;
    int32_t attackMs;  // whole ms
    int32_t releaseMs;
    int32_t holdMs;  // printed only

    static DrcSlotSettings from_group(const float *group);
    // Every word but the gain and the enable, which the read-back leaves as the caller
    // had them.
    void to_group(float *group) const;
    // The adjust call's curve, gain and times; the corners stay.
    void retune(const DrcBandSettings &s);
};

// What processing takes from a slot, derived whenever the slot's settings change.
struct DrcSlotCoefficients {
    float bandGain;  // linear make-up gain
    float attackCoef;
    float releaseCoef;
    float tableStart;  // dB of entry 0
    float tableScale;  // entries per dB
    // Where the detector value crosses from one table entry to the next, built with the
    // slot's table grid (see dynamics/level_index.h).
    LevelIndex *levelIndex;
};

// One band of a channel.  The table is the band's, built from its slot when the
// channel's bands are built: a slot two channels reach (a count above four) has a table
// in each, and an adjust call rebuilds only the named channel's, while the grid and
// level index it reads are the slot's.
struct DrcBand {
    float *table;
    float envelope;      // detector state
    float smoothedGain;  // last applied gain
    int32_t entry;       // 0..kGainTableLast: the entry the lane forms last found, their first guess
};

// A channel's split and bands.  The band arrays are sized for every band index a count
// can address, so a count raised by set_para, above 4 or at most 1 stays inside them.
struct DrcChannel {
    int32_t bandCount;
    CrossoverState *crossover;
    float bandBuf[kDrcBandCapacity];  // current sample per band: the crossover's output row
    DrcBand band[kDrcBandCapacity];
};

constexpr int drc_slot(int c, int b) { return kDrcSlotsPerChannel * c + b; }

// The detector's level in dB for an envelope value.
inline float drc_band_level(float e, float log10FullScale)
{
    return 20.0f * (mathf::log10f(e + 1.0f) - log10FullScale);
}

}  // namespace eqdrc

// The parameter side (creation, replacement, read-back, print-out, adjust calls and
// tear-down) is multiband_drc.cpp; the processing, per sample and in lanes,
// multiband_drc_process.cpp.
struct MultiBandDRCState {
    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t link;
    float log10FullScale;
    eqdrc::DrcSlotSettings settings[eqdrc::kDrcSlots];
    eqdrc::DrcSlotCoefficients coefficients[eqdrc::kDrcSlots];
    eqdrc::DrcChannel channel[eqdrc::kDrcChannels];
    CrossoverParam crossoverParam;  // scratch for building the crossovers

    // More than two channels end the process; a bad bit depth gives nullptr.  A null
    // section builds no bands (such a state outputs silence).
    static MultiBandDRCState *create(const float *section, int bitDepth, int sampleRate, int channels, int link);
    void process(const float *const *in, float *const *out, int frameLen);
    // Channels keeping their band count keep crossover memories, envelopes and gains.
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    void adjust_crossover(int ch, const float corners[eqdrc::kCrossoverCorners]);
    void adjust_band(int ch, int band, const eqdrc::DrcBandSettings &bandSettings);
    // MultiBandDRC_GetCurve: a band's table gain at each level (its make-up gain, applied
    // before the detector, not included); the knee width, or -1 for a band not run.
    int curve(int ch, int band, const float *levelDb, float *gainDb, int count) const;
    // Band `band`'s dynamic gain after the last sample (linear, its make-up gain not
    // counted); 1 for a band the channel's sum leaves out or whose dynamics are off.
    float band_gain(int ch, int band) const;
    void destroy();

private:
    // Bands of channel c that own a parameter slot.  Channel 0 may run past its four
    // slots into channel 1's; slots past the eighth do not exist, and their bands are
    // skipped (they never reach the output: the sum takes bands 0..3 only).
    int bands_with_slots(int c) const
    {
        const int count = channel[c].bandCount;
        const int limit = eqdrc::kDrcSlots - eqdrc::kDrcSlotsPerChannel * c;
        if (count <= 0)
            return 0;
        return count < limit ? count : limit;
    }
    void fill_crossover_param(const float *block, int count);
    void load_bands(const float *section, eqdrc::LogSite crossoverSite, eqdrc::LogSite curveSite);
    void derive_slot(int slot);
    void check_slot(int slot, eqdrc::LogSite site) const;
    void build_tables();
    void build_table(int c, int b);
    void retune_band(int c, int band, const eqdrc::DrcBandSettings &bandSettings);

    bool lanes_ready(int c) const
    {
        return channel[c].crossover != nullptr && channel[c].bandCount >= 1 &&
               channel[c].bandCount <= eqdrc::kDrcSlotsPerChannel;
    }
    void process_samples(int c, const float *in, float *out, int frameLen);
    template <class V>
    void find_entry(int c, int b, int lane, float e, V &low, V &high, V &target);
    template <class V>
    void find_entries(int c, unsigned moved, const V &e, V &low, V &high, V &target);
    template <class V>
    void save_lanes(int c, int first, const V &buf, const V &env, const V &smoothed);
    void process_lanes(int c, const float *in, float *out, int frameLen);
    void process_lanes_stereo(const float *const *in, float *const *out, int frameLen);  // AVX2 and NEON builds
};

#endif
