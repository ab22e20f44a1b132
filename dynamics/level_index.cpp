// Breakpoints of a detector's gain-table entries.
#include "dynamics/level_index.h"

#include "core/numeric.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace eqdrc {
namespace {

constexpr uint32_t kPositiveInfinityBits = 0x7f800000u;


// Entry i holds i, so a lookup in it returns the entry it picked.
struct IdentityTable {
    float entry[kGainTableSize];
};

constexpr IdentityTable make_identity()
{
    IdentityTable t{};
    for (int i = 0; i < kGainTableSize; i++)
        t.entry[i] = static_cast<float>(i);
    return t;
}

constexpr IdentityTable kIdentity = make_identity();

}  // namespace

int gain_table_entry(float level, float x0, float scale)
{
    return static_cast<int>(gain_table_lookup(kGainTableLast, kIdentity.entry, level, x0, scale));
}

// Non-negative floats are ordered as their bit patterns, so each breakpoint is a
// bisection over integers between the previous breakpoint and +inf.
void LevelIndex::build(EntryOf entryOf, const void *ctx)
{
    const float none = std::numeric_limits<float>::quiet_NaN();
    const int top = entryOf(ctx, float_of(kPositiveInfinityBits));
    uint32_t from = 0;
    edge[0] = 0.0f;
    for (int i = 1; i <= kGainTableLast; i++) {
        if (top < i) {
            edge[i] = none;
            continue;
        }
        uint32_t lo = from, hi = kPositiveInfinityBits;
        while (lo < hi) {
            const uint32_t mid = lo + (hi - lo) / 2;
            if (entryOf(ctx, float_of(mid)) >= i)
                hi = mid;
            else
                lo = mid + 1;
        }
        edge[i] = float_of(lo);
        from = lo;
    }
    edge[kGainTableSize] = none;

    // The search must agree with the detector at both ends and on both sides of every
    // breakpoint; a detector whose entries are not reached in order fails here and
    // keeps computing them directly.
    exact = find(0.0f) == entryOf(ctx, 0.0f) &&
            find(float_of(kPositiveInfinityBits)) == entryOf(ctx, float_of(kPositiveInfinityBits));
    for (int i = 1; i <= kGainTableLast && exact; i++) {
        if (edge[i] != edge[i])
            break;
        const uint32_t b = bits_of(edge[i]);
        exact = find(edge[i]) == entryOf(ctx, edge[i]) &&
                (b == 0 || find(float_of(b - 1)) == entryOf(ctx, float_of(b - 1)));
    }
}

int LevelIndex::find(float e) const
{
    // edge[lo] <= e throughout, and the entry is at most hi.
    int lo = 0, hi = kGainTableLast;
    while (lo < hi) {
        const int mid = (lo + hi + 1) / 2;
        if (e >= edge[mid])
            lo = mid;
        else
            hi = mid - 1;
    }
    return lo;
}

}  // namespace eqdrc
