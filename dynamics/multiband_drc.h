// Multi-band compressor: each channel is split into 2..4 crossover bands; every band
// gets a make-up gain and, where its dynamics are on, a level-dependent gain read from
// its 201-entry table and smoothed per sample; the bands are summed back.
#ifndef EQDRC_DYNAMICS_MULTIBAND_DRC_H
#define EQDRC_DYNAMICS_MULTIBAND_DRC_H

#include <cstdint>

#include "core/log.h"
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

}  // namespace eqdrc

struct MultiBandDRCState {
    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channels;
    int32_t link;
    int32_t bandCount[eqdrc::kDrcChannels];
    float bandScale[eqdrc::kDrcChannels];  // 1 / bandCount; kept for hosts, not used

    // Per slot.
    float gainDb[eqdrc::kDrcSlots];
    int32_t drcEnable[eqdrc::kDrcSlots];
    float freqStartHz[eqdrc::kDrcSlots];
    float freqEndHz[eqdrc::kDrcSlots];
    float compressStartDb[eqdrc::kDrcSlots];
    float expandEndDb[eqdrc::kDrcSlots];
    float noiseThresholdDb[eqdrc::kDrcSlots];
    float maxGainDb[eqdrc::kDrcSlots];
    float maxPeakDb[eqdrc::kDrcSlots];
    int32_t attackMs[eqdrc::kDrcSlots];  // whole ms
    int32_t releaseMs[eqdrc::kDrcSlots];
    int32_t holdMs[eqdrc::kDrcSlots];  // printed only
    float attackCoef[eqdrc::kDrcSlots];
    float releaseCoef[eqdrc::kDrcSlots];
    float bandGain[eqdrc::kDrcSlots];  // linear make-up gain
    float tableScale[eqdrc::kDrcSlots];  // entries per dB
    float tableStart[eqdrc::kDrcSlots];  // dB of entry 0
    float log10FullScale;

    // Per channel and band.  The band arrays are sized for every band index a count can
    // address, so a count raised by set_para, above 4 or at most 1 stays inside them.
    float *tables[eqdrc::kDrcChannels][eqdrc::kDrcBandCapacity];
    float bandBuf[eqdrc::kDrcChannels][eqdrc::kDrcBandCapacity];       // current sample per band
    float envelope[eqdrc::kDrcChannels][eqdrc::kDrcBandCapacity];      // detector state
    float smoothedGain[eqdrc::kDrcChannels][eqdrc::kDrcBandCapacity];  // last applied gain
    // Per slot: where the detector value crosses from one table entry to the next,
    // built with the slot's table grid (see dynamics/level_index.h).
    eqdrc::LevelIndex *levelIndex[eqdrc::kDrcSlots];
    CrossoverParam crossoverParam;  // scratch for building the crossovers
    CrossoverState *crossover[eqdrc::kDrcChannels];

    // More than two channels end the process; a bad bit depth gives nullptr.  A null
    // section builds no bands (such a state outputs silence).
    static MultiBandDRCState *create(const float *section, int bitDepth, int sampleRate, int channels, int link);
    void process(const float *const *in, float *const *out, int frameLen);
    // Channels keeping their band count keep crossover memories, envelopes and gains.
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    void adjust_crossover(int ch, const float corners[eqdrc::kCrossoverCorners]);
    void adjust_band(int ch, int band, const eqdrc::DrcBandSettings &settings);
    void destroy();

private:
    int bands_with_slots(int c) const;
    void fill_crossover_param(const float *block, int count);
    void load_bands(const float *section, eqdrc::LogSite crossoverSite, eqdrc::LogSite curveSite);
    void load_slot(int slot, const float *group);
    void derive_slot(int slot);
    eqdrc::CurveSettings curve_of(int slot) const;
    void check_slot(int slot, eqdrc::LogSite site) const;
    void build_tables();
    void build_table(int c, int b);
    bool lanes_ready(int c) const
    {
        return crossover[c] != nullptr && bandCount[c] >= 1 && bandCount[c] <= eqdrc::kDrcSlotsPerChannel;
    }
    template <class V>
    void find_entry(int c, int b, int lane, float e, V &low, V &high, V &target) const;
    template <class V>
    void save_lanes(int c, int first, const V &buf, const V &env, const V &smoothed);
    void process_lanes(int c, const float *in, float *out, int frameLen);
    void process_lanes_stereo(const float *const *in, float *const *out, int frameLen);  // AVX2 build
    void retune_band(int c, int band, const eqdrc::DrcBandSettings &settings);
};

#endif
