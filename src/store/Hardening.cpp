#include "store/Hardening.hpp"

namespace tovani {

namespace {

// How many virtual-machine steps pass between two looks at the clock. A step is a few
// nanoseconds, so the limit is noticed within microseconds while the clock costs nothing.
constexpr int kProgressCheckSteps = 1000;

// Progress handler: a non-zero answer makes SQLite stop the running statement with
// SQLITE_INTERRUPT. Once late, it keeps answering so, whatever SQLite runs next.
int interruptWhenLate(void* context) {
  auto* state = static_cast<StatementDeadline*>(context);
  if (std::chrono::steady_clock::now() < state->deadline) return 0;
  state->interrupted = true;
  return 1;
}

}  // namespace

void hardenConnection(sqlite3* db, StatementDeadline* deadline) {
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, static_cast<int*>(nullptr));
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, static_cast<int*>(nullptr));
  sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, static_cast<int*>(nullptr));
  sqlite3_progress_handler(db, kProgressCheckSteps, &interruptWhenLate, deadline);
}

}  // namespace tovani
