// Chain set-up, frame processing, live update, read-back and tear-down.
#include "chain/audio_post.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "chain/chain_log.h"
#include "chain/pcm_lanes.h"
#include "core/alloc.h"
#include "core/log.h"
#include "core/mathf.h"
#include "core/numeric.h"
#include "core/record.h"
#include "core/scale.h"
#include "core/stage_setup.h"
#include "dynamics/maximizer.h"
#include "dynamics/multiband_drc.h"
#include "enhance/auto_gain.h"
#include "eq/equaliser.h"

using namespace eqdrc;

namespace {

// Words from the equaliser's section to the end of the record.
constexpr int kEqRecordWords = kRecordWords - kSectionEq10;

constexpr const char *kDumpVariable = "TQAUDIO_EQDRC_DUMP_CONF";


bool version_rejected(float word)
{
    return std::fabs(static_cast<double>(word) - static_cast<double>(kToolVersion)) > kToolVersionTolerance;
}

void print_version_error(LogSite site, float word)
{
    log_line(site, "%s - The Version(%.f) of Tuning Tool is Wrong, you should use version %.2f!\n", site.function, static_cast<double>(word), static_cast<double>(kToolVersion));
}

// A linear level or gain in dB, held at the meters' floor (which takes zero and NaN too).
float meter_db(float linear)
{
    const float db = 20.0f * mathf::log10f(linear);
    return db >= EQDRC_METER_FLOOR_DB ? db : EQDRC_METER_FLOOR_DB;
}

static_assert(sizeof(AudioPostMeters) == 88, "the meters are a fixed layout hosts copy whole");
static_assert(stage_bit(kStageAutoGain) == EQDRC_STAGE_AUTO_GAIN &&
                  stage_bit(kStageBassEnhancer) == EQDRC_STAGE_BASS_ENHANCER &&
                  stage_bit(kStageExciter) == EQDRC_STAGE_EXCITER && stage_bit(kStageDeEsser) == EQDRC_STAGE_DE_ESSER &&
                  stage_bit(kStageEq10) == EQDRC_STAGE_EQ10 &&
                  stage_bit(kStageMultiBandDrc) == EQDRC_STAGE_MULTIBAND_DRC &&
                  stage_bit(kStageAgc) == EQDRC_STAGE_AGC && stage_bit(kStageMaximizer) == EQDRC_STAGE_MAXIMIZER,
              "the header's stage bits follow the enable words");

bool dump_requested()
{
    const char *v = std::getenv(kDumpVariable);
    return v != nullptr && strcasecmp(v, "true") == 0;
}

// One stage of sync_stages: a wanted stage that exists is retuned, one that does not is
// created (and printed when a dump was asked for).  An unwanted one is left as it is.
template <class State, class Create, class SetPara, class PrintPara>
void sync_stage(bool wanted, State *&stage, const float *section, bool dump, Create create, SetPara setPara,
                PrintPara printPara)
{
    if (!wanted)
        return;
    if (stage) {
        setPara(stage, section);
        return;
    }
    stage = create(section);
    if (dump && stage)
        printPara(stage);
}

}  // namespace

AudioPostState *AudioPostState::create(const float *record, int frameLen)
{
    auto *st = zeroed<AudioPostState>(1);
    st->frameLen = frameLen;
    st->read_header(record);

    if (version_rejected(st->toolVersion)) {
        print_version_error(site::kInitVersion, st->toolVersion);
        return refuse_keeping_record(st);
    }
    log_line(site::kInitParamVersion, "The Version of Parameter is %d.%d.%d\n",
             to_int32(record[kWordParamVersion]), to_int32(record[kWordParamVersion + 1]),
             to_int32(record[kWordParamVersion + 2]));
    st->read_enables(record);

    st->allocatedChannels = st->channels > 0 ? st->channels : 0;
    st->gainDb = zeroed<float>(st->allocatedChannels);
    st->gainLin = zeroed<float>(st->allocatedChannels);
    st->read_pre_gains(record);

    BitDepthScale scale;
    if (!scale_or_report(site::kInitBitDepth, st->bitDepth, &scale))
        return refuse_keeping_record(st);  // with its gain arrays
    st->fullScale = scale.chainFullScale;

    const int eqWords = st->allocatedChannels * kEqChannelWords;
    if (eqWords > kEqRecordWords) {
        st->eqSectionWords = eqWords;
        st->eqSection = zeroed<float>(eqWords);
    }

    st->buffers = zeroed<float *>(st->allocatedChannels);
    for (int c = 0; c < st->allocatedChannels; c++)
        st->buffers[c] = zeroed<float>(frameLen);

    st->sync_stages(record, frameLen, dump_requested());
    return st;
}

void AudioPostState::read_header(const float *record)
{
    sampleRate = to_int32(record[kWordSampleRate]);
    bitDepth = to_int32(record[kWordBitDepth]);
    channelLink = to_int32(record[kWordChannelLink]);
    channels = to_int32(record[kWordChannels]);
    toolVersion = record[kWordToolVersion];
}

void AudioPostState::read_enables(const float *record)
{
    for (int s = 0; s < kStageCount; s++)
        enable[s] = to_int32(record[kWordEnable + s]);
}

// Only the first word of each five-word group is read; with more than two unlinked
// channels channel 2 reads the first word of the auto gain section: the record's stride
// leaves no room for a third pre-gain, and the word is read where the stride puts it.
// A channel whose group would lie past the end of the record gets 0 dB instead of a
// read outside the caller's array.
void AudioPostState::read_pre_gains(const float *record)
{
    for (int c = 0; c < indexed_channels(); c++) {
        const float *word = channel_block(record + kWordPreGain, c, channelLink, kPreGainStride);
        gainDb[c] = word < record + kRecordWords ? *word : 0.0f;
        gainLin[c] = eqdrc::mathf::powf(eqdrc::mathf::kTen, gainDb[c] / 20.0f);
    }
}

const float *AudioPostState::eq_section_from(const float *record)
{
    if (!eqSection)
        return record + kSectionEq10;
    std::memcpy(eqSection, record + kSectionEq10, kEqRecordWords * sizeof(float));
    return eqSection;
}

// Creates every enabled stage that does not exist yet and retunes the ones that do.
// A disabled stage is left as it is: it keeps its state and is simply not run.
void AudioPostState::sync_stages(const float *record, int frames, bool dump)
{
    const int ch = indexed_channels();
    const int fs = sampleRate, bits = bitDepth, link = channelLink;
    sync_stage(
        enable[kStageAutoGain], autoGain, record + kSectionAutoGain, dump,
        [=](const float *s) { return AutoGain_Init(s, bits, fs, ch, frames); }, AutoGain_SetPara, AutoGain_PrintPara);
    sync_stage(
        enable[kStageBassEnhancer], bassEnhancer, record + kSectionBassEnhancer, dump,
        [=](const float *s) { return BassEnhancer_Init(s, bits, fs, ch, link); }, BassEnhancer_SetPara,
        BassEnhancer_PrintPara);
    sync_stage(
        enable[kStageExciter], exciter, record + kSectionExciter, dump,
        [=](const float *s) { return Exciter_Init(s, bits, fs, ch, link); }, Exciter_SetPara, Exciter_PrintPara);
    sync_stage(
        enable[kStageDeEsser], deEsser, record + kSectionDeEsser, dump,
        [=](const float *s) { return DeEsser_Init(s, bits, fs, ch, frames, link); }, DeEsser_SetPara,
        DeEsser_PrintPara);
    sync_stage(
        enable[kStageEq10], eq10, eq_section_from(record), dump,
        [=](const float *s) { return EQ10_Init(s, bits, fs, ch, frames, link); }, EQ10_SetPara, EQ10_PrintPara);
    sync_stage(
        enable[kStageMultiBandDrc], multiBandDrc, record + kSectionMultiBandDrc, dump,
        [=](const float *s) { return MultiBandDRC_Init(s, bits, fs, ch, link); }, MultiBandDRC_SetPara,
        MultiBandDRC_PrintPara);
    sync_stage(
        maximizer_wanted(), maximizer, record + kSectionMaximizer, dump,
        [=](const float *s) { return Maximizer_Init(s, bits, fs, ch, frames, link); }, Maximizer_SetPara,
        Maximizer_PrintPara);
}

void AudioPostState::set_eq_section(const float *eqSection)
{
    if (enable[kStageEq10] == 0)
        return;
    if (eq10)
        EQ10_SetPara(eq10, eqSection);
    else
        eq10 = EQ10_Init(eqSection, bitDepth, sampleRate, indexed_channels(), frameLen, channelLink);
}

// A stage whose creation failed (a live record with a bad bit depth) has no handle: it
// is skipped rather than called.
uint32_t AudioPostState::stages_to_run() const
{
    const bool runs[kStageCount] = {autoGain != nullptr, bassEnhancer != nullptr, exciter != nullptr,
                                    deEsser != nullptr,  eq10 != nullptr,         multiBandDrc != nullptr,
                                    maximizer != nullptr, maximizer != nullptr};
    uint32_t bits = 0;
    for (int s = 0; s < kStageCount; s++)
        if (enable[s] == 1 && runs[s])
            bits |= stage_bit(static_cast<ChainStage>(s));
    return bits;
}

int AudioPostState::process(const int16_t *in, int16_t *out, int swFrmLen)
{
    if (swFrmLen != frameLen) {
        log_line(site::kProcessFrameLen, "error, swFrmLen:%d != frameLen:%d\n\n", swFrmLen,
                 frameLen);
        fatal_exit();
    }
    // Noted before the output can overwrite the input (in place is allowed).
    pcm_peaks(in, channels, swFrmLen, inputPeak);
    const int ch = indexed_channels();
    if (ch == 2 && channels == 2) {
        pcm_to_channels(in, buffers[0], buffers[1], gainLin[0], gainLin[1], swFrmLen);
    } else {
        for (int c = 0; c < ch; c++)
            for (int i = 0; i < swFrmLen; i++)
                buffers[c][i] = static_cast<float>(in[static_cast<size_t>(i) * channels + c]) * gainLin[c];
    }

    float **b = buffers;
    stagesRun = stages_to_run();
    if (stagesRun & stage_bit(kStageAutoGain))
        AutoGain_Process(autoGain, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageBassEnhancer))
        BassEnhancer_Process(bassEnhancer, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageExciter))
        Exciter_Process(exciter, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageDeEsser))
        DeEsser_Process(deEsser, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageEq10))
        EQ10_Process(eq10, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageMultiBandDrc))
        MultiBandDRC_Process(multiBandDrc, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageAgc))
        Agc_Process(maximizer, b, b, swFrmLen);
    if (stagesRun & stage_bit(kStageMaximizer))
        Maximizer_Process(maximizer, b, b, swFrmLen);

    // Clamp to [-1 - FS, FS] (NaN goes to FS), truncate, keep the low 16 bits: 24- and
    // 32-bit records wrap here: the output is 16-bit whatever depth the stages measured in.
    const float low = -1.0f - fullScale;
    const float high = fullScale;
    if (ch == 2 && channels == 2) {
        channels_to_pcm(buffers[0], buffers[1], out, low, high, swFrmLen);
    } else {
        for (int c = 0; c < ch; c++)
            for (int i = 0; i < swFrmLen; i++)
                out[static_cast<size_t>(i) * channels + c] = to_pcm16(buffers[c][i], low, high);
    }
    // Channels a live record added beyond the allocation pass through untouched.
    for (int c = ch < 0 ? 0 : ch; c < channels; c++)
        for (int i = 0; i < swFrmLen; i++)
            out[static_cast<size_t>(i) * channels + c] = in[static_cast<size_t>(i) * channels + c];
    framesProcessed++;
    return wrapping_mul(wrapping_mul(frameLen, channels), 2);
}

int AudioPostState::set_para(const float *record, int swFrmLen)
{
    if (swFrmLen != frameLen) {
        log_line(site::kSetParaFrameLen, "error, swFrmLen is wrong!\n\n");
        fatal_exit();
    }
    // The header fields are taken before the version test, so even a rejected record
    // leaves them replaced.
    read_header(record);
    if (version_rejected(toolVersion)) {
        print_version_error(site::kSetParaVersion, toolVersion);
        return -1;
    }
    read_enables(record);
    read_pre_gains(record);
    sync_stages(record, swFrmLen, false);
    return 0;
}

int AudioPostState::get_para(float *record) const
{
    record[kWordSampleRate] = static_cast<float>(sampleRate);
    record[kWordBitDepth] = static_cast<float>(bitDepth);
    record[kWordChannelLink] = static_cast<float>(channelLink);
    record[kWordChannels] = static_cast<float>(channels);
    record[kWordToolVersion] = toolVersion;
    for (int s = 0; s < kStageCount; s++)
        record[kWordEnable + s] = static_cast<float>(enable[s]);
    // Always the five-word stride, linked or not.
    // Channels whose word would lie past the record are not written back.
    for (int c = 0; c < indexed_channels() && kWordPreGain + kPreGainStride * c < kRecordWords; c++)
        record[kWordPreGain + kPreGainStride * c] = gainDb[c];

    if (enable[kStageAutoGain] && autoGain)
        AutoGain_GetPara(autoGain, record + kSectionAutoGain);
    if (enable[kStageBassEnhancer] && bassEnhancer)
        BassEnhancer_GetPara(bassEnhancer, record + kSectionBassEnhancer);
    if (enable[kStageExciter] && exciter)
        Exciter_GetPara(exciter, record + kSectionExciter);
    if (enable[kStageDeEsser] && deEsser)
        DeEsser_GetPara(deEsser, record + kSectionDeEsser);
    if (enable[kStageEq10] && eq10) {
        if (eqSection) {
            std::memcpy(eqSection, record + kSectionEq10, kEqRecordWords * sizeof(float));
            EQ10_GetPara(eq10, eqSection);
            std::memcpy(record + kSectionEq10, eqSection, kEqRecordWords * sizeof(float));
        } else {
            EQ10_GetPara(eq10, record + kSectionEq10);
        }
    }
    if (enable[kStageMultiBandDrc] && multiBandDrc)
        MultiBandDRC_GetPara(multiBandDrc, record + kSectionMultiBandDrc);
    if (maximizer_wanted() && maximizer)
        Maximizer_GetPara(maximizer, record + kSectionMaximizer);
    return 0;
}

void AudioPostState::get_meters(AudioPostMeters *meters) const
{
    AudioPostMeters m{};
    m.frames = framesProcessed;
    m.stagesRun = stagesRun;
    m.frameLength = frameLen;
    const int ch = indexed_channels();
    m.channels = ch < 0 ? 0 : ch < EQDRC_METER_CHANNELS ? ch : EQDRC_METER_CHANNELS;
    // The buffers still hold the last frame as it went to the 16-bit words.
    const float low = -1.0f - fullScale, high = fullScale;
    for (int c = 0; c < m.channels; c++) {
        const int32_t outputPeak = pcm16_peak(buffers[c], frameLen, low, high);
        m.inputPeakDb[c] = meter_db(static_cast<float>(inputPeak[c]) / kFullScale16);
        m.outputPeakDb[c] = meter_db(static_cast<float>(outputPeak) / kFullScale16);
        // The stages keep their handles once created, so a stage that ran has one.
        if (stagesRun & stage_bit(kStageMultiBandDrc))
            for (int band = 0; band < EQDRC_METER_BANDS; band++)
                m.compressorGainDb[c][band] = meter_db(multiBandDrc->band_gain(c, band));
        if (stagesRun & stage_bit(kStageAgc))
            m.agcGainDb[c] = meter_db(maximizer->agc_gain(c));
        if (stagesRun & stage_bit(kStageMaximizer))
            m.limiterGainDb[c] = meter_db(maximizer->limiter_gain(c));
    }
    for (int c = m.channels; c < EQDRC_METER_CHANNELS; c++)
        m.inputPeakDb[c] = m.outputPeakDb[c] = EQDRC_METER_FLOOR_DB;
    if (stagesRun & stage_bit(kStageAutoGain))
        m.autoGainDb = meter_db(autoGain->currentGain);
    *meters = m;
}

void AudioPostState::destroy()
{
    std::free(gainDb);
    std::free(gainLin);
    std::free(eqSection);
    if (buffers) {
        for (int c = 0; c < allocatedChannels; c++)
            std::free(buffers[c]);
        std::free(buffers);
    }
    if (autoGain)
        AutoGain_Destroy(autoGain);
    if (bassEnhancer)
        BassEnhancer_Destroy(bassEnhancer);
    if (exciter)
        Exciter_Destroy(exciter);
    if (deEsser)
        DeEsser_Destroy(deEsser);
    if (eq10)
        EQ10_Destroy(eq10);
    if (multiBandDrc)
        MultiBandDRC_Destroy(multiBandDrc);
    if (maximizer)
        Maximizer_Destroy(maximizer);
    std::free(this);
}
