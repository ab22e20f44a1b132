// A tuning record read from its file: the bare image of the 544 words.
#ifndef EQDRC_CHAIN_RECORD_FILE_H
#define EQDRC_CHAIN_RECORD_FILE_H

namespace eqdrc {

// Owns a zero-filled record read from a file (for AudioPost_InitByPath); `words` is null
// when the read failed, after its message.
class RecordFile {
public:
    static RecordFile read(const char *path);
    ~RecordFile();
    RecordFile(RecordFile &&other) noexcept : words(other.words) { other.words = nullptr; }
    RecordFile(const RecordFile &) = delete;
    RecordFile &operator=(const RecordFile &) = delete;
    RecordFile &operator=(RecordFile &&) = delete;

    float *words = nullptr;

private:
    RecordFile() = default;
};

}  // namespace eqdrc

#endif
