#include "StoreFile.hpp"

#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace tovani::adserver {

std::string buildStoreFile(const std::filesystem::path& workDir, std::string_view schema) {
  static std::atomic<unsigned> counter{0};
  const auto path = workDir / ("store-" + std::to_string(::getpid()) + "-" +
                               std::to_string(counter.fetch_add(1)) + ".data");
  std::filesystem::remove(path);

  sqlite3* db = nullptr;
  std::string error;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    error = db != nullptr ? sqlite3_errmsg(db) : "out of memory";
  } else {
    char* message = nullptr;
    const std::string statements(schema);
    if (sqlite3_exec(db, statements.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
      error = message != nullptr ? message : "schema failed";
    }
    sqlite3_free(message);
  }
  sqlite3_close(db);
  if (!error.empty()) {
    std::filesystem::remove(path);
    throw std::runtime_error("cannot build the store file: " + error);
  }

  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  in.close();
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  if (bytes.empty()) throw std::runtime_error("the store file came out empty");
  return bytes;
}

}  // namespace tovani::adserver
