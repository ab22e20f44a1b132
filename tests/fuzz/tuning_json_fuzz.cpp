// JSON tunings as users write them: the parser, then the layout's reading of every
// field (record_from_json).  A tuning that reads must write back to JSON text that
// reads to the same record bits, and pass the check without crashing.
#include <cstdint>
#include <cstring>
#include <string>

#include "check.h"
#include "tuning.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace eqdrc_tool;
    const std::string text(reinterpret_cast<const char *>(data), size);
    const OrderedJson doc = OrderedJson::parse(text, nullptr, false);
    if (doc.is_discarded())
        return 0;
    Record rec;
    try {
        rec = record_from_json(doc);
    } catch (const Error &) {
        return 0;  // refused with a message naming the field: what users should see
    }
    const std::string again = format_json(record_to_json(rec));
    const Record back = record_from_json(OrderedJson::parse(again));
    if (std::memcmp(back.data(), rec.data(), kRecordBytes) != 0)
        __builtin_trap();  // the JSON form lost or changed a word
    for (const Issue &issue : check_tuning(rec, 768))
        (void)format_issue(issue);
    return 0;
}
