// The messages the meters log, by the function name and line hosts and tests know them
// by (core/log.h).
#ifndef EQDRC_METERS_METERS_LOG_H
#define EQDRC_METERS_METERS_LOG_H

#include "core/log.h"

namespace eqdrc {
namespace site {

constexpr LogSite kMeterInitBitDepth{"ebur128_init", 144};
constexpr LogSite kLevelDetectorBanner{"LevelDetector_Init", 117};
constexpr LogSite kLevelDetectorSetPara{"LevelDetector_SetPara", 245};

}  // namespace site
}  // namespace eqdrc

#endif
