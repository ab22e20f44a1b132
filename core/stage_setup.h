// The checks every stage's set-up starts with, their messages, and what a refused
// creation returns.
#ifndef EQDRC_CORE_STAGE_SETUP_H
#define EQDRC_CORE_STAGE_SETUP_H

#include "core/log.h"
#include "core/scale.h"

namespace eqdrc {

// A stage whose per-channel values live in fixed arrays ends the process when asked for
// more channels than they hold.
inline void require_channels(LogSite site, int channels, int maxChannels)
{
    if (channels > maxChannels) {
        log_line(site, "Too Many Channel!\n\n");
        fatal_exit();
    }
}

// Full scales for `bits` (16, 24 or 32); any other depth is reported and gives false.
inline bool scale_or_report(LogSite site, int bits, BitDepthScale *out)
{
    if (scale_for_bits(bits, out))
        return true;
    log_line(site, "bit_rate is wrong!\n");
    return false;
}

// A creation refused after its record was allocated (a bad bit depth; for the chain,
// also a bad tool version) returns nullptr and leaves the record allocated.  That is
// deliberate: it is the behaviour callers were built against and may rely on, and the
// leak checkers' suppressions name exactly these records (README, "Robustness").  The
// record is passed only to say which one stays.
template <class Record>
inline Record *refuse_keeping_record(Record * /*record*/)
{
    return nullptr;
}

}  // namespace eqdrc

#endif
