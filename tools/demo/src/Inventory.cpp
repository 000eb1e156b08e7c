#include "Inventory.hpp"

#include "tovani/TovaniSDK.hpp"

namespace tovani::demo {

InventoryState readInventory() {
  const Readiness readiness = TovaniSDK::readiness();
  InventoryState state;
  state.storePresent = readiness.storePresent && readiness.storeReadable;
  state.adverts = static_cast<int>(readiness.advertCount);
  state.videosCached = static_cast<int>(readiness.videosCached);
  return state;
}

}  // namespace tovani::demo
