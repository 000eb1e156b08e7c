#pragma once
#include <cstdint>

namespace tovani {

// The one report a host receives for every attempt, through TovaniDelegate::tovaniCallBack.
using ResultCode = int32_t;

inline constexpr ResultCode TOVANI_RESULT_REWARDED = 0;   // the ad reached its reward point
inline constexpr ResultCode TOVANI_RESULT_NO_AD = 1;      // no ad ready to show
inline constexpr ResultCode TOVANI_RESULT_FAILED = 2;     // failure, or not (yet) rewarded
inline constexpr ResultCode TOVANI_RESULT_LEFT_EARLY = 3; // the viewer left before the reward point

}  // namespace tovani
