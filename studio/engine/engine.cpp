// The studio's tuning engine: the tool's own tuning code (reading, JSON text, check,
// adapting to a stream) behind a few C entry points for the page. Results are JSON
// text owned by the engine until the next call; the record is edited in place by the
// page through studio_record().
#include <emscripten/emscripten.h>

#include <string>
#include <vector>

#include "adapt.h"
#include "check.h"
#include "tuning.h"
#include "tqaudio_eqdrc.h"
#include "tuning_layout_text.h"  // generated: kTuningLayoutJson

using namespace eqdrc_tool;
using nlohmann::json;

namespace {

Record g_record{};
Record g_adapted{};
std::string g_result;

const char *result(const json &j)
{
    g_result = j.dump();
    return g_result.c_str();
}

json issues_json(const std::vector<Issue> &issues)
{
    json list = json::array();
    for (const Issue &i : issues)
        list.push_back({{"severity", i.severity == Severity::Error ? "error" : "warning"},
                        {"path", i.path},
                        {"message", i.message},
                        {"text", format_issue(i)}});
    return list;
}

}  // namespace

extern "C" {

EMSCRIPTEN_KEEPALIVE const char *studio_layout() { return kTuningLayoutJson; }

// The designer's type codes run from 0 to this minus one (the library's header says so).
EMSCRIPTEN_KEEPALIVE int studio_filter_type_count() { return EQDRC_FILTER_TYPE_COUNT; }

EMSCRIPTEN_KEEPALIVE float *studio_record() { return g_record.data(); }

EMSCRIPTEN_KEEPALIVE float *studio_adapted() { return g_adapted.data(); }

// Reads the tuning file at `path` (the engine's in-memory file system) into the record,
// with the tool's messages: {"ok":true} or {"ok":false,"error":"..."}.
EMSCRIPTEN_KEEPALIVE const char *studio_read(const char *path)
{
    try {
        g_record = read_tuning(path);
        return result({{"ok", true}});
    } catch (const Error &e) {
        return result({{"ok", false}, {"error", e.what()}});
    }
}

// The record as `eqdrc tuning decompile` writes it.
EMSCRIPTEN_KEEPALIVE const char *studio_json()
{
    g_result = format_json(record_to_json(g_record));
    return g_result.c_str();
}

// The record image as `eqdrc tuning compile` writes it (kRecordBytes bytes).
EMSCRIPTEN_KEEPALIVE const char *studio_bytes()
{
    g_result = record_to_bytes(g_record);
    return g_result.data();
}

// What `eqdrc tuning check --frame N` reports: a JSON list of issues.
EMSCRIPTEN_KEEPALIVE const char *studio_check(int frameLen)
{
    return result(issues_json(check_tuning(g_record, frameLen)));
}

// The record made to fit a stream, as `eqdrc process` does, into studio_adapted():
// {"notes":[...],"issues":[...],"errors":N}.
EMSCRIPTEN_KEEPALIVE const char *studio_adapt(int sampleRate, int channels, int frameLen)
{
    std::vector<std::string> notes;
    g_adapted = adapt_tuning(g_record, sampleRate, channels, {}, notes);
    std::vector<Issue> issues = check_tuning(g_adapted, frameLen);
    return result({{"notes", notes}, {"issues", issues_json(issues)}, {"errors", count_errors(issues)}});
}

}  // extern "C"
