// Live meters in a small memory-mapped file: a plugin's reporting thread publishes the
// chain's meters there about twenty times a second, and any number of readers (the
// `eqdrc serve` and `eqdrc meters` commands) copy them without a lock or a message.
//
// The file (native byte order, 132 bytes), in 32-bit words:
//   0      magic 0x544d5145 ("EQMT" read as a little-endian word)
//   1      format version, 1
//   2      payload words, 29
//   3      sequence counter: 0 before the first reading, odd while a reading is written
//   4..32  the reading (meter_reading_to_words): frames (2 words, low first), stagesRun,
//          channels, frameLength, inputPeakDb[2], outputPeakDb[2], autoGainDb,
//          compressorGainDb[2][4], agcGainDb[2], limiterGainDb[2], handoverFrame (2),
//          handovers (2), sampleRate, publishedMs (2); floats as their IEEE-754 bits
// Words 3.. are a SequenceSlot: a reader retries while the counter is odd or changes.
// The writer makes the whole file under a temporary name in the same folder and renames
// it into place, so a reader never sees a half-written header; the header never changes
// afterwards. A new writer replaces the file (a new inode), and the file stays when the
// writer goes, its publishedMs telling how old it is.
#ifndef EQDRC_PLUGIN_METER_FILE_H
#define EQDRC_PLUGIN_METER_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <tqaudio_eqdrc.h>

#include "sequence_slot.h"

namespace eqdrc_plugin {

struct MeterReading {
    AudioPostMeters meters{};             // the chain's meters after its last frame
    long long handoverFrame = -1;         // index of the first frame run with the last handed-over tuning; -1: none yet
    unsigned long long handovers = 0;     // tuning hand-overs so far
    int sampleRate = 0;
    unsigned long long publishedMs = 0;   // CLOCK_REALTIME, milliseconds, when the reporting thread wrote it
};

// A reading as the 32-bit words of a SequenceSlot: the file's payload, and the slot the
// audio thread fills in process. No allocation.
constexpr size_t kMeterReadingWords = (sizeof(AudioPostMeters) + 8 + 8 + 4 + 8) / 4;
using MeterSlot = SequenceSlot<kMeterReadingWords>;
void meter_reading_to_words(const MeterReading &r, uint32_t (&words)[kMeterReadingWords]);
MeterReading meter_reading_from_words(const uint32_t (&words)[kMeterReadingWords]);

class MeterFileWriter {   // used by the plugins' reporting thread
public:
    // Null and a one-line error naming the path on failure.
    static std::unique_ptr<MeterFileWriter> create(const std::string &path, std::string &error);
    ~MeterFileWriter();
    MeterFileWriter(const MeterFileWriter &) = delete;
    MeterFileWriter &operator=(const MeterFileWriter &) = delete;
    void publish(const MeterReading &r);  // sequence-counter write into the mapping; no allocation

private:
    explicit MeterFileWriter(void *mapping) : mapping_(mapping) {}
    void *mapping_;
};

class MeterFileReader {   // used by `eqdrc serve` and `eqdrc meters`
public:
    explicit MeterFileReader(std::string path);
    ~MeterFileReader();
    MeterFileReader(const MeterFileReader &) = delete;
    MeterFileReader &operator=(const MeterFileReader &) = delete;
    // A consistent reading: true when the file exists, is a meter file of this format and a
    // complete reading was copied (retrying a bounded number of times while a write is under way).
    // Reopens the file when it appeared, was replaced (other inode) or was missing before.
    // `why` receives the reason of a false, without the path.
    bool read(MeterReading &out, std::string *why = nullptr);

private:
    bool open(std::string &why);
    void close();

    std::string path_;
    const void *mapping_ = nullptr;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

// One reading as a JSON object text (keys: frames, channels, frameLength, stagesRun, inputPeakDb[], outputPeakDb[],
// autoGainDb, compressorGainDb[[4] per channel], agcGainDb[], limiterGainDb[], handoverFrame, handovers, sampleRate,
// publishedMs), only the metered channels in the arrays.
std::string meter_reading_json(const MeterReading &r);

}  // namespace eqdrc_plugin

#endif
