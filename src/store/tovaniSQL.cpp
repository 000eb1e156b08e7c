#include "store/tovaniSQL.hpp"

#include "store/Hardening.hpp"

#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tovani {

namespace {

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

// Each row value is counted with the bookkeeping of a string, so that a flood of tiny
// values is bounded as well as a few huge ones.
constexpr std::size_t kValueOverheadBytes = sizeof(std::string);

void writeLog(Log* log, const std::string& line) {
  if (log != nullptr) log->write(line);
}

}  // namespace

tovaniSQL::tovaniSQL(std::string documentsDirectory, std::string databaseFilename,
                     std::optional<std::string> bundleResourcePath, std::shared_ptr<Log> log)
    : documentsDirectory_(std::move(documentsDirectory)),
      databaseFilename_(std::move(databaseFilename)),
      log_(std::move(log)) {
  copyDatabaseIntoDocumentsDirectory(bundleResourcePath);
}

std::string tovaniSQL::databasePath() const {
  return (fs::path(documentsDirectory_) / databaseFilename_).string();
}

std::shared_ptr<StoreRows> tovaniSQL::loadDataFromDB(const std::string& query) {
  runQuery(query.c_str(), false);
  return arrResults_;
}

void tovaniSQL::executeQuery(const std::string& statement) {
  runQuery(statement.c_str(), true);
}

std::shared_ptr<StoreRows> tovaniSQL::loadDataFromDB(const CheckedStatement& query) {
  if (!query.text) {
    refuse(query);
    return arrResults_;
  }
  return loadDataFromDB(*query.text);
}

void tovaniSQL::executeQuery(const CheckedStatement& statement) {
  if (!statement.text) {
    refuse(statement);
    return;
  }
  executeQuery(*statement.text);
}

void tovaniSQL::refuse(const CheckedStatement& statement) {
  if (arrResults_) arrResults_->clear();
  arrResults_ = std::make_shared<StoreRows>();
  arrColumnNames_.clear();
  writeLog(log_.get(), std::string(kStatementRefusedLog) + " (" + statement.refusal + ")");
}

// A host that ships no store in its resources (no resource folder given) has nothing to
// seed from; that is the usual case, so it passes without a log line and the store is
// downloaded instead.
void tovaniSQL::copyDatabaseIntoDocumentsDirectory(
    const std::optional<std::string>& bundleResourcePath) {
  const fs::path destination = databasePath();
  std::error_code error;
  // A link counts as present even when it points nowhere, so the copy never writes
  // through it.
  if (fs::exists(fs::symlink_status(destination, error))) return;
  if (!bundleResourcePath) return;

  const fs::path source = fs::path(*bundleResourcePath) / databaseFilename_;
  if (fs::copy_file(source, destination, fs::copy_options::none, error)) return;
  writeLog(log_.get(), error.message());
  // A copy that broke off half way must not leave a truncated store behind; a file that
  // appeared meanwhile is someone else's and stays.
  if (error != std::errc::file_exists) {
    std::error_code ignored;
    fs::remove(destination, ignored);
  }
}

void tovaniSQL::runQuery(const char* sql, bool isQueryExecutable) {
  const std::string path = databasePath();
  // The previous list may still be held by a caller; it is emptied, not just dropped.
  if (arrResults_) {
    arrResults_->clear();
    arrResults_.reset();
  }
  arrResults_ = std::make_shared<StoreRows>();
  arrColumnNames_.clear();

  // Outlives the connection, which holds a pointer to it until closed.
  StatementDeadline deadline;
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    deadline.deadline =
        SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                 std::chrono::duration<double>(kStatementTimeLimitSeconds));
    hardenConnection(db, &deadline);
    bool truncated = false;

    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
      writeLog(log_.get(), sqlite3_errmsg(db));
    } else if (isQueryExecutable) {
      // Text without a statement (blank or only a comment) prepares to nothing; stepping
      // nothing is a misuse, which counts as a non-zero result like any other error.
      const int result = statement != nullptr ? sqlite3_step(statement) : SQLITE_MISUSE;
      // Deliberately compared with zero and not with SQLITE_DONE: a failing statement
      // still refreshes the counters and logs nothing.
      if (result != 0) {
        affectedRows_ = sqlite3_changes(db);
        lastInsertedRowID_ = sqlite3_last_insert_rowid(db);
      } else {
        writeLog(log_.get(), std::string("DB insert Error: ") + sqlite3_errmsg(db));
      }
    } else if (statement != nullptr) {
      std::size_t resultBytes = 0;
      while (sqlite3_step(statement) == SQLITE_ROW) {
        StoreRow row;
        const int columnCount = sqlite3_column_count(statement);
        for (int i = 0; i < columnCount; ++i) {
          const unsigned char* text = sqlite3_column_text(statement, i);
          if (text != nullptr) {
            row.emplace_back(reinterpret_cast<const char*>(text));
            resultBytes += row.back().size() + kValueOverheadBytes;
          }
          // The names are complete after the first row and are not read again.
          if (arrColumnNames_.size() != static_cast<std::size_t>(columnCount)) {
            const char* name = sqlite3_column_name(statement, i);
            arrColumnNames_.emplace_back(name != nullptr ? name : "");
          }
        }
        if (!row.empty()) arrResults_->push_back(std::move(row));
        if (resultBytes > kResultTextLimitBytes) {
          truncated = true;
          break;
        }
      }
    }
    sqlite3_finalize(statement);
    if (deadline.interrupted) writeLog(log_.get(), kStatementInterruptedLog);
    if (truncated) writeLog(log_.get(), kResultTruncatedLog);
  }
  // Also after a failed open: SQLite may have allocated a handle that only close frees.
  sqlite3_close(db);
}

}  // namespace tovani
