#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/CheckedStatement.hpp"
#include "tovani/platform/Device.hpp"

namespace tovani {

using StoreRow = std::vector<std::string>;
using StoreRows = std::vector<StoreRow>;

// The one gateway to the ad store file. Every call opens the file, runs exactly one
// statement and closes it again. Failures are logged and look like an empty result.
class tovaniSQL {
 public:
  // initWithDatabaseFilename: the store is documentsDirectory/databaseFilename; seeds it
  // from the bundle's resource folder when it is missing.
  tovaniSQL(std::string documentsDirectory, std::string databaseFilename,
            std::optional<std::string> bundleResourcePath, std::shared_ptr<Log> log);

  // Rows as text in select-list order, NULL columns skipped, all-NULL rows dropped. The
  // returned list is this object's arrResults: the next call on this object empties it,
  // so callers copy it at once.
  std::shared_ptr<StoreRows> loadDataFromDB(const std::string& query);
  void executeQuery(const std::string& statement);
  // The same for a checked statement; a refused one is not issued and looks like a failed
  // one (no rows, nothing written), with one log line.
  std::shared_ptr<StoreRows> loadDataFromDB(const CheckedStatement& query);
  void executeQuery(const CheckedStatement& statement);

  const std::string& documentsDirectory() const { return documentsDirectory_; }
  const std::string& databaseFilename() const { return databaseFilename_; }
  std::string databasePath() const;
  const std::shared_ptr<StoreRows>& arrResults() const { return arrResults_; }
  const std::vector<std::string>& arrColumnNames() const { return arrColumnNames_; }
  int32_t affectedRows() const { return affectedRows_; }
  int64_t lastInsertedRowID() const { return lastInsertedRowID_; }

  // Longest time one statement may run before it is interrupted (a hostile store file
  // must not hang the host's thread).
  static constexpr double kStatementTimeLimitSeconds = 2.0;
  // Logged once when a statement was stopped by that limit.
  static constexpr const char* kStatementInterruptedLog =
      "Store statement interrupted: time limit reached";
  // Most text one query may hand back; a real store returns a few hundred kilobytes at
  // most, so reading stops there and keeps the rows read so far.
  static constexpr std::size_t kResultTextLimitBytes = 16u * 1024u * 1024u;
  static constexpr const char* kResultTruncatedLog =
      "Store query result truncated: size limit reached";

 private:
  void copyDatabaseIntoDocumentsDirectory(const std::optional<std::string>& bundleResourcePath);
  void runQuery(const char* sql, bool isQueryExecutable);
  void refuse(const CheckedStatement& statement);

  std::string documentsDirectory_;
  std::string databaseFilename_;
  std::shared_ptr<Log> log_;
  std::shared_ptr<StoreRows> arrResults_;
  std::vector<std::string> arrColumnNames_;
  int32_t affectedRows_ = 0;
  int64_t lastInsertedRowID_ = 0;
};

}  // namespace tovani
