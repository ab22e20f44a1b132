// The messages the dynamics stages log, by the function name and line hosts and tests
// know them by (core/log.h).
#ifndef EQDRC_DYNAMICS_DYNAMICS_LOG_H
#define EQDRC_DYNAMICS_DYNAMICS_LOG_H

#include "core/log.h"

namespace eqdrc {
namespace site {

// Multi-band compressor.
constexpr LogSite kDrcInitChannels{"MultiBandDRC_Init", 78};
constexpr LogSite kDrcInitBitDepth{"MultiBandDRC_Init", 106};
constexpr LogSite kDrcInitCrossover{"MultiBandDRC_Init", 147};
constexpr LogSite kDrcInitCurve{"MultiBandDRC_Init", 171};
constexpr LogSite kDrcSetParaCrossover{"MultiBandDRC_SetPara", 368};
constexpr LogSite kDrcSetParaCurve{"MultiBandDRC_SetPara", 391};
constexpr LogSite kDrcGetParaCrossover{"MultiBandDRC_GetPara", 440};
constexpr LogSite kDrcPrintTitle{"MultiBandDRC_PrintPara", 460};
constexpr LogSite kDrcPrintChannel{"MultiBandDRC_PrintPara", 463};  // crossover_band on 464
constexpr LogSite kDrcPrintBand{"MultiBandDRC_PrintPara", 467};     // the band's lines on 468..479
constexpr LogSite kDrcAdjustBand{"MultiBandDRC_DRC_AdjustPara", 535};
constexpr LogSite kDrcAdjustCurve{"MultiBandDRC_DRC_AdjustPara", 600};

// Maximizer, its limiter and AGC.
constexpr LogSite kMaximizerInitChannels{"Maximizer_Init", 73};
constexpr LogSite kMaximizerInitBitDepth{"Maximizer_Init", 105};
constexpr LogSite kMaximizerInitAgcCurve{"Maximizer_Init", 121};
constexpr LogSite kMaximizerSetParaAgcCurve{"Maximizer_SetPara", 479};
constexpr LogSite kAgcPrintTitle{"Maximizer_PrintPara", 549};
constexpr LogSite kAgcPrintChannel{"Maximizer_PrintPara", 552};  // its eight lines on 553..560
constexpr LogSite kLimiterPrintTitle{"Maximizer_PrintPara", 563};
constexpr LogSite kLimiterPrintChannel{"Maximizer_PrintPara", 566};  // its three lines on 567..569
constexpr LogSite kAgcAdjustAllCurve{"Agc_AdjustPara", 640};
constexpr LogSite kAgcAdjustOneCurve{"Agc_AdjustPara", 670};

}  // namespace site
}  // namespace eqdrc

#endif
