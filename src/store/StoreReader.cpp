#include "store/StoreReader.hpp"

namespace tovani {

namespace {

// A report is asked on the main thread; it gets less time than a designed statement.
constexpr std::chrono::milliseconds kReportTimeLimit{500};

}  // namespace

StoreReader::StoreReader(const std::string& path) {
  // Not even a missing file is created, and the file is never written.
  const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
    problem_ = db_ != nullptr ? sqlite3_errmsg(db_) : "cannot open the store";
    sqlite3_close(db_);
    db_ = nullptr;
    return;
  }
  deadline_.deadline = std::chrono::steady_clock::now() + kReportTimeLimit;
  hardenConnection(db_, &deadline_);
}

StoreReader::~StoreReader() {
  sqlite3_close(db_);
}

std::vector<StoreReader::Row> StoreReader::query(const char* sql,
                                                 const std::vector<std::string>& parameters) {
  std::vector<Row> rows;
  if (db_ == nullptr) return rows;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK || !statement) {
    problem_ = sqlite3_errmsg(db_);
    sqlite3_finalize(statement);
    return rows;
  }
  for (size_t i = 0; i < parameters.size(); ++i) {
    sqlite3_bind_text(statement, static_cast<int>(i + 1), parameters[i].c_str(),
                      static_cast<int>(parameters[i].size()), SQLITE_TRANSIENT);
  }
  int step = SQLITE_ROW;
  while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
    Row row;
    const int columns = sqlite3_column_count(statement);
    for (int c = 0; c < columns; ++c) {
      const auto* text = sqlite3_column_text(statement, c);
      row.push_back(text ? std::optional<std::string>(reinterpret_cast<const char*>(text))
                         : std::nullopt);
    }
    rows.push_back(std::move(row));
  }
  if (step != SQLITE_DONE) problem_ = sqlite3_errmsg(db_);
  if (deadline_.interrupted) problem_ = "the store took too long to read";
  sqlite3_finalize(statement);
  return rows;
}

}  // namespace tovani
