#include "core/print_out.h"

#include "core/log.h"

namespace eqdrc {

PrintOut::PrintOut(LogSite title, const char *text, const char *rule) : function_(title.function), next_(title.line)
{
    count(log_line(at(), "%s", text));
    count(log_line(at(), "%s", rule));
}

void PrintOut::count(int written)
{
    total_ += written;
    last_ = written;
    next_++;
}

void PrintOut::heading(LogSite site, const char *mark, const char *label, int index)
{
    next_ = site.line;
    count(log_line(at(), "%s %s:%i %s\n", mark, label, index, mark));
}

void PrintOut::value(const char *name, float v) { count(log_line(at(), "%s:%.2f\n", name, static_cast<double>(v))); }

void PrintOut::value(const char *name, int32_t v) { count(log_line(at(), "%s:%i\n", name, v)); }

void PrintOut::precise(const char *name, float v) { count(log_line(at(), "%s:%f\n", name, static_cast<double>(v))); }

void PrintOut::text(const char *name, const char *v) { count(log_line(at(), "%s:%s\n", name, v)); }

}  // namespace eqdrc
