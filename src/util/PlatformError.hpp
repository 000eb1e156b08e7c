#pragma once
#include <stdexcept>
#include <string>

namespace tovani {

// Raised inside the core exactly where the platform the SDK was designed for would raise
// (a range error, a key path that meets a list, a failed observer removal). Recovered
// where the design recovers; whatever is left is caught at the main-queue boundary.
class PlatformError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace tovani
