#pragma once
#include <cstdint>
#include <optional>

#include "tovani/demo/Demo.hpp"

namespace tovani::demo {

// The result code a showing should end with, given what the viewer did and the ad that
// played (its length and whether it could be skipped); none when the options do not
// decide it (an end card left open, for instance).
std::optional<int32_t> expectedResult(const ViewerActions& actions, bool skippable,
                                      double durationSeconds);

}  // namespace tovani::demo
