#include "RequestLog.hpp"

#include <algorithm>

namespace tovani::adserver {

RequestLog::RequestLog() : started_(std::chrono::steady_clock::now()) {}

void RequestLog::record(LoggedRequest& entry) {
  const auto now = std::chrono::system_clock::now();
  entry.epoch = std::chrono::duration<double>(now.time_since_epoch()).count();
  std::lock_guard lock(mutex_);
  entry.time = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
  entry.id = nextId_++;
  entries_.push_back(entry);
  changed_.notify_all();
}

void RequestLog::setStatus(std::uint64_t id, int status) {
  std::lock_guard lock(mutex_);
  const auto it = std::find_if(entries_.begin(), entries_.end(),
                               [id](const LoggedRequest& e) { return e.id == id; });
  if (it != entries_.end()) it->status = status;
  changed_.notify_all();
}

std::vector<LoggedRequest> RequestLog::entries() const {
  std::lock_guard lock(mutex_);
  return entries_;
}

std::optional<LoggedRequest> RequestLog::waitFor(
    const std::function<bool(const LoggedRequest&)>& match, double timeoutSeconds) const {
  std::unique_lock lock(mutex_);
  std::optional<LoggedRequest> found;
  changed_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds), [&] {
    const auto it = std::find_if(entries_.begin(), entries_.end(), match);
    if (it != entries_.end()) found = *it;
    return found.has_value();
  });
  return found;
}

void RequestLog::clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
}

nlohmann::json RequestLog::toJson() const {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& e : entries()) {
    list.push_back({{"id", e.id},
                    {"scheme", e.scheme},
                    {"method", e.method},
                    {"host", e.host},
                    {"path", e.path},
                    {"query", e.query},
                    {"body", e.body},
                    {"route", e.route},
                    {"status", e.status},
                    {"time", e.time},
                    {"epoch", e.epoch}});
  }
  return {{"requests", list}};
}

}  // namespace tovani::adserver
