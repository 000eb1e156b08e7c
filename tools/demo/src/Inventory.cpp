#include "Inventory.hpp"

#include <sqlite3.h>

#include <filesystem>

namespace tovani::demo {

InventoryState readInventory(const std::string& documentsDirectory) {
  namespace fs = std::filesystem;
  InventoryState state;
  const auto store = fs::path(documentsDirectory) / "tnad_005.data";
  std::error_code ec;
  if (!fs::exists(store, ec) || fs::file_size(store, ec) == 0) return state;
  state.storePresent = true;
  sqlite3* db = nullptr;
  // Read-only, so the demo never changes what the SDK sees.
  if (sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return state;
  }
  sqlite3_busy_timeout(db, 200);
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, "select use_flag, video_filename from tn_adverts", -1, &statement,
                         nullptr) == SQLITE_OK) {
    while (sqlite3_step(statement) == SQLITE_ROW) {
      ++state.adverts;
      const auto* name = sqlite3_column_text(statement, 1);
      if (sqlite3_column_int(statement, 0) == 1 && name &&
          fs::exists(fs::path(documentsDirectory) / reinterpret_cast<const char*>(name), ec)) {
        ++state.videosCached;
      }
    }
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return state;
}

}  // namespace tovani::demo
