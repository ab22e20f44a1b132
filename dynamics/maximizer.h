// Frame-wise peak limiter with makeup gain, and the automatic gain control that runs
// just before it on the same record.  One parameter section of 20 words per channel
// feeds both.
#ifndef EQDRC_DYNAMICS_MAXIMIZER_H
#define EQDRC_DYNAMICS_MAXIMIZER_H

#include <cstdint>

#include "tqaudio_eqdrc.h"

namespace eqdrc {

constexpr int kMaximizerMaxChannels = 2;
constexpr int kMaximizerBlockWords = 20;  // per channel

// Words of a channel's block.
constexpr int kMaxWordThreshold = 0;       // dB
constexpr int kMaxWordCeiling = 1;         // dB
constexpr int kMaxWordRelease = 2;         // ms
constexpr int kAgcWordCompressStart = 3;   // dB; words 3..10 in AgcSettings order
constexpr int kAgcWords = 8;

// The AGC's curve and times, in section (and Agc_AdjustPara argument) order.
struct AgcSettings {
    float compress_start;   // dB
    float expand_end;       // dB
    float noise_threshold;  // dB
    float max_gain;         // dB
    float max_peak;         // dB
    float attack_time;      // ms
    float release_time;     // ms
    float hold_time;        // ms, kept and printed only

    static AgcSettings from_block(const float *block);
    // The curve rises through expansion, flat boost and compression in that order and
    // stays below max_peak.
    bool consistent() const;
};

}  // namespace eqdrc

struct MaximizerState {
    int32_t bit_rate;
    int32_t sampleRate;
    int32_t channels;
    int32_t frameLen;  // creation frame length: the time constants' frame
    int32_t channelLink;
    float log10_full_scale;
    float full_scale;

    // Limiter.
    float ceiling[eqdrc::kMaximizerMaxChannels];  // dB
    float release[eqdrc::kMaximizerMaxChannels];  // ms
    float max_x0[eqdrc::kMaximizerMaxChannels];   // dB at table entry 0
    float **max_tables;                           // `channels` gain tables
    float max_scale[eqdrc::kMaximizerMaxChannels];  // entries per dB
    float max_release_coef[eqdrc::kMaximizerMaxChannels];
    float makeup[eqdrc::kMaximizerMaxChannels];  // linear, folded into the table
    float max_threshold[eqdrc::kMaximizerMaxChannels];  // dB

    // AGC.
    float noise_threshold[eqdrc::kMaximizerMaxChannels];
    float expand_end[eqdrc::kMaximizerMaxChannels];
    float compress_start[eqdrc::kMaximizerMaxChannels];
    float max_gain[eqdrc::kMaximizerMaxChannels];
    float max_peak[eqdrc::kMaximizerMaxChannels];
    float attack_time[eqdrc::kMaximizerMaxChannels];
    float release_time[eqdrc::kMaximizerMaxChannels];
    float hold_time[eqdrc::kMaximizerMaxChannels];
    float agc_x0[eqdrc::kMaximizerMaxChannels];
    float **agc_tables;  // `channels` gain tables
    float agc_scale[eqdrc::kMaximizerMaxChannels];
    float agc_attack_coef[eqdrc::kMaximizerMaxChannels];
    float agc_release_coef[eqdrc::kMaximizerMaxChannels];

    float *agc_cur_gain;  // `channels` linear gains, 1 at start
    float *max_cur_gain;  // `channels` linear gains, 0 at start: the first frame fades in

    // A null section takes the built-in tuning.  More than two channels end the process;
    // a bad bit depth returns nullptr.
    static MaximizerState *create(const float *section, int bit_rate, int sampleRate, int channels, int frameLen,
                                  int channelLink);
    void process_agc(const float *const *in, float *const *out, int n);
    void process_limiter(const float *const *in, float *const *out, int n);
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    void adjust_limiter(int channel, float threshold, float ceilingDb, float releaseMs);
    void adjust_agc(int channel, const eqdrc::AgcSettings &s);
    void destroy();

private:
    float frame_coef(float timeMs) const;
    // Channel `ch` (0 or 1) takes new values.  Its gain and table exist only below
    // `channels`; a channel beyond them keeps its values in the two-entry arrays and
    // builds its curve into a scratch table, as the grid comes out of the build.
    void set_agc(int ch, const eqdrc::AgcSettings &s);
    void set_limiter(int ch, float threshold, float ceilingDb, float releaseMs);
    void build_limiter(int ch);
    // y = x × a with a stepping from `from` to `to` over the first m samples by repeated
    // addition, then held for the rest of the frame.
    static void ramp_then_hold(const float *x, float *y, int n, int m, float from, float to);
};

#endif
