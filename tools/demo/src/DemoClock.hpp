#pragma once
#include <chrono>
#include <cmath>
#include <mutex>
#include <optional>

#include "tovani/platform/MainQueue.hpp"

namespace tovani::demo {

// Wall-clock time that the demo can stop and move on, so that "away for 10 seconds" is
// exactly ten seconds to the SDK without the demo waiting them out.
class DemoClock final : public Clock {
 public:
  double now() const override {
    std::lock_guard lock(mutex_);
    if (frozenAt_) return *frozenAt_;
    return wall() + offset_;
  }
  // Stops time at the middle of the current second, so whole-second differences taken
  // later are exact.
  void freeze() {
    std::lock_guard lock(mutex_);
    frozenAt_ = std::floor(wall() + offset_) + 0.5;
  }
  // Restarts time `seconds` after the moment it was frozen.
  void resumeAfter(double seconds) {
    std::lock_guard lock(mutex_);
    if (!frozenAt_) return;
    offset_ = *frozenAt_ + seconds - wall();
    frozenAt_.reset();
  }

 private:
  static double wall() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
  mutable std::mutex mutex_;
  double offset_ = 0;
  std::optional<double> frozenAt_;
};

}  // namespace tovani::demo
