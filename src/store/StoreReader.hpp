#pragma once
#include <optional>
#include <string>
#include <vector>

#include "store/Hardening.hpp"

namespace tovani {

// A read-only look at the store for reports, beside tovaniSQL and never instead of it: it
// opens the file read-only (it can never write, nor create a missing store), with the same
// hardening and time limit as every store connection, and binds its values as parameters.
class StoreReader {
 public:
  using Row = std::vector<std::optional<std::string>>;

  explicit StoreReader(const std::string& path);
  ~StoreReader();
  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  bool ok() const { return db_ != nullptr && problem_.empty(); }
  // Why the last open or query failed; empty when nothing failed.
  const std::string& problem() const { return problem_; }
  // Every row of `sql` with `parameters` bound in order; empty on failure (see problem()).
  std::vector<Row> query(const char* sql, const std::vector<std::string>& parameters = {});

 private:
  sqlite3* db_ = nullptr;
  StatementDeadline deadline_;
  std::string problem_;
};

}  // namespace tovani
