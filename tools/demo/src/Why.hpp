#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "tovani/TovaniInspector.hpp"

namespace tovani::demo {

// One or two plain sentences saying why a showing ended with `result` (1 or 2), from the
// inspector's events of that showing.
std::string explainNoAd(const std::vector<InspectorEvent>& events, int32_t result);

}  // namespace tovani::demo
