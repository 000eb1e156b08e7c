#pragma once
#include <sqlite3.h>

#include <chrono>

namespace tovani {

// The time by which a statement on a store connection must be done.
struct StatementDeadline {
  std::chrono::steady_clock::time_point deadline;
  bool interrupted = false;
};

// The store file comes from the network. None of these settings changes what an ordinary
// statement on the store's tables does; they take away what only a hostile file would use:
// loading native code, schema-level tricks (writable schema, shadow tables), functions with
// side effects run from the file's own views and triggers, and statements that never end
// (interrupted once `deadline` has passed). `deadline` must outlive the connection.
void hardenConnection(sqlite3* db, StatementDeadline* deadline);

}  // namespace tovani
