#include <atomic>

#include "tovani/Platform.hpp"

// The core does not link any adapters: a platform library registers its maker when it is
// loaded (a shared library's constructor, or the first use of a static one), so the shared
// core has no dependency on the libraries that depend on it.
namespace tovani {

namespace {
std::atomic<PlatformMaker>& registeredMaker() {
  static std::atomic<PlatformMaker> maker{nullptr};
  return maker;
}
}  // namespace

void setDefaultPlatformMaker(PlatformMaker maker) {
  registeredMaker().store(maker);
}

std::shared_ptr<Platform> makeDefaultPlatform() {
  const PlatformMaker maker = registeredMaker().load();
  return maker ? maker() : nullptr;
}

}  // namespace tovani
