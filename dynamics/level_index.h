// Picks a gain-table entry straight from a detector value, without the per-sample
// logarithm.  A detector turns its value e into a level in dB (e -> log10f(e + 1) ->
// minus full scale -> times a positive constant) and the level into the nearest of the
// table's entries; every step is monotone non-decreasing for e >= 0 (IEEE add, subtract
// and multiply by a positive constant are, round-half-up and the clamps are, and the
// log10f in use is, which the tests check over every float >= 1).  So the entry of e is
// the number of breakpoints at or below e, where breakpoint i is the smallest e >= 0
// whose entry is at least i: found once, when the parameters are set, by bisection over
// the float bit patterns with the detector's own computation.  Values below zero and
// NaN are left to that computation.
#ifndef EQDRC_DYNAMICS_LEVEL_INDEX_H
#define EQDRC_DYNAMICS_LEVEL_INDEX_H

#include "dynamics/gain_table.h"

namespace eqdrc {

struct LevelIndex {
    // edge[i], i = 1..kGainTableLast: breakpoint i, or NaN where no value reaches entry
    // i (then none reaches a later one).  edge[0] = 0 and the last word is NaN, so that
    // entry i covers [edge[i], edge[i + 1]) for every i.
    float edge[kGainTableSize + 1];
    // False when a breakpoint failed its check: the detector must compute every entry.
    bool exact;

    // `entryOf(ctx, e)` is the detector's own entry for a value e >= 0.
    typedef int (*EntryOf)(const void *ctx, float e);
    void build(EntryOf entryOf, const void *ctx);

    // The entry of e >= 0 (an exact index only).
    int find(float e) const;
    // The same, walking from `entry` (0..kGainTableLast): a detector moves a few entries
    // at a time.  The entry is the last edge at or below e: edges rise, edge[0] = 0 <= e
    // and the NaN after the last entry stops the climb.
    int find_from(float e, int entry) const
    {
        while (e >= edge[entry + 1])
            entry++;
        while (!(e >= edge[entry]))
            entry--;
        return entry;
    }
};

// The entry gain_table_lookup picks for `level` on the grid {x0, scale}.
int gain_table_entry(float level, float x0, float scale);

}  // namespace eqdrc

#endif
