// Tuning files: the 2176-byte record image and its JSON form, and the conversions
// between them. Binary -> JSON -> binary gives back the same bytes for every record.
#ifndef EQDRC_TOOL_TUNING_H
#define EQDRC_TOOL_TUNING_H

#include <nlohmann/json.hpp>
#include <string>

#include "layout.h"
#include "output_file.h"

namespace eqdrc_tool {

using OrderedJson = nlohmann::ordered_json;

// The JSON form: one object per section, named fields, per-channel arrays, and a "raw"
// object holding every non-zero word no field covers (keyed by word index).
OrderedJson record_to_json(const Record &rec, const Layout &layout = Layout::embedded());
// Missing fields are 0; unknown fields, wrong shapes and unreadable values throw Error
// naming the field. Keys starting with '_' are comments and are ignored.
Record record_from_json(const OrderedJson &doc, const Layout &layout = Layout::embedded());

// The JSON text: objects and arrays of plain values on one line (an EQ band, a pair of
// pre-gains), everything else indented.
std::string format_json(const OrderedJson &doc);

// A record as JSON text, and a JSON text read as a tuning: the one writer and reader of
// tuning text, for the tool's files and everyone who must match them. Unreadable text
// throws Error "not valid JSON: ..."; a wrong field, as record_from_json.
std::string record_to_json_text(const Record &rec);
Record record_from_json_text(const std::string &text);

// One field's value as JSON and back. Values a JSON number cannot carry exactly
// (NaN, infinities, negative zero) are hex strings of their bits, e.g. "0x80000000".
OrderedJson encode_value(float v, Kind kind, const std::vector<std::string> *labels);
float decode_value(const OrderedJson &j, Kind kind, const std::vector<std::string> *labels,
                   const std::string &path);

// The record image: 544 little-endian float32 words.
Record record_from_bytes(const std::string &bytes);
std::string record_to_bytes(const Record &rec);

// Reads a tuning file, JSON (first non-blank character '{') or binary. Throws Error
// with the file name and the problem.
Record read_tuning(const std::string &path);
// The same for a file's bytes already read; `name` names it in messages.
Record tuning_from_bytes(const std::string &bytes, const std::string &name);
bool is_json_text(const std::string &bytes);
std::string read_file(const std::string &path);

}  // namespace eqdrc_tool

#endif
