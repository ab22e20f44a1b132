// The maximizer's record: one parameter section of 20 words per channel feeds the
// automatic gain control (dynamics/agc.h) and the peak limiter (dynamics/limiter.h),
// which the C interface reaches through this one state.
#ifndef EQDRC_DYNAMICS_MAXIMIZER_H
#define EQDRC_DYNAMICS_MAXIMIZER_H

#include "core/log.h"
#include "dynamics/agc.h"
#include "dynamics/dynamics_format.h"
#include "dynamics/limiter.h"
#include "tqaudio_eqdrc.h"

namespace eqdrc {
constexpr int kMaximizerBlockWords = 20;  // per channel
}  // namespace eqdrc

struct MaximizerState {
    eqdrc::DynamicsFormat format;
    eqdrc::Agc agc;
    eqdrc::Limiter limiter;

    // A null section takes the built-in tuning.  More than two channels end the process;
    // a bad bit depth returns nullptr.
    static MaximizerState *create(const float *section, int bitDepth, int sampleRate, int channels, int frameLen,
                                  int channelLink);
    void set_para(const float *section);
    void get_para(float *section) const;
    int print_para() const;
    // The AGC's and the limiter's gain of channel `ch` after the last frame (linear, the
    // limiter's without its make-up); 1 for a channel they do not run.
    float agc_gain(int ch) const;
    float limiter_gain(int ch) const;
    void destroy();

private:
    // Every channel's AGC settings from the section, each checked, a violation reported
    // at `site`.
    void set_agc_from(const float *section, eqdrc::LogSite site);
};

#endif
