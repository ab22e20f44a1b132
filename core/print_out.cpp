#include "core/print_out.h"

#include "core/log.h"

namespace eqdrc {

PrintOut::PrintOut(const char *function, int titleLine, const char *title, const char *rule)
    : function_(function), next_(titleLine)
{
    count(log_line(function_, next_, "%s", title));
    count(log_line(function_, next_, "%s", rule));
}

void PrintOut::count(int written)
{
    total_ += written;
    last_ = written;
    next_++;
}

void PrintOut::heading(int line, const char *mark, const char *label, int index)
{
    next_ = line;
    count(log_line(function_, next_, "%s %s:%i %s\n", mark, label, index, mark));
}

void PrintOut::value(const char *name, float v) { count(log_line(function_, next_, "%s:%.2f\n", name, static_cast<double>(v))); }

void PrintOut::value(const char *name, int32_t v) { count(log_line(function_, next_, "%s:%i\n", name, v)); }

void PrintOut::precise(const char *name, float v) { count(log_line(function_, next_, "%s:%f\n", name, static_cast<double>(v))); }

void PrintOut::text(const char *name, const char *v) { count(log_line(function_, next_, "%s:%s\n", name, v)); }

}  // namespace eqdrc
