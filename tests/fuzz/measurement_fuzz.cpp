// Measurement files as users hand them to `eqdrc fit`: the text reader, then smoothing onto
// the fit's grid. A curve that reads must smooth to finite levels inside its own extremes.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

#include "curve.h"
#include "grid.h"
#include "layout.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace eqdrc_fit;
    Curve c;
    try {
        c = parse_curve(std::string(reinterpret_cast<const char *>(data), size), "fuzz");
    } catch (const eqdrc_tool::Error &) {
        return 0;  // refused with its line: what users should see
    }
    // A mean cannot leave the range of what it averages (up to rounding).
    const double slack = 1e-6 * kMaxPlausibleDb;
    const double low = *std::min_element(c.db.begin(), c.db.end()) - slack;
    const double high = *std::max_element(c.db.begin(), c.db.end()) + slack;
    const std::vector<double> grid = log_grid(c.hz.front(), c.hz.back(), 6.0);
    for (double octaves : {0.0, 1.0 / 6.0})
        for (double db : smooth_onto(c, grid, octaves))
            if (!std::isfinite(db) || db < low || db > high)
                __builtin_trap();
    return 0;
}
