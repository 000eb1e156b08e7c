#pragma once
#include <string>

namespace tovani::demo {

// How far the SDK's cache is, as its readiness report tells it.
struct InventoryState {
  bool storePresent = false;
  int adverts = 0;       // rows in tn_adverts
  int videosCached = 0;  // rows with use_flag 1 whose file is in place
  bool ready() const { return storePresent && adverts > 0 && videosCached == adverts; }
};

InventoryState readInventory();

}  // namespace tovani::demo
