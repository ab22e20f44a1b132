#include "tuning.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace eqdrc_tool {

namespace {

// Integers up to 2^24 are exact in float32, so they are written as JSON integers.
constexpr float kExactIntegerLimit = 16777216.0f;

bool is_plain_integer(float v)
{
    return std::isfinite(v) && v == std::trunc(v) && std::fabs(v) <= kExactIntegerLimit &&
           !(v == 0.0f && std::signbit(v));
}

std::string hex_bits(float v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", float_bits(v));
    return buf;
}

void to_json_node(const Node &node, const Record &rec, int base, OrderedJson &parent)
{
    int start = base + node.word;
    auto one = [&](int w) -> OrderedJson {
        if (node.kind != Kind::Group)
            return encode_value(rec[w], node.kind, node.labels);
        OrderedJson obj = OrderedJson::object();
        for (const Node &c : node.children)
            to_json_node(c, rec, w, obj);
        return obj;
    };
    if (!node.count) {
        parent[node.name] = one(start);
        return;
    }
    OrderedJson arr = OrderedJson::array();
    for (int k = 0; k < node.count; ++k)
        arr.push_back(one(start + k * node.stride));
    parent[node.name] = arr;
}

void from_json_node(const Node &node, const OrderedJson &value, int base, const std::string &path,
                    Record &rec)
{
    int start = base + node.word;
    auto one = [&](const OrderedJson &v, int w, const std::string &p) {
        if (node.kind != Kind::Group) {
            rec[w] = decode_value(v, node.kind, node.labels, p);
            return;
        }
        if (!v.is_object())
            throw Error(p + ": expected an object of fields");
        for (auto &[key, child] : v.items()) {
            if (!key.empty() && key[0] == '_')
                continue;
            auto it = std::find_if(node.children.begin(), node.children.end(),
                                   [&name = key](const Node &c) { return c.name == name; });
            if (it == node.children.end())
                throw Error(p + ": unknown field '" + key + "'");
            from_json_node(*it, child, w, p + "." + key, rec);
        }
    };
    if (!node.count) {
        one(value, start, path);
        return;
    }
    if (!value.is_array() || static_cast<int>(value.size()) != node.count)
        throw Error(path + ": expected an array of " + std::to_string(node.count) + " entries (one per " +
                    (node.count == 2 ? "channel" : "element") + ")");
    for (int k = 0; k < node.count; ++k)
        one(value[k], start + k * node.stride, path + "[" + std::to_string(k) + "]");
}

bool flat(const OrderedJson &j)
{
    for (const auto &v : j)
        if (v.is_structured())
            return false;
    return true;
}

void format_into(const OrderedJson &j, int indent, std::string &out)
{
    constexpr size_t kLineLimit = 110;
    if (!j.is_structured()) {
        out += j.dump();
        return;
    }
    bool object = j.is_object();
    const char *open = object ? "{" : "[";
    const char *close = object ? "}" : "]";
    if (j.empty()) {
        out += std::string(open) + close;
        return;
    }
    if (flat(j)) {
        std::string line = open;
        bool first = true;
        for (auto it = j.begin(); it != j.end(); ++it) {
            line += first ? "" : ", ";
            first = false;
            if (object)
                line += OrderedJson(it.key()).dump() + ": ";
            line += it.value().dump();
        }
        line += close;
        if (line.size() + static_cast<size_t>(indent) <= kLineLimit) {
            out += line;
            return;
        }
    }
    std::string pad(static_cast<size_t>(indent) + 2, ' ');
    out += open;
    bool first = true;
    for (auto it = j.begin(); it != j.end(); ++it) {
        out += first ? "\n" : ",\n";
        first = false;
        out += pad;
        if (object)
            out += OrderedJson(it.key()).dump() + ": ";
        format_into(it.value(), indent + 2, out);
    }
    out += "\n" + std::string(static_cast<size_t>(indent), ' ') + close;
}

}  // namespace

std::string format_json(const OrderedJson &doc)
{
    std::string out;
    format_into(doc, 0, out);
    return out + "\n";
}

OrderedJson encode_value(float v, Kind kind, const std::vector<std::string> *labels)
{
    if (kind == Kind::Enum && labels && is_plain_integer(v) && v >= 0.0f && v < static_cast<float>(labels->size()))
        return (*labels)[static_cast<size_t>(v)];
    if ((kind == Kind::Int || kind == Kind::Enum) && is_plain_integer(v))
        return static_cast<int64_t>(v);
    if (!std::isfinite(v) || (v == 0.0f && std::signbit(v)))
        return hex_bits(v);
    // The shortest decimal is the readable form; fall back to the exact double when a
    // decimal would round differently through double on its way back to float.
    double d = std::strtod(shortest_text(v).c_str(), nullptr);
    if (float_bits(static_cast<float>(d)) != float_bits(v))
        d = static_cast<double>(v);
    return d;
}

float decode_value(const OrderedJson &j, Kind kind, const std::vector<std::string> *labels,
                   const std::string &path)
{
    // Unsigned first: the JSON library counts unsigned numbers as integers too, and
    // reading one above 2^63 - 1 as int64_t would wrap it negative.
    if (j.is_number_unsigned())
        return static_cast<float>(j.get<uint64_t>());
    if (j.is_number_integer())
        return static_cast<float>(j.get<int64_t>());
    if (j.is_number_float())
        return static_cast<float>(j.get<double>());
    if (j.is_string()) {
        const std::string s = j.get<std::string>();
        if (kind == Kind::Enum && labels) {
            for (size_t i = 0; i < labels->size(); ++i)
                if (strcasecmp((*labels)[i].c_str(), s.c_str()) == 0)
                    return static_cast<float>(i);
        }
        if (s.size() > 2 && s.size() <= 10 && (s.compare(0, 2, "0x") == 0 || s.compare(0, 2, "0X") == 0) &&
            s.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos)
            return bits_float(static_cast<uint32_t>(std::strtoul(s.c_str() + 2, nullptr, 16)));
        if (s == "inf" || s == "+inf")
            return INFINITY;
        if (s == "-inf")
            return -INFINITY;
        if (s == "nan")
            return NAN;
        std::string hint = kind == Kind::Enum && labels ? " (a filter type name or code, e.g. \"Parametric\")" : "";
        throw Error(path + ": cannot read \"" + s + "\" as a value" + hint);
    }
    throw Error(path + ": expected a number, found " + std::string(j.type_name()));
}

OrderedJson record_to_json(const Record &rec, const Layout &layout)
{
    OrderedJson doc = OrderedJson::object();
    doc["format"] = layout.format();
    for (const Node &s : layout.sections())
        to_json_node(s, rec, 0, doc);
    OrderedJson raw = OrderedJson::object();
    for (int w = 0; w < kRecordWords; ++w)
        if (!layout.field_at(w) && float_bits(rec[w]) != 0)
            raw[std::to_string(w)] = encode_value(rec[w], Kind::Float, nullptr);
    doc["raw"] = raw;
    return doc;
}

Record record_from_json(const OrderedJson &doc, const Layout &layout)
{
    Record rec{};
    if (!doc.is_object())
        throw Error("expected a JSON object with the tuning's sections");
    for (auto &[key, value] : doc.items()) {
        if (!key.empty() && key[0] == '_')
            continue;
        if (key == "format") {
            if (value != layout.format())
                throw Error("format: expected \"" + layout.format() + "\"");
            continue;
        }
        if (key == "raw") {
            if (!value.is_object())
                throw Error("raw: expected an object of word index: value");
            for (auto &[index, v] : value.items()) {
                char *end = nullptr;
                long w = std::strtol(index.c_str(), &end, 10);
                if (index.empty() || *end || w < 0 || w >= kRecordWords)
                    throw Error("raw: '" + index + "' is not a word index 0-543");
                if (const Field *f = layout.field_at(static_cast<int>(w)))
                    throw Error("raw: word " + index + " is the field " + f->path + "; set it there");
                rec[w] = decode_value(v, Kind::Float, nullptr, "raw." + index);
            }
            continue;
        }
        auto it = std::find_if(layout.sections().begin(), layout.sections().end(),
                               [&name = key](const Node &n) { return n.name == name; });
        if (it == layout.sections().end())
            throw Error("unknown section '" + key + "'");
        from_json_node(*it, value, 0, key, rec);
    }
    return rec;
}

std::string record_to_json_text(const Record &rec)
{
    return format_json(record_to_json(rec));
}

Record record_from_json_text(const std::string &text)
{
    OrderedJson doc;
    try {
        doc = OrderedJson::parse(text);
    } catch (const nlohmann::json::parse_error &e) {
        std::string what = e.what();
        // Drop the library's "[json.exception.parse_error.101] " tag.
        size_t tag = what.find("] ");
        throw Error("not valid JSON: " + (tag == std::string::npos ? what : what.substr(tag + 2)));
    }
    return record_from_json(doc);
}

Record record_from_bytes(const std::string &bytes)
{
    Record rec{};
    for (int w = 0; w < kRecordWords; ++w) {
        const unsigned char *p = reinterpret_cast<const unsigned char *>(bytes.data()) + 4 * w;
        rec[w] = bits_float(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
    }
    return rec;
}

std::string record_to_bytes(const Record &rec)
{
    std::string bytes(kRecordBytes, '\0');
    for (int w = 0; w < kRecordWords; ++w) {
        uint32_t b = float_bits(rec[w]);
        for (int i = 0; i < 4; ++i)
            bytes[4 * w + i] = static_cast<char>((b >> (8 * i)) & 0xff);
    }
    return bytes;
}

std::string read_file(const std::string &path)
{
    struct stat st;
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw Error(path + ": is a folder, not a file");
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw Error(path + ": cannot open: " + std::strerror(errno));
    std::ostringstream ss;
    ss << in.rdbuf();
    if (in.bad())
        throw Error(path + ": read error");
    return ss.str();
}

bool is_json_text(const std::string &bytes)
{
    size_t i = bytes.find_first_not_of(" \t\r\n");
    return i != std::string::npos && bytes[i] == '{';
}

Record tuning_from_bytes(const std::string &bytes, const std::string &name)
{
    if (is_json_text(bytes)) {
        try {
            return record_from_json_text(bytes);
        } catch (const Error &e) {
            throw Error(name + ": " + e.what());
        }
    }
    if (bytes.size() != kRecordBytes)
        throw Error(name + ": " + std::to_string(bytes.size()) +
                    " bytes; a tuning is a JSON file or a 2176-byte record (544 float32 words)");
    return record_from_bytes(bytes);
}

Record read_tuning(const std::string &path) { return tuning_from_bytes(read_file(path), path); }

}  // namespace eqdrc_tool
