// The messages the equaliser logs, by the function name and line hosts and tests know
// them by (core/log.h).
#ifndef EQDRC_EQ_EQ_LOG_H
#define EQDRC_EQ_EQ_LOG_H

#include "core/log.h"

namespace eqdrc {
namespace site {

constexpr LogSite kEqPrintTitle{"EQ10_PrintPara", 262};
constexpr LogSite kEqPrintChannel{"EQ10_PrintPara", 266};
constexpr LogSite kEqPrintType{"EQ10_PrintPara", 270};
constexpr LogSite kEqPrintFc{"EQ10_PrintPara", 272};  // Q and boost follow on 273 and 274

}  // namespace site
}  // namespace eqdrc

#endif
