#include "tovani/Platform.hpp"

// With the Linux adapters built in, platform/linux defines the default platform; a build
// without them has none, and the host must call TovaniSDK::setPlatform.
#ifndef TOVANI_HAS_LINUX_PLATFORM
namespace tovani {
std::shared_ptr<Platform> makeDefaultPlatform() {
  return nullptr;
}
}  // namespace tovani
#endif
