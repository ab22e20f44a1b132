// The tuning record's layout, read from tuning_layout.json (embedded at build time), so
// that the field names, offsets and kinds are written down once, as data.
#ifndef EQDRC_TOOL_LAYOUT_H
#define EQDRC_TOOL_LAYOUT_H

#include <array>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace eqdrc_tool {

// Every failure the tool reports: one line, already naming the file or field concerned.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The library's record size (EQDRC_RECORD_WORDS; check.cpp asserts they agree). Not taken
// from its header here: the tool's loudness code includes libebur128's header, whose
// functions share names with the library's meter.
constexpr int kRecordWords = 544;
constexpr size_t kRecordBytes = kRecordWords * 4;
using Record = std::array<float, kRecordWords>;

enum class Kind { Float, Int, Enum, Group };

// One node of the layout tree: a field (one word) or a group of nodes, possibly repeated.
struct Node {
    std::string name;
    int word = 0;    // relative to the enclosing node
    int count = 0;   // 0: not repeated; else a JSON array of `count` elements
    int stride = 0;  // words between repetitions
    Kind kind = Kind::Group;
    const std::vector<std::string> *labels = nullptr;  // Kind::Enum
    std::vector<Node> children;                         // Kind::Group
};

// One field of the record, flattened: its JSON path and its absolute word.
struct Field {
    std::string path;     // e.g. "eq10.channels[0].bands[3].fc"
    std::string section;  // top-level section, e.g. "eq10"
    int word = 0;
    Kind kind = Kind::Float;
    const std::vector<std::string> *labels = nullptr;
};

class Layout {
public:
    explicit Layout(const std::string &jsonText);
    Layout(const Layout &) = delete;  // fields point into the object
    Layout &operator=(const Layout &) = delete;
    static const Layout &embedded();  // the layout the tool was built with

    const std::string &format() const { return format_; }
    const std::vector<Node> &sections() const { return sections_; }
    const std::vector<Field> &fields() const { return fields_; }
    const Field *find(const std::string &path) const;
    int word(const std::string &path) const;  // throws Error for an unknown path
    // The field at a word, or null for a word no stage reads (kept in the raw block).
    const Field *field_at(int word) const { return byWord_[word]; }
    const std::vector<std::string> &labels(const std::string &enumName) const;

private:
    void flatten(const Node &node, int base, const std::string &prefix, const std::string &section);

    std::string format_;
    std::map<std::string, std::vector<std::string>> enums_;
    std::vector<Node> sections_;
    std::vector<Field> fields_;
    std::map<std::string, size_t> byPath_;
    std::array<const Field *, kRecordWords> byWord_{};
};

// Bits of a float word and back, and the shortest decimal text that reads back to it.
uint32_t float_bits(float v);
float bits_float(uint32_t bits);
std::string shortest_text(float v);  // "2", "-0.5", "nan(0x7fc00001)" ...

}  // namespace eqdrc_tool

#endif
