// The messages the filter primitives log, by the function name and line hosts and
// tests know them by (core/log.h).
#ifndef EQDRC_FILTERS_FILTERS_LOG_H
#define EQDRC_FILTERS_FILTERS_LOG_H

#include "core/log.h"

namespace eqdrc {
namespace site {

constexpr LogSite kCrossoverParamAlloc{"Filters_Crossover_paramInit", 59};
constexpr LogSite kDesignerUnknownType{"filter_calculateCoeffs", 147};

}  // namespace site
}  // namespace eqdrc

#endif
