#pragma once
#include <functional>
#include "tovani/Export.hpp"

namespace tovani {

using Task = std::function<void()>;

// The host's main thread. Every core call, completion, tick, tap and notification runs here.
class TOVANI_EXPORT MainQueue {
 public:
  virtual ~MainQueue() = default;
  // Runs `task` later on the main thread, in posting order. Safe to call from any thread.
  virtual void post(Task task) = 0;
  // Runs `task` on the main thread after `seconds` (>= 0). Safe to call from any thread.
  virtual void postAfter(double seconds, Task task) = 0;
};

class TOVANI_EXPORT Clock {
 public:
  virtual ~Clock() = default;
  // Seconds since 1970-01-01 UTC.
  virtual double now() const = 0;
};

}  // namespace tovani
