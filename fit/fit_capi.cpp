// The C interface of libtqeqdrc_fit.so, through which the Python package fits a tuning
// with what `eqdrc fit` runs: the same option reader, measurement reader and fit, so the
// same input gives the same tuning, bit for bit. The caller reads the files (an impulse
// response needs the tool's audio reader and is not taken here).
#include <cstddef>
#include <cstring>
#include <nlohmann/json.hpp>

#include "c_text.h"
#include "fit_tuning.h"
#include "options.h"

#define FIT_API extern "C" __attribute__((visibility("default")))

using eqdrc_tool::deliver;

namespace {

// Messages quote the measurement's lines, which need not be UTF-8.
std::string dump(const nlohmann::json &doc)
{
    return doc.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

// Fits the EQ to `length` bytes of measurement text (a two- or three-column export, as
// `eqdrc fit` reads a text file) named `name` in messages.
// request: the command's options as it types them, each optional with its default:
// {"target": "flat" | "tilt:DB_PER_OCTAVE" | a target file's name, "target_text": that
// file's text, "range": "80-16000", "smooth": "1/6", "q": "0.3-6", "channel": "both",
// "bands": 10, "max_boost": 6, "max_cut": 12}.
// base: the tuning whose other stages are kept (544 words), or NULL for the neutral one.
// result: {"tuning": TEXT, "report": TEXT, "summary": LINE}, the files and the line `eqdrc
// fit` writes, or {"error": LINE} with the tool's message for a refused measurement,
// target, option or base.
// Returns the size the result needs (larger than `size`: call again), or -1 for a
// malformed request.
FIT_API int tqeqdrc_fit(const char *measurement, size_t length, const char *name, const char *request,
                        const float *base, char *result, size_t size)
{
    using namespace eqdrc_tool;
    if (!measurement || !name)
        return -1;
    eqdrc_fit::FitRequest asked;
    try {
        asked = eqdrc_fit::FitRequest::from_json(nlohmann::json::parse(request));
    } catch (const std::exception &) {
        return -1;
    }

    nlohmann::json doc;
    try {
        const eqdrc_fit::FitOptions options = eqdrc_fit::read_options(asked.options);
        const eqdrc_fit::Target t = asked.read_target();
        Record rec = eqdrc_fit::neutral_tuning();
        if (base)
            std::memcpy(rec.data(), base, kRecordBytes);
        const eqdrc_fit::FitResult r = eqdrc_fit::fit_tuning(
            eqdrc_fit::parse_curve(std::string(measurement, length), name), name, t, options, rec);
        doc = {{"tuning", record_to_json_text(r.tuning)}, {"report", format_json(r.report)}, {"summary", r.summary}};
    } catch (const std::exception &e) {  // the tool's one line
        doc = {{"error", e.what()}};
    }
    return deliver(dump(doc), result, size);
}
