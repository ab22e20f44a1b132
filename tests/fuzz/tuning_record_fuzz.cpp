// Binary records as users hand them to `eqdrc tuning check` and to the plugins: the
// check, and the plugins' fitting of a record to a stream (adapt, then check), for a
// frame length, rate and channel count taken from the input's first bytes.
#include <cstdint>
#include <cstring>
#include <string>

#include "check.h"
#include "tuning.h"
#include "tuning_source.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace eqdrc_tool;
    constexpr size_t kHead = 4;
    if (size < kHead)
        return 0;
    const int frameLen = 1 + (data[0] | (data[1] & 0x0f) << 8);  // 1..4096
    static const int kRates[] = {8000, 16000, 22050, 44100, 48000, 96000, 192000, 0};
    const int rate = kRates[data[2] & 7];
    const int channels = data[3] % 4;
    // The record image: the rest, cut or zero-padded to 2176 bytes as a short file reads.
    std::string bytes(reinterpret_cast<const char *>(data + kHead), size - kHead);
    bytes.resize(kRecordBytes, '\0');
    const Record rec = record_from_bytes(bytes);
    for (const Issue &issue : check_tuning(rec, frameLen))
        (void)format_issue(issue);
    if (record_to_bytes(rec) != bytes)
        __builtin_trap();
    Record fitted;
    std::string error;
    const bool adapt = data[2] & 8;
    if (eqdrc_plugin::fit_tuning(rec, "fuzz", rate, channels, adapt, frameLen, fitted, error) && !error.empty())
        __builtin_trap();  // accepted, yet with a refusal message
    (void)eqdrc_plugin::tuning_format(rec);
    return 0;
}
