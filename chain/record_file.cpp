#include "chain/record_file.h"

#include <cstdio>
#include <cstdlib>

#include "chain/chain_log.h"
#include "core/alloc.h"
#include "core/log.h"
#include "core/record.h"

namespace eqdrc {
RecordFile RecordFile::read(const char *path)
{
    RecordFile file;
    FILE *f = std::fopen(path, "rb");
    if (f == nullptr) {
        log_line(site::kInitByPathOpen, "error (%s) - fopen pfParaPath: %s failed\n\n", site::kInitByPathOpen.function,
                 path);
        return file;
    }
    file.words = zeroed<float>(kRecordWords);
    if (file.words == nullptr) {
        log_line(site::kInitByPathAlloc, "error (%s) - alloc pfPara failed\n\n", site::kInitByPathAlloc.function);
        std::fclose(f);
        return file;
    }
    if (std::fread(file.words, sizeof(float), kRecordWords, f) < static_cast<size_t>(kRecordWords)) {
        log_line(site::kInitByPathRead, "error (%s) - fread pfPara failed\n\n", site::kInitByPathRead.function);
        std::free(file.words);
        file.words = nullptr;
    }
    std::fclose(f);
    return file;
}

RecordFile::~RecordFile() { std::free(words); }

}  // namespace eqdrc
