#include "FreshProcess.hpp"

#include "sdk/FacadeState.hpp"
#include "tovani/TovaniSDK.hpp"
#include "util/NotificationCenter.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::demo {

void startAsFreshProcess() {
  resetFacadeForTesting();
  resetProcessState();
  NotificationCenter::defaultCenter().reset();
}

void endAsFreshProcess() {
  TovaniSDK::setPlatform(nullptr);
  startAsFreshProcess();
}

}  // namespace tovani::demo
