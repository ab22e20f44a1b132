// The messages the enhancers log, by the function name and line hosts and tests know
// them by (core/log.h).
#ifndef EQDRC_ENHANCE_ENHANCE_LOG_H
#define EQDRC_ENHANCE_ENHANCE_LOG_H

#include "core/log.h"

namespace eqdrc {
namespace site {

constexpr LogSite kAutoGainInitBitDepth{"AutoGain_Init", 92};
constexpr LogSite kAutoGainFrameTooLong{"AutoGain_Process", 119};
constexpr LogSite kAutoGainPrintTitle{"AutoGain_PrintPara", 225};  // its five lines on 227..231
constexpr LogSite kBassInitChannels{"BassEnhancer_Init", 139};
constexpr LogSite kBassInitBitDepth{"BassEnhancer_Init", 174};
constexpr LogSite kBassPrintTitle{"BassEnhancer_PrintPara", 375};
constexpr LogSite kBassPrintChannel{"BassEnhancer_PrintPara", 378};  // its six lines on 379..384
constexpr LogSite kExciterInitChannels{"Exciter_Init", 37};
constexpr LogSite kExciterInitBitDepth{"Exciter_Init", 71};
constexpr LogSite kExciterPrintTitle{"Exciter_PrintPara", 195};
constexpr LogSite kExciterPrintChannel{"Exciter_PrintPara", 198};  // its four lines on 199..202
constexpr LogSite kDeEsserInitChannels{"DeEsser_Init", 57};
constexpr LogSite kDeEsserInitBitDepth{"DeEsser_Init", 86};
constexpr LogSite kDeEsserPrintTitle{"DeEsser_PrintPara", 270};
constexpr LogSite kDeEsserPrintChannel{"DeEsser_PrintPara", 274};  // f0 and threshold on 275, 276

}  // namespace site
}  // namespace eqdrc

#endif
