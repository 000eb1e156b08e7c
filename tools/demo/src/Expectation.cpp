#include "Expectation.hpp"

#include <algorithm>
#include <cmath>

namespace tovani::demo {

namespace {
// The skip and action buttons work from five seconds of play on.
constexpr double kControlsFrom = 5;
}  // namespace

std::optional<int32_t> expectedResult(const ViewerActions& actions, bool skippable,
                                      double durationSeconds) {
  if (durationSeconds <= 0) return std::nullopt;
  // The last whole second earns the reward; a minute earns it for longer videos.
  const double rewardAt = skippable && durationSeconds >= 60 ? 60 : durationSeconds - 1.5;
  // Whatever the viewer does first decides.
  double firstLeave = durationSeconds + 1;
  std::optional<int32_t> leaveResult;
  auto consider = [&](double at, int32_t result) {
    if (at < firstLeave) {
      firstLeave = at;
      leaveResult = result;
    }
  };
  if (actions.backgroundAt && *actions.backgroundAt < durationSeconds - 1.5) {
    if (actions.backgroundFor >= 11) consider(*actions.backgroundAt, 3);
  }
  if (skippable && actions.skipAt) {
    const double at = std::max(*actions.skipAt, kControlsFrom);
    if (at < durationSeconds - 0.5) consider(at, at < rewardAt ? 3 : 0);
  }
  if (skippable && actions.actionAt) {
    const double at = std::max(*actions.actionAt, kControlsFrom);
    if (at < durationSeconds - 0.5) consider(at, at < rewardAt ? 3 : 0);
  }
  if (leaveResult) return leaveResult;
  if (actions.endCardLink == "none") return std::nullopt;
  return 0;
}

}  // namespace tovani::demo
