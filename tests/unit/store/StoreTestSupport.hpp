#pragma once
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "store/tovaniSQL.hpp"
#include "tovani/platform/Device.hpp"

namespace tovani::test {

inline constexpr const char* kStoreFilename = "tnad_005.data";

class RecordingLog : public Log {
 public:
  void write(const std::string& line) override { lines.push_back(line); }
  std::vector<std::string> lines;
};

// A folder of its own for every test, removed with everything in it afterwards.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tovani-store-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs SQL straight through SQLite, next to the layer under test, to prepare stores and to
// check what the layer did to them.
inline void rawExec(const std::filesystem::path& db, const std::string& sql) {
  sqlite3* connection = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &connection), SQLITE_OK);
  char* error = nullptr;
  const int result = sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, &error);
  EXPECT_EQ(result, SQLITE_OK) << (error != nullptr ? error : "") << "\n" << sql;
  sqlite3_free(error);
  sqlite3_close(connection);
}

// Every value as text, NULL as "NULL", so that nothing is hidden.
inline std::vector<std::vector<std::string>> rawRows(const std::filesystem::path& db,
                                                     const std::string& sql) {
  std::vector<std::vector<std::string>> rows;
  sqlite3* connection = nullptr;
  sqlite3_open(db.c_str(), &connection);
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(connection, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << sqlite3_errmsg(connection) << "\n" << sql;
  }
  while (statement != nullptr && sqlite3_step(statement) == SQLITE_ROW) {
    std::vector<std::string> row;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      const unsigned char* text = sqlite3_column_text(statement, i);
      row.emplace_back(text != nullptr ? reinterpret_cast<const char*>(text) : "NULL");
    }
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(statement);
  sqlite3_close(connection);
  return rows;
}

inline std::string rawValue(const std::filesystem::path& db, const std::string& sql) {
  const auto rows = rawRows(db, sql);
  return rows.empty() || rows.front().empty() ? std::string("NULL") : rows.front().front();
}

// Writes the store the ad server ships, with its tables empty.
inline void createStore(const std::filesystem::path& db) {
  const std::string schema =
      readFile(std::filesystem::path(TOVANI_SOURCE_DIR) / "schema" / "tovani_store.sql");
  ASSERT_FALSE(schema.empty());
  rawExec(db, schema);
}

class StoreTest : public ::testing::Test {
 protected:
  std::filesystem::path storePath() const { return folder.path() / kStoreFilename; }
  std::unique_ptr<tovaniSQL> openStore(std::optional<std::string> resources = std::nullopt) {
    return std::make_unique<tovaniSQL>(folder.path().string(), kStoreFilename, std::move(resources),
                                       log);
  }

  TempFolder folder;
  std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
};

}  // namespace tovani::test
