#include "layout.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>

#include "tuning_layout_text.h"  // generated: kTuningLayoutJson

namespace eqdrc_tool {

using nlohmann::json;

namespace {

Kind kind_of(const std::string &s)
{
    if (s == "float")
        return Kind::Float;
    if (s == "int")
        return Kind::Int;
    if (s == "enum")
        return Kind::Enum;
    throw Error("tuning layout: unknown kind '" + s + "'");
}

}  // namespace

Layout::Layout(const std::string &text)
{
    json doc = json::parse(text);
    format_ = doc.at("format").get<std::string>();
    if (doc.at("record_words").get<int>() != kRecordWords)
        throw Error("tuning layout: record_words is not 544");
    for (auto &[name, labels] : doc.at("enums").items())
        enums_[name] = labels.get<std::vector<std::string>>();
    const json &templates = doc.at("templates");

    // Templates are resolved here, so the tree below is self-contained.
    std::function<Node(const json &)> build = [&](const json &j) {
        Node n;
        n.name = j.at("name").get<std::string>();
        n.word = j.at("word").get<int>();
        n.count = j.value("count", 0);
        n.stride = j.value("stride", 0);
        if (j.contains("kind")) {
            n.kind = kind_of(j.at("kind").get<std::string>());
            if (n.kind == Kind::Enum)
                n.labels = &labels(j.at("enum").get<std::string>());
        } else {
            const json &list = j.contains("template") ? templates.at(j.at("template").get<std::string>())
                                                      : j.at("fields");
            for (const json &child : list)
                n.children.push_back(build(child));
        }
        return n;
    };
    for (const json &s : doc.at("sections"))
        sections_.push_back(build(s));

    for (const Node &s : sections_)
        flatten(s, 0, "", s.name);
    for (size_t i = 0; i < fields_.size(); ++i) {
        const Field &f = fields_[i];
        if (f.word < 0 || f.word >= kRecordWords)
            throw Error("tuning layout: " + f.path + " lies outside the record");
        if (byWord_[f.word])
            throw Error("tuning layout: " + f.path + " and " + byWord_[f.word]->path + " share word " +
                        std::to_string(f.word));
        byWord_[f.word] = &f;
        byPath_[f.path] = i;
    }
}

void Layout::flatten(const Node &node, int base, const std::string &prefix, const std::string &section)
{
    std::string path = prefix.empty() ? node.name : prefix + "." + node.name;
    int start = base + node.word;
    int copies = node.count ? node.count : 1;
    for (int k = 0; k < copies; ++k) {
        std::string p = node.count ? path + "[" + std::to_string(k) + "]" : path;
        int w = start + k * node.stride;
        if (node.kind == Kind::Group) {
            for (const Node &c : node.children)
                flatten(c, w, p, section);
        } else {
            fields_.push_back(Field{p, section, w, node.kind, node.labels});
        }
    }
}

const Layout &Layout::embedded()
{
    static const Layout layout(kTuningLayoutJson);
    return layout;
}

const Field *Layout::find(const std::string &path) const
{
    auto it = byPath_.find(path);
    return it == byPath_.end() ? nullptr : &fields_[it->second];
}

int Layout::word(const std::string &path) const
{
    const Field *f = find(path);
    if (!f)
        throw Error("tuning layout has no field " + path);
    return f->word;
}

const std::vector<std::string> &Layout::labels(const std::string &enumName) const
{
    auto it = enums_.find(enumName);
    if (it == enums_.end())
        throw Error("tuning layout: unknown enum '" + enumName + "'");
    return it->second;
}

uint32_t float_bits(float v)
{
    uint32_t b;
    std::memcpy(&b, &v, 4);
    return b;
}

float bits_float(uint32_t b)
{
    float v;
    std::memcpy(&v, &b, 4);
    return v;
}

std::string shortest_text(float v)
{
    char buf[48];
    if (std::isnan(v)) {
        std::snprintf(buf, sizeof buf, "nan(0x%08x)", float_bits(v));
        return buf;
    }
    // %g would write 20 as 2e+01; whole numbers read best without an exponent.
    if (std::isfinite(v) && v == std::trunc(v) && std::fabs(v) < 1e16f) {
        std::snprintf(buf, sizeof buf, "%.0f", static_cast<double>(v));
        return std::signbit(v) && v == 0.0f ? "-0" : buf;
    }
    for (int precision = 1; precision <= 9; ++precision) {
        std::snprintf(buf, sizeof buf, "%.*g", precision, static_cast<double>(v));
        if (float_bits(std::strtof(buf, nullptr)) == float_bits(v))
            break;
    }
    return buf;
}

}  // namespace eqdrc_tool
