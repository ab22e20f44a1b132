/**
 * @file tqaudio_eqdrc.h
 * @brief EQ/DRC audio post-processing library: the whole public interface.
 *
 * A host builds one chain from a 544-word tuning record (2176 bytes, little-endian
 * float32), then hands it one frame of interleaved 16-bit PCM at a time.  The chain
 * runs, in this fixed order: auto gain, bass enhancer, exciter, de-esser, ten-band
 * equaliser, multi-band compressor, automatic gain control and maximizer.
 *
 * Conventions shared by every function below:
 * - Signals inside the library are planar float32 buffers in integer sample scale
 *   (a 16-bit sample of 1000 is 1000.0f).
 * - Times are milliseconds, frequencies Hz, levels dB relative to full scale.
 * - Stage handles are opaque; `_Destroy` returns -3 for a null handle and 0 otherwise.
 * - Messages go to standard error as "LOG (function(): ,line), text".
 * - Some misuse ends the process with exit status -1 on purpose (a wrong frame
 *   length, more than two channels, an unknown filter type, a frame longer than the
 *   loudness step, an adjust call for a stage that does not exist); those calls say so.
 * - Nothing is thread-safe: one chain or stage is used by one thread at a time, and
 *   parameter calls must come between frames.
 * - The caller's floating-point environment changes no bit: every call but the
 *   `_Destroy` calls computes in round-to-nearest with denormals kept (no flush-to-zero,
 *   no denormals-are-zero) and restores the caller's environment, status flags
 *   included, before it returns.
 *
 * Threads.  The library keeps no mutable state outside its objects: chains and stages
 * created on different threads run concurrently and give the same bits as one after
 * the other.  To retune a running stream, either make every call on the audio thread
 * between two AudioPost_Process calls, or let a control thread build the new record
 * and hand it over without a lock (the plugins' record hand-over does this); calling
 * into a chain from two threads at once, even to read it back, is a data race.
 * Creating a stage reads TQAUDIO_EQDRC_DUMP_CONF with getenv: a host must not change
 * the environment while another thread creates or retunes a chain.
 *
 * Real-time safety (no allocation, lock, I/O or sleep; bounded time):
 * - safe: AudioPost_Process and every stage's _Process; AudioPost_GetMeters;
 *   AudioPost_GetPara and every _GetPara and _GetData; AudioPost_EQ10_SetPara;
 *   AudioPost_SetPara and the stages' _SetPara when the record enables no stage that
 *   does not exist yet and keeps the auto gain's meter window and step; the four
 *   AudioPost_..._AdjustPara calls and the stages' _AdjustPara with values they
 *   accept.  A whole-record SetPara redesigns every filter and table: safe, but it
 *   costs about as much as fifteen frames of processing, so a host with little
 *   headroom spreads retunes out.
 * - not safe: every _Init, _Destroy and _PrintPara and AudioPost_InitByPath (allocate,
 *   print, read files); AudioPost_SetPara enabling a stage (creates it) or changing the
 *   loudness window or step (a new meter); an adjust or SetPara call given values it
 *   refuses, a wrong tool version, a compressor band out of range or a curve that is not
 *   monotonic, a compressor channel with more bands than it has slots (each writes a
 *   message to standard error, GetPara too); LevelDetector_SetPara (prints); any call
 *   that ends the process.
 */
#ifndef TQAUDIO_EQDRC_H
#define TQAUDIO_EQDRC_H

#include <stdint.h>

#ifndef EQDRC_API
#if defined(_WIN32)
#define EQDRC_API
#elif defined(__GNUC__)
#define EQDRC_API __attribute__((visibility("default")))
#else
#define EQDRC_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Number of float32 words in a tuning record. */
#define EQDRC_RECORD_WORDS 544

/* ===================================================================== */
/** @name The library itself
 *  Its version, the processing code that runs, and where its messages go. @{ */
/* ===================================================================== */

/**
 * The version of the library that is loaded (not of the header a host was built with).
 * @param major,minor,patch receive the numbers; any of them may be NULL.
 * @return the same version as text, "MAJOR.MINOR.PATCH"; static, never NULL.
 */
EQDRC_API const char *AudioPost_GetVersion(int *major, int *minor, int *patch);

/**
 * The processing code that runs in this process: "scalar", "sse2", "avx2" (x86-64, where
 * the library holds all three and takes the widest the CPU has when it is loaded, or the
 * one EQDRC_SIMD=scalar|sse2|avx2 names), "neon" (aarch64), or the target's own lane
 * code elsewhere.  Every one gives the same bits.
 * @return static text, never NULL.
 */
EQDRC_API const char *AudioPost_GetProcessingCode(void);

/**
 * Receives each of the library's messages instead of standard error, one call per
 * message: the "LOG (...), " prefix, the text and its final newline(s).
 * @param user   the pointer given to AudioPost_SetLogSink.
 * @param line   the message, NUL-terminated; valid during the call only.
 * @param length its length in bytes.
 */
typedef void (*AudioPostLogSink)(void *user, const char *line, int length);

/**
 * Routes the library's messages to `sink` (NULL: back to standard error, the default).
 * Set it once, before any chain or stage is created: the setting is not synchronised
 * with calls running on other threads.  Return values that count printed characters
 * (the _PrintPara calls) are the same whichever way the lines go.
 */
EQDRC_API void AudioPost_SetLogSink(AudioPostLogSink sink, void *user);
/** @} */

/* ===================================================================== */
/** @name Processing chain
 *  Create, run, retune and destroy the whole chain. @{ */
/* ===================================================================== */

/** The chain object. */
typedef struct AudioPostState AudioPostState;

/**
 * Create a chain from a tuning record in memory.
 * Prints the version banner, checks the record and creates every stage whose enable
 * word (10..17) is nonzero.  When the environment variable TQAUDIO_EQDRC_DUMP_CONF is
 * "true" (any case) each created stage prints its parameters.
 * @param pfPara   544 float32 words; read during the call only.
 * @param frameLen samples per channel in every later AudioPost_Process call.
 * @return the chain, or NULL for a null record, a tool version (word 4) further than
 *         0.0001 from 2.0, or a bit depth (word 1) other than 16, 24 or 32.
 */
EQDRC_API AudioPostState *AudioPost_Init(const float *pfPara, int frameLen);

/**
 * Create a chain from a record file: the bare 2176-byte image of the 544 words
 * (bytes beyond are ignored).
 * @return the chain, or NULL when the path is null, the file cannot be opened or is
 *         shorter than 2176 bytes, or AudioPost_Init rejects the record.
 */
EQDRC_API AudioPostState *AudioPost_InitByPath(const char *pfParaPath, int frameLen);

/**
 * Destroy a chain and every stage it owns.
 * @return 0, or -1 (after a message) for a null chain.
 */
EQDRC_API int AudioPost_Destroy(AudioPostState *st);

/**
 * Process one frame.
 * @param in       frameLen x channels interleaved int16 samples, always 16-bit.
 * @param out      room for as many samples; may be the same buffer as @p in.
 * @param reserved ignored.
 * @param swFrmLen must equal the frame length given at creation; any other value
 *                 ends the process with exit status -1.
 * @return the number of output bytes (frameLen x channels x 2), or -1 for a null chain.
 */
EQDRC_API int AudioPost_Process(AudioPostState *st, const int16_t *in, int16_t *out, int reserved,
                                int swFrmLen);

/**
 * Replace the whole tuning record while the stream runs.
 * Existing stages are retuned, newly enabled ones created, disabled ones kept but
 * skipped.  Words 0..4 are taken even from a record that is then rejected.  The record
 * must keep the channel count given at creation.
 * @param swFrmLen must equal the creation frame length, else the process ends (-1).
 * @return 0, or -1 for a null argument or a wrong tool version.
 */
EQDRC_API int AudioPost_SetPara(AudioPostState *st, const float *pfPara, int swFrmLen);

/**
 * Read the live record back into @p pfPara (544 words).  Words no stage reports
 * (5..9, 18, 19, unused pre-gain words, sections of disabled stages) are left as the
 * caller had them.
 * @return 0, or -1 for a null chain.
 */
EQDRC_API int AudioPost_GetPara(AudioPostState *st, float *pfPara);

/** Replace the equaliser's 100-word section (record words 100..199); does nothing
 *  while the equaliser is disabled, creates it on first use.  @return 0, or -1
 *  (without a message) for a null chain, as every pass-through below. */
EQDRC_API int AudioPost_EQ10_SetPara(AudioPostState *st, const float *eqSection);

/** Read the equaliser's section back.  Ends the process (-1) when the equaliser was
 *  never created.  @return 0. */
EQDRC_API int AudioPost_EQ10_GetPara(AudioPostState *st, float *eqSection);

/** Copy the equaliser's last input and output frame of every channel into the
 *  caller's buffers (channels pointers to frameLen floats each).  @return 0. */
EQDRC_API int AudioPost_EQ10_GetData(AudioPostState *st, float **inFrames, float **outFrames);

/** Move the compressor's crossover corners of channel @p ch (Hz); see
 *  MultiBandDRC_Crossover_AdjustPara.  Ends the process (-1) when the compressor does
 *  not exist.  @return 0. */
EQDRC_API int AudioPost_MultiBandDRC_Crossover_AdjustPara(AudioPostState *st, int ch, float lowEnd,
                                                          float highStart, float mid1Start,
                                                          float mid1End, float mid2Start, float mid2End);

/** Retune one compressor band; see MultiBandDRC_DRC_AdjustPara.  Ends the process (-1)
 *  when the compressor does not exist.  @return 0. */
EQDRC_API int AudioPost_MultiBandDRC_DRC_AdjustPara(AudioPostState *st, int ch, int band, int drc_enable,
                                                    float gain_dB, float compress_start, float expand_end,
                                                    float noise_threshold, float max_gain, float max_peak,
                                                    float attack_time, float release_time,
                                                    float hold_time);

/** Retune the limiter; see Maximizer_AdjustPara.  Ends the process (-1) when the
 *  maximizer does not exist.  @return 0. */
EQDRC_API int AudioPost_Maximizer_AdjustPara(AudioPostState *st, int channel, float max_threshold,
                                             float ceiling, float release);

/** Retune the automatic gain control; see Agc_AdjustPara.  Ends the process (-1) when
 *  the maximizer (which carries the AGC) does not exist.  @return 0. */
EQDRC_API int AudioPost_Agc_AdjustPara(AudioPostState *st, int channel, float compress_start,
                                       float expand_end, float noise_threshold, float max_gain,
                                       float max_peak, float attack_time, float release_time,
                                       float hold_time);
/** @} */

/* ===================================================================== */
/** @name Live meters
 *  What the chain did on its last frame, for a host's level and gain display. @{ */
/* ===================================================================== */

/** Channels and compressor bands AudioPostMeters holds values for. */
#define EQDRC_METER_CHANNELS 2
#define EQDRC_METER_BANDS 4
/** The lowest value a meter reads, in dB: silence, a zero gain and anything lower read
 *  this rather than minus infinity. */
#define EQDRC_METER_FLOOR_DB (-120.0f)

/** Bits of AudioPostMeters::stagesRun, one per stage in chain order (enable words
 *  10..17).  The AGC and the maximizer have a bit each although they share a record. */
#define EQDRC_STAGE_AUTO_GAIN 0x01u
#define EQDRC_STAGE_BASS_ENHANCER 0x02u
#define EQDRC_STAGE_EXCITER 0x04u
#define EQDRC_STAGE_DE_ESSER 0x08u
#define EQDRC_STAGE_EQ10 0x10u
#define EQDRC_STAGE_MULTIBAND_DRC 0x20u
#define EQDRC_STAGE_AGC 0x40u
#define EQDRC_STAGE_MAXIMIZER 0x80u

/**
 * The chain's meters after its last frame: a plain value of 88 bytes without pointers,
 * which a host may copy whole (memcpy, assignment) and hand to another thread.
 * Levels are dB relative to 16-bit full scale (a sample of -32768 is 0 dBFS); gains are
 * dB, 0 for no change.  Every dB value is at least EQDRC_METER_FLOOR_DB.  Entries of
 * channels at or beyond @c channels, of compressor bands a channel does not have or
 * whose dynamics are off, and of stages that did not run on the last frame read 0 dB
 * (peaks: the floor).  Before the first frame every peak reads the floor and every
 * gain 0 dB.
 */
typedef struct AudioPostMeters {
    uint64_t frames;      /**< frames processed since the chain was created */
    uint32_t stagesRun;   /**< EQDRC_STAGE_... bits of the stages the last frame ran */
    int32_t channels;     /**< channels metered: the chain's, at most EQDRC_METER_CHANNELS */
    int32_t frameLength;  /**< samples per channel in a frame */
    /** Largest sample magnitude of the last frame's input, as the host handed it in
     *  (before the pre-gain), dBFS. */
    float inputPeakDb[EQDRC_METER_CHANNELS];
    /** Largest sample magnitude of the last frame's output, dBFS. */
    float outputPeakDb[EQDRC_METER_CHANNELS];
    /** The auto gain's gain at the end of the last frame (one for every channel), dB. */
    float autoGainDb;
    /** Each compressor band's dynamic gain at the end of the last frame, dB, not counting
     *  the band's make-up gain: below 0 where the band reduces, above 0 where its curve
     *  lifts a quiet band.  Bands in the compressor's order: low, high, middle 1,
     *  middle 2 (a two-band channel has low and high, a three-band one adds middle 1). */
    float compressorGainDb[EQDRC_METER_CHANNELS][EQDRC_METER_BANDS];
    /** The AGC's gain at the end of the last frame, dB. */
    float agcGainDb[EQDRC_METER_CHANNELS];
    /** The limiter's gain at the end of the last frame, dB, not counting its make-up gain
     *  (ceiling - threshold): 0 while peaks stay below its knee, below 0 while it limits. */
    float limiterGainDb[EQDRC_METER_CHANNELS];
} AudioPostMeters;

/**
 * Read the chain's meters into @p out.  It reads what the last AudioPost_Process left
 * (stage gains, the output buffer) and the input peaks that call noted; a retune since
 * then shows in the gains it resets.  Reading changes no output bit, however often.
 * Real-time safe: no allocation, lock or I/O, a few microseconds (the output peak is
 * taken here, not per frame).
 * Threads: call it between frames on the thread that processes, as every call into a
 * chain; a reporting thread gets the values from a copy the audio thread hands over
 * (a double buffer or sequence counter of the host's own), never by calling it while
 * AudioPost_Process may run.
 * @param st  the chain.  @param out receives the meters; all of it is written.
 * @return 0, or -1 (without a message, nothing written) for a NULL argument.
 */
EQDRC_API int AudioPost_GetMeters(const AudioPostState *st, AudioPostMeters *out);
/** @} */

/* ===================================================================== */
/** @name Biquad section
 *  Coefficient records are five float32: b0, b1, b2, a1, a2 (a0 divided out). @{ */
/* ===================================================================== */

/** A biquad that owns its coefficients (5 words) and state (4 words, 2 used). */
typedef struct BiquadState {
    float *coeffs;
    float *state;
} BiquadState;

/** Filter one sample, transposed direct form II, with a caller-held state {z1, z2}.
 *  @return the output sample. */
EQDRC_API float update_biquad_filter(const float *coeffs, float *state, float x);

/** Create a biquad with zero coefficients and state. */
EQDRC_API BiquadState *biquad_init(void);

/** Free a biquad; NULL is accepted.  @return 0. */
EQDRC_API int biquad_destroy(BiquadState *b);

/** Clear the biquad's state. */
EQDRC_API void biquad_reset(BiquadState *b);

/** Copy five coefficients in; the state is kept.  @return 0 (no meaning). */
EQDRC_API int biquad_setCoefficients(BiquadState *b, const float coeffs[5]);

/** Filter one sample with the second-order section.  @return the output sample. */
EQDRC_API float biquad_processAudioSample(BiquadState *b, float x);

/** Filter one sample with the first-order form (b0, b1, a1 only).  @return the output. */
EQDRC_API float biquad_1st_processAudioSample(BiquadState *b, float x);
/** @} */

/* ===================================================================== */
/** @name Filter designer
 *  @{ */
/* ===================================================================== */

/** Filter type codes of filter_calculateCoeffs. */
enum EqdrcFilterType {
    Parametric = 0,    /**< peaking bell: q is Q (0.01..16), gain in dB */
    LowShelf = 1,      /**< low shelf: q is the slope S (0.01..2) */
    HighShelf = 2,     /**< high shelf: q is the slope S (0.01..2) */
    GeneralLP = 3,     /**< second-order low-pass with gain: q is Q (0.01..16) */
    GeneralHP = 4,     /**< second-order high-pass with gain: q is Q (0.01..16) */
    BandPass = 5,      /**< band-pass, 0 dB peak before gain: q is the width in octaves (0.01..11) */
    ButterworthLP = 6, /**< Butterworth low-pass (q ignored; use gain 0) */
    ButterworthHP = 7  /**< Butterworth high-pass (q ignored; use gain 0) */
};

/** Filter type codes run from 0 to EQDRC_FILTER_TYPE_COUNT - 1. */
#define EQDRC_FILTER_TYPE_COUNT 8
/** The designer's limits: q is raised to EQDRC_DESIGN_Q_MIN, and lowered to the type's
 *  maximum (Q for the peaking, general low- and high-pass types, slope S for the shelves,
 *  width in octaves for the band-pass); the gain is clamped to +-EQDRC_DESIGN_GAIN_MAX_DB. */
#define EQDRC_DESIGN_Q_MIN 0.01f
#define EQDRC_DESIGN_Q_MAX 16.0f
#define EQDRC_DESIGN_SLOPE_MAX 2.0f
#define EQDRC_DESIGN_OCTAVES_MAX 11.0f
#define EQDRC_DESIGN_GAIN_MAX_DB 20.0f

/**
 * Design one second-order section into coeffs[0..4] = b0, b1, b2, a1, a2.
 * @param type   an EqdrcFilterType; any other code ends the process (-1).
 * @param fs     sample rate, Hz.  @param fc corner or centre frequency, Hz.
 * @param q      quality, slope or width, clamped per type.
 * @param gainDb gain in dB, clamped to -20..+20.
 * fc at or above fs/2, fc = 0 or fs = 0 are not rejected and give non-finite values.
 */
EQDRC_API void filter_calculateCoeffs(float coeffs[5], int type, float fs, float fc, float q, float gainDb);

/**
 * The magnitude response of a section (as filter_calculateCoeffs designs it), in dB, at
 * each of `count` frequencies: for pictures, checks and fitting, so they need not restate
 * the section's formula.  Computed in double precision; it is not part of the audio path.
 * @param coeffs b0, b1, b2, a1, a2 (y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2).
 * @param fs     sample rate, Hz.  @param freqs the frequencies, Hz.
 * @param db     receives `count` values; a zero of the section gives -inf.
 */
EQDRC_API void filter_responseDb(const float coeffs[5], double fs, const double *freqs, double *db, int count);
/** @} */

/* ===================================================================== */
/** @name Crossover filter bank
 *  Splits each channel into 2..4 Linkwitz-Riley bands, one sample at a time.
 *  Outputs per channel: low, high, then band 2 and band 3 when present. @{ */
/* ===================================================================== */

/** Crossover settings. */
typedef struct CrossoverParam {
    int32_t bandMode; /**< extra band-pass bands: 0, 1 or 2 (2, 3 or 4 bands) */
    float freq[6];    /**< low LP, high HP, band 2 HP and LP, band 3 HP and LP corners, Hz */
} CrossoverParam;

/** The crossover object. */
typedef struct CrossoverState CrossoverState;

/** Allocate settings filled with the defaults (2 bands, 250/3000/250/1000/1000/3000 Hz);
 *  the caller frees them with free().  @return the record, or NULL. */
EQDRC_API CrossoverParam *Filters_Crossover_paramInit(void);

/** Create a crossover; a NULL @p param means the defaults. */
EQDRC_API CrossoverState *Filters_Crossover_filterInit(int sampleRate, int channels, const CrossoverParam *param);

/** Take the six corner frequencies (not the band mode), redesign and clear the memories. */
EQDRC_API void Filters_Crossover_filterSetParam(CrossoverState *st, const CrossoverParam *param);

/** Filter one sample per channel: @p in holds channels samples, @p out receives
 *  channels x bands samples. */
EQDRC_API void Filters_Crossover_filterProcess(CrossoverState *st, const float *in, float *out);

/** Free a crossover.  @return 0, or -3 for NULL. */
EQDRC_API int Filters_Crossover_filterDestroy(CrossoverState *st);
/** @} */

/* ===================================================================== */
/** @name Gain-curve tables
 *  Static curves in dB relative to full scale and the 201-entry table lookup. @{ */
/* ===================================================================== */

/** Expander / constant gain / compressor curve: output level (dB) for input level @p x.
 *  Returns 0.0 for knee < 1. */
EQDRC_API float table_caculate(int knee, float x, float noise_threshold, float expand_end,
                               float compress_start, float max_gain, float max_peak);

/** Limiter curve: output level (dB) for input level @p x.  Returns 0.0 for knee < 1. */
EQDRC_API float max_table_caculate(int knee, float x, float threshold);

/** Nearest-entry lookup of a gain table whose entry 0 stands for @p x0 dB, with
 *  @p scale entries per dB; levels below x0 take entry 0, above the grid entry
 *  @p last_index.  @return the linear gain. */
EQDRC_API float table_search(int last_index, const float *table, float level, float x0, float scale);
/** @} */

/* ===================================================================== */
/** @name Ten-band equaliser
 *  Section: 100 words, two channel blocks of ten bands x {enable, type, fc, Q, boost}. @{ */
/* ===================================================================== */

typedef struct EQ10State EQ10State;

/** Create the equaliser; a NULL section leaves every band off (pass-through). */
EQDRC_API EQ10State *EQ10_Init(const float *section, int bitDepth, int sampleRate, int channels,
                               int frameLen, int link);
/** Equalise one frame in place or from @p in to @p out (channels pointers each);
 *  @p frameLen must not exceed the creation frame length. */
EQDRC_API void EQ10_Process(EQ10State *st, float **in, float **out, int frameLen);
/** Replace all band settings; filter memories are kept. */
EQDRC_API void EQ10_SetPara(EQ10State *st, const float *section);
/** Write the band settings of every channel back into a section. */
EQDRC_API void EQ10_GetPara(EQ10State *st, float *section);
/** Copy the last input and output frame of each channel (frameLen floats each). */
EQDRC_API void EQ10_GetData(EQ10State *st, float **inFrames, float **outFrames);
/** Print the settings to standard error.  @return a character count (no meaning). */
EQDRC_API int EQ10_PrintPara(EQ10State *st);
/** @return 0, or -3 for NULL. */
EQDRC_API int EQ10_Destroy(EQ10State *st);
/** @} */

/* ===================================================================== */
/** @name Multi-band compressor
 *  Section: 200 words, two channel blocks of 100: band count at word 0, band groups
 *  of twelve words at 10 (low), 70 (high), 30 (middle 1), 50 (middle 2). @{ */
/* ===================================================================== */

typedef struct MultiBandDRCState MultiBandDRCState;

/** Create the compressor.  More than two channels end the process (-1).
 *  @return the handle, or NULL for a bit depth other than 16/24/32. */
EQDRC_API MultiBandDRCState *MultiBandDRC_Init(const float *section, int bitDepth, int sampleRate,
                                               int channels, int link);
/** Compress one frame. */
EQDRC_API void MultiBandDRC_Process(MultiBandDRCState *st, float **in, float **out, int frameLen);
/** Replace every band; keep the band counts given at creation or lower them. */
EQDRC_API void MultiBandDRC_SetPara(MultiBandDRCState *st, const float *section);
/** Read the settings back (the gain_dB and drc_enable words are not written). */
EQDRC_API void MultiBandDRC_GetPara(MultiBandDRCState *st, float *section);
/** Print the settings to standard error.  @return a character count (no meaning). */
EQDRC_API int MultiBandDRC_PrintPara(MultiBandDRCState *st);
/** @return 0, or -3 for NULL. */
EQDRC_API int MultiBandDRC_Destroy(MultiBandDRCState *st);
/** Move the crossover corners (Hz) of channel @p ch, or of every channel when linked. */
EQDRC_API void MultiBandDRC_Crossover_AdjustPara(MultiBandDRCState *st, int ch, float lowEnd, float highStart,
                                                 float mid1Start, float mid1End, float mid2Start,
                                                 float mid2End);
/** Retune band @p band of channel @p ch (or of every channel when linked): curve in dB,
 *  times in ms (truncated). */
EQDRC_API void MultiBandDRC_DRC_AdjustPara(MultiBandDRCState *st, int ch, int band, int drc_enable,
                                           float gain_dB, float compress_start, float expand_end,
                                           float noise_threshold, float max_gain, float max_peak,
                                           float attack_time, float release_time, float hold_time);
/**
 * The static curve of band @p band of channel @p ch, as its gain table holds it: the gain
 * in dB the band applies at each detector level (dB relative to full scale).  The band's
 * make-up gain (gain_dB) comes on top; the detector sees the band after it.  For
 * pictures and checks: real-time safe, changes nothing.
 * @return the knee width in dB around expand_end and compress_start, or -1 (nothing
 *         written) for a NULL state or a channel or band the stage does not run.
 */
EQDRC_API int MultiBandDRC_GetCurve(const MultiBandDRCState *st, int ch, int band, const float *levelDb,
                                    float *gainDb, int count);
/** @} */

/* ===================================================================== */
/** @name Maximizer and automatic gain control
 *  One state serves both.  Section: 20 words per channel: max_threshold, ceiling,
 *  release, compress_start, expand_end, noise_threshold, max_gain, max_peak,
 *  attack_time, release_time, hold_time. @{ */
/* ===================================================================== */

typedef struct MaximizerState MaximizerState;

/** Create the maximizer/AGC state; a NULL section takes built-in defaults.  More than
 *  two channels end the process (-1).  @return NULL for a bad bit depth. */
EQDRC_API MaximizerState *Maximizer_Init(const float *section, int bit_rate, int sampleRate, int channels,
                                         int frameLen, int channelLink);
/** Limit one frame. */
EQDRC_API void Maximizer_Process(MaximizerState *state, float **in, float **out, int frameLen);
/** @return 0, or -3 for NULL. */
EQDRC_API int Maximizer_Destroy(MaximizerState *state);
/** Replace all AGC and limiter values; resets the AGC gain to 1. */
EQDRC_API void Maximizer_SetPara(MaximizerState *state, const float *section);
/** Write the values back (words 0..10, and 20..30 for a second channel). */
EQDRC_API void Maximizer_GetPara(const MaximizerState *state, float *section);
/** Print the values to standard error.  @return a character count (no meaning). */
EQDRC_API int Maximizer_PrintPara(const MaximizerState *state);
/** Replace the limiter's threshold and ceiling (dB) and release (ms). */
EQDRC_API void Maximizer_AdjustPara(MaximizerState *state, int channel, float max_threshold, float ceiling,
                                    float release);
/** Level one frame towards the AGC curve. */
EQDRC_API void Agc_Process(MaximizerState *state, float **in, float **out, int frameLen);
/** Replace the AGC curve (dB) and times (ms); resets the AGC gain to 1. */
EQDRC_API void Agc_AdjustPara(MaximizerState *state, int channel, float compress_start, float expand_end,
                              float noise_threshold, float max_gain, float max_peak, float attack_time,
                              float release_time, float hold_time);
/** The AGC's static curve for channel @p channel: the gain in dB its table gives at each
 *  level (dB relative to full scale).  @return the knee width in dB around expand_end
 *  and compress_start, or -1 (nothing written) for a NULL state or a channel it lacks. */
EQDRC_API int Agc_GetCurve(const MaximizerState *state, int channel, const float *levelDb, float *gainDb,
                           int count);
/** The limiter's static curve for channel @p channel: the gain in dB its table gives at
 *  each frame peak (dB relative to full scale), make-up included.  @return the knee width
 *  in dB around max_threshold, or -1 (nothing written) for a NULL state or a channel it
 *  lacks. */
EQDRC_API int Maximizer_GetCurve(const MaximizerState *state, int channel, const float *levelDb, float *gainDb,
                                 int count);
/** @} */

/* ===================================================================== */
/** @name Level detector
 *  Stand-alone ten-band meter of the first channel of interleaved int16 frames. @{ */
/* ===================================================================== */

typedef struct LevelDetectorState LevelDetectorState;

/** Result: band frequencies (Hz) and levels (dB re full scale), truncated to integers. */
typedef struct LevelDetectorResult {
    int16_t freq[10];
    int16_t level[10];
} LevelDetectorResult;

/** Create the detector with its default bands (31 Hz .. 16 kHz) and 200 ms times. */
EQDRC_API LevelDetectorState *LevelDetector_Init(int bit_rate, int sampleRate, int channels, int frameLen);
/** Set the rise, hold and decay times (ms) and, unless @p bands is NULL, the ten
 *  frequency/Q pairs.  @return the creation frame length. */
EQDRC_API int LevelDetector_SetPara(LevelDetectorState *state, const float *bands, float rmstc,
                                    float hold_time, float decay_time);
/** Measure @p n frames.  @return n. */
EQDRC_API int LevelDetector_Process(LevelDetectorState *state, const int16_t *pcm, int n);
/** Read the result.  @return the creation frame length. */
EQDRC_API int LevelDetector_GetRes(const LevelDetectorState *state, LevelDetectorResult *out);
/** @return 0, or -3 for NULL. */
EQDRC_API int LevelDetector_Destroy(LevelDetectorState *state);
/** @} */

/* ===================================================================== */
/** @name Loudness meter
 *  K-weighted, gated loudness in LUFS over a sliding window evaluated every step.
 *  ebur128_init and ebur128_destroy share their names (not their arguments) with the
 *  independent libebur128: a program linking both must make sure each call binds to
 *  the library it means (e.g. look one up with dlsym in its own library handle). @{ */
/* ===================================================================== */

typedef struct Ebur128State Ebur128State;

/** Create a meter.  @return NULL for a bit depth other than 16/24/32. */
EQDRC_API Ebur128State *ebur128_init(int bits, int sampleRate, int channels, int windowMs, int stepMs);
/** Feed one frame of planar buffers.  @return 0 (no meaning). */
EQDRC_API int ebur128_addframes(Ebur128State *state, float **channels, int frameLen);
/** @return the gated loudness in LUFS, or -1000.0 when nothing was measured. */
EQDRC_API float ebur128_gatedloudness(Ebur128State *state);
/** Free a meter; NULL is accepted. */
EQDRC_API void ebur128_destroy(Ebur128State *state);
/** @} */

/* ===================================================================== */
/** @name Enhancement stages
 *  Auto gain (5 words), bass enhancer (10 words per channel), exciter (5 per channel)
 *  and de-esser (5 per channel).  Each _Init returns NULL for a bad bit depth; the
 *  bass enhancer, exciter and de-esser end the process (-1) for more than two channels;
 *  AutoGain_Process ends it when a frame is longer than the loudness step. @{ */
/* ===================================================================== */

typedef struct AutoGainState AutoGainState;
typedef struct BassEnhancerState BassEnhancerState;
typedef struct ExciterState ExciterState;
typedef struct DeEsserState DeEsserState;

/** Create the auto gain: target (LUFS), attack and release (ms), meter window and step (ms). */
EQDRC_API AutoGainState *AutoGain_Init(const float *section, int bits, int sampleRate, int channels,
                                       int frameLen);
EQDRC_API void AutoGain_Process(AutoGainState *st, float **in, float **out, int frameLen);
/** Retune; a changed window or step restarts the meter and the gains. */
EQDRC_API void AutoGain_SetPara(AutoGainState *st, const float *section);
EQDRC_API void AutoGain_GetPara(AutoGainState *st, float *section);
EQDRC_API int AutoGain_PrintPara(AutoGainState *st);
EQDRC_API int AutoGain_Destroy(AutoGainState *st);

/** Create the bass enhancer: amount (dB), drive, blend, freq (Hz), floor flag, floor (Hz). */
EQDRC_API BassEnhancerState *BassEnhancer_Init(const float *section, int bits, int sampleRate, int channels,
                                               int link);
EQDRC_API void BassEnhancer_Process(BassEnhancerState *st, float **in, float **out, int frameLen);
/** Retune; filters and DC blocker restart from rest. */
EQDRC_API void BassEnhancer_SetPara(BassEnhancerState *st, const float *section);
EQDRC_API void BassEnhancer_GetPara(BassEnhancerState *st, float *section);
EQDRC_API int BassEnhancer_PrintPara(BassEnhancerState *st);
EQDRC_API int BassEnhancer_Destroy(BassEnhancerState *st);

/** Create the exciter: even harmonics offset, distortion amount, cutoff (Hz), mix (0..1). */
EQDRC_API ExciterState *Exciter_Init(const float *section, int bits, int sampleRate, int channels, int link);
EQDRC_API void Exciter_Process(ExciterState *st, float **in, float **out, int frameLen);
/** Retune; filters restart from rest. */
EQDRC_API void Exciter_SetPara(ExciterState *st, const float *section);
EQDRC_API void Exciter_GetPara(ExciterState *st, float *section);
EQDRC_API int Exciter_PrintPara(ExciterState *st);
EQDRC_API int Exciter_Destroy(ExciterState *st);

/** Create the de-esser: f0 (Hz) and threshold (dBFS) per channel. */
EQDRC_API DeEsserState *DeEsser_Init(const float *section, int bits, int sampleRate, int channels, int frameLen,
                                     int link);
EQDRC_API void DeEsser_Process(DeEsserState *st, float **in, float **out, int frameLen);
/** Retune; filters and gain restart. */
EQDRC_API void DeEsser_SetPara(DeEsserState *st, const float *section);
/** Read back words 5 and 6 only: the others are the caller's to keep. */
EQDRC_API void DeEsser_GetPara(DeEsserState *st, float *section);
EQDRC_API int DeEsser_PrintPara(DeEsserState *st);
EQDRC_API int DeEsser_Destroy(DeEsserState *st);
/** @} */

#ifdef __cplusplus
}
#endif

#endif /* TQAUDIO_EQDRC_H */
