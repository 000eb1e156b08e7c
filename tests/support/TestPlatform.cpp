#include "support/TestPlatform.hpp"

#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sdk/FacadeState.hpp"
#include "util/NotificationCenter.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {

TestPlatform::TestPlatform() {
  resetSdkProcessState();
  std::string pattern = (std::filesystem::temp_directory_path() / "tovani-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a documents folder");
  device->documents = pattern;
  platform = std::make_shared<Platform>(Platform{queue, clock, http, players, webViews, screen,
                                                 app, device, reachability, log});
}

TestPlatform::~TestPlatform() {
  resetSdkProcessState();
  std::error_code ec;
  std::filesystem::remove_all(device->documents, ec);
}

void resetSdkProcessState() {
  resetFacadeForTesting();
  resetProcessState();
  NotificationCenter::defaultCenter().reset();
}

namespace {

struct Db {
  explicit Db(const std::string& path) {
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) throw std::runtime_error("open " + path);
  }
  ~Db() { sqlite3_close(db); }
  sqlite3* db = nullptr;
};

}  // namespace

void execOnStore(const std::string& path, const std::string& sql) {
  Db db(path);
  char* error = nullptr;
  if (sqlite3_exec(db.db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    std::string message = error ? error : "?";
    sqlite3_free(error);
    throw std::runtime_error("store: " + message + " in " + sql);
  }
}

void createStoreFile(const std::string& path) {
  execOnStore(path, readFile(std::string(TOVANI_SOURCE_DIR) + "/schema/tovani_store.sql"));
}

std::vector<std::vector<std::string>> queryStore(const std::string& path, const std::string& sql) {
  Db db(path);
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db.db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw std::runtime_error(std::string("store: ") + sqlite3_errmsg(db.db));
  }
  std::vector<std::vector<std::string>> rows;
  while (sqlite3_step(statement) == SQLITE_ROW) {
    std::vector<std::string> row;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      const auto* text = sqlite3_column_text(statement, i);
      row.emplace_back(text ? reinterpret_cast<const char*>(text) : "<NULL>");
    }
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(statement);
  return rows;
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace tovani::test
