// A stage's parameter print-out (its _PrintPara): a title line, a rule, then per channel
// (or band) a heading and one "name:value" line per parameter, all through the log
// prefix under the stage's _PrintPara name.  Line numbers are given for the title and
// for each heading; every other line takes the next number after the one before it.
#ifndef EQDRC_CORE_PRINT_OUT_H
#define EQDRC_CORE_PRINT_OUT_H

#include <cstdint>

#include "core/log.h"

namespace eqdrc {

constexpr const char *kPrintRule = "=====================\n";
// Heading marks: "==== channel:0 ====" or "---- channel:0 ----".
constexpr const char *kEquals = "====";
constexpr const char *kDashes = "----";

class PrintOut {
public:
    // Prints the title at `title` and the rule on the line after it.
    PrintOut(LogSite title, const char *text, const char *rule = kPrintRule);

    // "MARK label:index MARK" at `site`.
    void heading(LogSite site, const char *mark, const char *label, int index);
    // The next line is printed at `site`.
    void skip_to(LogSite site) { next_ = site.line; }
    void value(const char *name, float v);     // name:%.2f
    void value(const char *name, int32_t v);   // name:%i
    void precise(const char *name, float v);   // name:%f
    void text(const char *name, const char *v);  // name:%s

    // Characters written by all lines, and by the last one: the two results stages give.
    int total() const { return total_; }
    int last() const { return last_; }

private:
    void count(int written);

    LogSite at() const { return {function_, next_}; }

    const char *function_;
    int next_;
    int total_ = 0;
    int last_ = 0;
};

}  // namespace eqdrc

#endif
