// The messages the chain and its C entry points log, by the function name and line
// hosts and tests know them by (core/log.h).
#ifndef EQDRC_CHAIN_CHAIN_LOG_H
#define EQDRC_CHAIN_CHAIN_LOG_H

#include "core/log.h"

namespace eqdrc {
namespace site {

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

}  // namespace site
}  // namespace eqdrc

#endif
