#include "meter_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

namespace eqdrc_plugin {

namespace {

constexpr uint32_t kMagic = 0x544d5145;  // "EQMT" in a little-endian file
constexpr uint32_t kVersion = 1;
// A write is a few dozen stores: a reader meeting one that long is looking at a writer
// that stopped half-way.
constexpr int kReadAttempts = 1000;

struct FileLayout {
    uint32_t magic;
    uint32_t version;
    uint32_t payloadWords;
    MeterSlot slot;
};
static_assert(sizeof(FileLayout) == (3 + 1 + kMeterReadingWords) * sizeof(uint32_t), "the file is whole words");
static_assert(sizeof(AudioPostMeters) == 88, "the payload lists every field of the meters");

// Calls `f` on every field of a reading in payload order; each is 4 or 8 bytes.
template <class Reading, class F>
void each_field(Reading &r, F &&f)
{
    auto &m = r.meters;
    f(m.frames);
    f(m.stagesRun);
    f(m.channels);
    f(m.frameLength);
    for (auto &v : m.inputPeakDb)
        f(v);
    for (auto &v : m.outputPeakDb)
        f(v);
    f(m.autoGainDb);
    for (auto &channel : m.compressorGainDb)
        for (auto &v : channel)
            f(v);
    for (auto &v : m.agcGainDb)
        f(v);
    for (auto &v : m.limiterGainDb)
        f(v);
    f(r.handoverFrame);
    f(r.handovers);
    f(r.sampleRate);
    f(r.publishedMs);
}

// The field's bits as one word, or two with the low one first.
struct PutWords {
    uint32_t *at;
    template <class T>
    void operator()(const T &v)
    {
        static_assert(sizeof(T) == 4 || sizeof(T) == 8, "fields are 32 or 64 bits");
        if constexpr (sizeof(T) == 4) {
            std::memcpy(at++, &v, 4);
        } else {
            uint64_t u;
            std::memcpy(&u, &v, 8);
            *at++ = static_cast<uint32_t>(u);
            *at++ = static_cast<uint32_t>(u >> 32);
        }
    }
};

struct GetWords {
    const uint32_t *at;
    template <class T>
    void operator()(T &v)
    {
        if constexpr (sizeof(T) == 4) {
            std::memcpy(&v, at++, 4);
        } else {
            const uint64_t u = at[0] | static_cast<uint64_t>(at[1]) << 32;
            at += 2;
            std::memcpy(&v, &u, 8);
        }
    }
};

}  // namespace

void meter_reading_to_words(const MeterReading &r, uint32_t (&words)[kMeterReadingWords])
{
    PutWords put{words};
    each_field(r, put);
    assert(put.at == words + kMeterReadingWords);
}

MeterReading meter_reading_from_words(const uint32_t (&words)[kMeterReadingWords])
{
    MeterReading r;
    GetWords get{words};
    each_field(r, get);
    return r;
}

// ---- writer ----

std::unique_ptr<MeterFileWriter> MeterFileWriter::create(const std::string &path, std::string &error)
{
    uint32_t initial[sizeof(FileLayout) / sizeof(uint32_t)] = {kMagic, kVersion, kMeterReadingWords};
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        error = path + ": cannot create the meter file: " + std::strerror(errno);
        return nullptr;
    }
    void *mapping = MAP_FAILED;
    const char *failed = nullptr;
    if (::fchmod(fd, 0644) != 0)  // mkostemp makes 0600: readers may run as other users
        failed = "cannot set its mode";
    else if (::write(fd, initial, sizeof initial) != static_cast<ssize_t>(sizeof initial))
        failed = "cannot write it";
    else if ((mapping = ::mmap(nullptr, sizeof(FileLayout), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)) == MAP_FAILED)
        failed = "cannot map it";
    else if (::rename(temporary.c_str(), path.c_str()) != 0)
        failed = "cannot rename it into place";
    const int err = errno;
    ::close(fd);
    if (failed) {
        if (mapping != MAP_FAILED)
            ::munmap(mapping, sizeof(FileLayout));
        ::unlink(temporary.c_str());
        error = path + ": " + failed + ": " + std::strerror(err);
        return nullptr;
    }
    return std::unique_ptr<MeterFileWriter>(new MeterFileWriter(mapping));
}

MeterFileWriter::~MeterFileWriter() { ::munmap(mapping_, sizeof(FileLayout)); }

void MeterFileWriter::publish(const MeterReading &r)
{
    uint32_t words[kMeterReadingWords];
    meter_reading_to_words(r, words);
    static_cast<FileLayout *>(mapping_)->slot.write(words);
}

// ---- reader ----

MeterFileReader::MeterFileReader(std::string path) : path_(std::move(path)) {}

MeterFileReader::~MeterFileReader() { close(); }

void MeterFileReader::close()
{
    if (mapping_)
        ::munmap(const_cast<void *>(mapping_), sizeof(FileLayout));
    mapping_ = nullptr;
}

bool MeterFileReader::open(std::string &why)
{
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        why = std::strerror(errno);
        return false;
    }
    struct stat st {};
    uint32_t header[3] = {};
    const bool headed = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                        ::pread(fd, header, sizeof header, 0) == static_cast<ssize_t>(sizeof header);
    if (!headed || header[0] != kMagic) {
        why = "not a meter file";
    } else if (header[1] != kVersion || header[2] != kMeterReadingWords ||
               st.st_size != static_cast<off_t>(sizeof(FileLayout))) {
        why = "a meter file of format version " + std::to_string(header[1]) + " with " + std::to_string(header[2]) +
              " payload words; this reader takes version " + std::to_string(kVersion) + " with " +
              std::to_string(kMeterReadingWords);
    } else {
        void *m = ::mmap(nullptr, sizeof(FileLayout), PROT_READ, MAP_SHARED, fd, 0);
        if (m == MAP_FAILED)
            why = std::string("cannot map it: ") + std::strerror(errno);
        else
            mapping_ = m;
    }
    ::close(fd);
    device_ = st.st_dev;
    inode_ = st.st_ino;
    return mapping_ != nullptr;
}

bool MeterFileReader::read(MeterReading &out, std::string *why)
{
    std::string reason;
    struct stat st {};
    uint32_t words[kMeterReadingWords];
    if (::stat(path_.c_str(), &st) != 0) {
        reason = std::strerror(errno);
        close();
    } else if (mapping_ && (st.st_dev != device_ || st.st_ino != inode_)) {
        close();
    }
    if (reason.empty() && (mapping_ || open(reason))) {
        const MeterSlot &slot = static_cast<const FileLayout *>(mapping_)->slot;
        if (!slot.written())
            reason = "no reading published yet";
        else if (!slot.read(words, kReadAttempts))
            reason = "a write was under way at every attempt";
    }
    if (!reason.empty()) {
        if (why)
            *why = reason;
        return false;
    }
    out = meter_reading_from_words(words);
    return true;
}

// ---- JSON ----

std::string meter_reading_json(const MeterReading &r)
{
    // Floats kept as floats, so that each prints in its shortest form (-3.2, not -3.2000000476837158).
    using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, std::int64_t,
                                      std::uint64_t, float>;
    const AudioPostMeters &m = r.meters;
    const int channels = std::clamp(static_cast<int>(m.channels), 0, EQDRC_METER_CHANNELS);
    auto per_channel = [&](const float *values) { return Json(std::vector<float>(values, values + channels)); };
    Json compressor = Json::array();
    for (int c = 0; c < channels; c++)
        compressor.push_back(std::vector<float>(std::begin(m.compressorGainDb[c]), std::end(m.compressorGainDb[c])));
    Json j;
    j["frames"] = m.frames;
    j["channels"] = m.channels;
    j["frameLength"] = m.frameLength;
    j["stagesRun"] = m.stagesRun;
    j["inputPeakDb"] = per_channel(m.inputPeakDb);
    j["outputPeakDb"] = per_channel(m.outputPeakDb);
    j["autoGainDb"] = m.autoGainDb;
    j["compressorGainDb"] = compressor;
    j["agcGainDb"] = per_channel(m.agcGainDb);
    j["limiterGainDb"] = per_channel(m.limiterGainDb);
    j["handoverFrame"] = r.handoverFrame;
    j["handovers"] = r.handovers;
    j["sampleRate"] = r.sampleRate;
    j["publishedMs"] = r.publishedMs;
    return j.dump();
}

}  // namespace eqdrc_plugin
