#pragma once
#include <string>

namespace tovani::demo {

// How far the SDK's cache is, read from its store file and documents folder.
struct InventoryState {
  bool storePresent = false;
  int adverts = 0;       // rows in tn_adverts
  int videosCached = 0;  // rows with use_flag 1 whose file is in place
  bool ready() const { return storePresent && adverts > 0 && videosCached == adverts; }
};

InventoryState readInventory(const std::string& documentsDirectory);

}  // namespace tovani::demo
