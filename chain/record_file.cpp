#include "chain/record_file.h"

#include <cstdio>
#include <cstdlib>

#include "core/alloc.h"
#include "core/log.h"
#include "core/record.h"

namespace eqdrc {
namespace {

// Log line numbers hosts and tests know these messages by.
constexpr int kLineOpen = 230;
constexpr int kLineAlloc = 236;
constexpr int kLineRead = 242;

}  // namespace

RecordFile RecordFile::read(const char *function, const char *path)
{
    RecordFile file;
    FILE *f = std::fopen(path, "rb");
    if (f == nullptr) {
        log_line(function, kLineOpen, "error (%s) - fopen pfParaPath: %s failed\n\n", function, path);
        return file;
    }
    file.words = zeroed<float>(kRecordWords);
    if (file.words == nullptr) {
        log_line(function, kLineAlloc, "error (%s) - alloc pfPara failed\n\n", function);
        std::fclose(f);
        return file;
    }
    if (std::fread(file.words, sizeof(float), kRecordWords, f) < static_cast<size_t>(kRecordWords)) {
        log_line(function, kLineRead, "error (%s) - fread pfPara failed\n\n", function);
        std::free(file.words);
        file.words = nullptr;
    }
    std::fclose(f);
    return file;
}

RecordFile::~RecordFile() { std::free(words); }

}  // namespace eqdrc
