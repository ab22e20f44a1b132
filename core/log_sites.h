// Every message the library logs is known to hosts and tests by the function name and
// line number in its prefix, "LOG (function(): ,line), ".  This is the one table of them.
// A parameter print-out gives the title and heading lines here; its other lines follow
// on the next numbers (core/print_out.h).
#ifndef EQDRC_CORE_LOG_SITES_H
#define EQDRC_CORE_LOG_SITES_H

namespace eqdrc {

struct LogSite {
    const char *function;
    int line;
};

namespace site {

// The chain (chain/).
constexpr LogSite kBannerRuleTop{"dump_version", 47};
constexpr LogSite kBannerVersion{"dump_version", 48};
constexpr LogSite kBannerBuilding{"dump_version", 49};
constexpr LogSite kBannerRuleBottom{"dump_version", 50};
constexpr LogSite kInitRelease{"AudioPost_Init", 95};
constexpr LogSite kInitNullRecord{"AudioPost_Init", 99};
constexpr LogSite kInitVersion{"AudioPost_Init", 121};
constexpr LogSite kInitParamVersion{"AudioPost_Init", 130};
constexpr LogSite kInitBitDepth{"AudioPost_Init", 162};
constexpr LogSite kInitByPathNull{"AudioPost_InitByPath", 224};
constexpr LogSite kInitByPathOpen{"AudioPost_InitByPath", 230};
constexpr LogSite kInitByPathAlloc{"AudioPost_InitByPath", 236};
constexpr LogSite kInitByPathRead{"AudioPost_InitByPath", 242};
constexpr LogSite kInitByPathDone{"AudioPost_InitByPath", 251};
constexpr LogSite kDestroyNull{"AudioPost_Destroy", 257};
constexpr LogSite kProcessNull{"AudioPost_Process", 315};
constexpr LogSite kProcessFrameLen{"AudioPost_Process", 324};
constexpr LogSite kSetParaNull{"AudioPost_SetPara", 395};
constexpr LogSite kSetParaFrameLen{"AudioPost_SetPara", 402};
constexpr LogSite kSetParaVersion{"AudioPost_SetPara", 414};
constexpr LogSite kGetParaNull{"AudioPost_GetPara", 505};
constexpr LogSite kEqGetParaMissing{"AudioPost_EQ10_GetPara", 578};
constexpr LogSite kCrossoverAdjustMissing{"AudioPost_MultiBandDRC_Crossover_AdjustPara", 599};
constexpr LogSite kDrcAdjustMissing{"AudioPost_MultiBandDRC_DRC_AdjustPara", 612};
constexpr LogSite kMaximizerAdjustMissing{"AudioPost_Maximizer_AdjustPara", 625};
constexpr LogSite kAgcAdjustMissing{"AudioPost_Agc_AdjustPara", 638};

// Filter primitives (filters/).
constexpr LogSite kCrossoverParamAlloc{"Filters_Crossover_paramInit", 59};
constexpr LogSite kDesignerUnknownType{"filter_calculateCoeffs", 147};

// Equaliser (eq/).
constexpr LogSite kEqPrintTitle{"EQ10_PrintPara", 262};
constexpr LogSite kEqPrintChannel{"EQ10_PrintPara", 266};
constexpr LogSite kEqPrintType{"EQ10_PrintPara", 270};
constexpr LogSite kEqPrintFc{"EQ10_PrintPara", 272};  // Q and boost follow on 273 and 274

// Multi-band compressor (dynamics/).
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

// Maximizer, its limiter and AGC (dynamics/).
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

// Enhancers (enhance/).
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

// Meters (meters/).
constexpr LogSite kMeterInitBitDepth{"ebur128_init", 144};
constexpr LogSite kLevelDetectorBanner{"LevelDetector_Init", 117};
constexpr LogSite kLevelDetectorSetPara{"LevelDetector_SetPara", 245};

}  // namespace site
}  // namespace eqdrc

#endif
