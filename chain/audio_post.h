// The chain object: record header, pre-gains, planar buffers and the stage handles.
#ifndef EQDRC_CHAIN_AUDIO_POST_H
#define EQDRC_CHAIN_AUDIO_POST_H

#include <cstdint>

#include "tqaudio_eqdrc.h"

// Enable words 10..17 in chain order.
enum ChainStage : int {
    kStageAutoGain = 0,
    kStageBassEnhancer,
    kStageExciter,
    kStageDeEsser,
    kStageEq10,
    kStageMultiBandDrc,
    kStageAgc,
    kStageMaximizer,
    kStageCount
};

// A stage's EQDRC_STAGE_... bit.
constexpr uint32_t stage_bit(ChainStage s) { return 1u << s; }

struct AudioPostState {
    int32_t frameLen;
    int32_t sampleRate;
    int32_t bitDepth;
    int32_t channelLink;
    int32_t channels;
    float toolVersion;
    float fullScale;
    int32_t enable[kStageCount];
    float *gainDb;
    float *gainLin;
    float **buffers;
    AutoGainState *autoGain;
    BassEnhancerState *bassEnhancer;
    ExciterState *exciter;
    DeEsserState *deEsser;
    EQ10State *eq10;
    MultiBandDRCState *multiBandDrc;
    MaximizerState *maximizer;
    // Channels the gain arrays and buffers were allocated for.  A live record may
    // claim more; everything indexed by channel stays below this.
    int32_t allocatedChannels;
    // With many unlinked channels the equaliser's blocks run past the record: it then
    // works on this zero-padded copy of its section (every band of the extra channels
    // off), and only words inside the record are copied back.
    float *eqSection;
    int32_t eqSectionWords;
    // What the meters need from a frame and cannot read from the stages afterwards.
    uint64_t framesProcessed;
    uint32_t stagesRun;                          // stage_bit()s of the last frame
    int32_t inputPeak[EQDRC_METER_CHANNELS];     // largest |sample| of the last frame's input

    static AudioPostState *create(const float *record, int frameLen);
    int process(const int16_t *in, int16_t *out, int swFrmLen);
    int set_para(const float *record, int swFrmLen);
    int get_para(float *record) const;
    // AudioPost_GetMeters: the noted values, the stages' gains and the output buffer's peaks.
    void get_meters(AudioPostMeters *meters) const;
    // AudioPost_EQ10_SetPara: with the equaliser enabled, retunes it from `eqSection`,
    // or creates it when it does not exist yet.
    void set_eq_section(const float *eqSection);
    void destroy();

    // The Agc runs on the maximizer's state, which is built when either is enabled.
    bool maximizer_wanted() const { return enable[kStageAgc] != 0 || enable[kStageMaximizer] != 0; }
    // Channels that may be indexed: the live count, held to what was allocated.
    int indexed_channels() const { return channels < allocatedChannels ? channels : allocatedChannels; }

private:
    // The stages the next frame runs: enabled, and created (a failed creation leaves none).
    uint32_t stages_to_run() const;
    void read_header(const float *record);
    void read_enables(const float *record);
    void read_pre_gains(const float *record);
    void sync_stages(const float *record, int frames, bool dump);
    const float *eq_section_from(const float *record);
};

#endif
