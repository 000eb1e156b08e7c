#pragma once
#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

#include <nlohmann/json.hpp>

#include "tovani/adserver/AdServer.hpp"

namespace tovani::adserver {

// Every request the server answered (or is still answering), in arrival order. Entries
// are recorded on arrival, so a stalled request is visible while it stalls.
class RequestLog {
 public:
  RequestLog();
  // Stamps `entry` with an id and the times, and keeps a copy of it.
  void record(LoggedRequest& entry);
  // Fills in the status once the answer is known; an entry cleared meanwhile is ignored.
  void setStatus(std::uint64_t id, int status);
  std::vector<LoggedRequest> entries() const;
  void clear();
  nlohmann::json toJson() const;

 private:
  mutable std::mutex mutex_;
  std::chrono::steady_clock::time_point started_;
  std::uint64_t nextId_ = 1;
  std::vector<LoggedRequest> entries_;
};

}  // namespace tovani::adserver
