#pragma once
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
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
  // The first entry `match` accepts, waiting up to `timeoutSeconds` for it to arrive.
  std::optional<LoggedRequest> waitFor(const std::function<bool(const LoggedRequest&)>& match,
                                       double timeoutSeconds) const;
  void clear();
  nlohmann::json toJson() const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::chrono::steady_clock::time_point started_;
  std::uint64_t nextId_ = 1;
  std::vector<LoggedRequest> entries_;
};

}  // namespace tovani::adserver
