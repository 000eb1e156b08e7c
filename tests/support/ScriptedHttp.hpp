#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/VirtualMainQueue.hpp"
#include "tovani/platform/Http.hpp"

namespace tovani::test {

// Scripted network on virtual time. Routes answer requests; every request is recorded.
class ScriptedHttp : public Http {
 public:
  struct Answer {
    std::string body;
    long status = 200;
    std::optional<HttpError> error;  // transport failure
    double delay = 0;                // seconds until the answer; beyond the idle time-out
                                     // the request fails with a time-out instead
  };
  enum class Kind { Data, Download, Beacon, Blocking };
  struct Recorded {
    Kind kind;
    std::string url;
    std::string method;
    std::string body;
    double at = 0;  // virtual time of the call
    double idleTimeoutSeconds = 0;
    bool allowsCellularAccess = false;
    std::string temporaryDirectory;
  };

  explicit ScriptedHttp(std::shared_ptr<VirtualMainQueue> queue) : queue_(std::move(queue)) {}

  // The latest matching route answers. `prefix` matches URLs that start with it.
  void onPrefix(const std::string& prefix, Answer answer);
  void onExact(const std::string& url, Answer answer);
  void on(std::function<bool(const std::string&)> matcher, Answer answer);
  // Without a route a request fails like an unreachable host.
  void clearRoutes() { routes_.clear(); }

  const std::vector<Recorded>& requests() const { return requests_; }
  std::vector<Recorded> requests(Kind kind) const;
  std::vector<std::string> urls(Kind kind) const;
  void clearRecorded() { requests_.clear(); }
  // Temporary download files still on disk (must be none after completions ran).
  int liveTemporaryFiles() const { return liveTemporaryFiles_; }

  void dataRequest(DataRequest request, DataCompletion done) override;
  void download(DownloadRequest request, DownloadCompletion done) override;
  void beacon(const std::string& url) override;
  void reportedBeacon(const std::string& url, BeaconReportHandler report) override;
  std::optional<std::string> fetchBlocking(const std::string& url) override;
  // Holds the (virtual) thread for the answer's delay, or for the limit when that is shorter.
  std::optional<std::string> fetchBlockingWithin(const std::string& url,
                                                 double timeLimitSeconds) override;

 private:
  struct Route {
    std::function<bool(const std::string&)> matches;
    Answer answer;
  };
  Answer answerFor(const std::string& url) const;

  std::shared_ptr<VirtualMainQueue> queue_;
  std::vector<Route> routes_;
  std::vector<Recorded> requests_;
  int liveTemporaryFiles_ = 0;
  int nextTemporaryFile_ = 0;
};

}  // namespace tovani::test
