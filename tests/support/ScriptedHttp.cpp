#include "support/ScriptedHttp.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace tovani::test {

namespace {

HttpError timeoutError() {
  return HttpError{-1001, "The request timed out."};
}
HttpError unreachableError() {
  return HttpError{-1004, "Could not connect to the server."};
}

}  // namespace

void ScriptedHttp::onPrefix(const std::string& prefix, Answer answer) {
  on([prefix](const std::string& url) { return url.rfind(prefix, 0) == 0; }, std::move(answer));
}

void ScriptedHttp::onExact(const std::string& url, Answer answer) {
  on([url](const std::string& u) { return u == url; }, std::move(answer));
}

void ScriptedHttp::on(std::function<bool(const std::string&)> matcher, Answer answer) {
  routes_.push_back({std::move(matcher), std::move(answer)});
}

ScriptedHttp::Answer ScriptedHttp::answerFor(const std::string& url) const {
  for (auto it = routes_.rbegin(); it != routes_.rend(); ++it) {
    if (it->matches(url)) return it->answer;
  }
  Answer none;
  none.status = 0;
  none.error = unreachableError();
  return none;
}

std::vector<ScriptedHttp::Recorded> ScriptedHttp::requests(Kind kind) const {
  std::vector<Recorded> out;
  for (const auto& r : requests_) {
    if (r.kind == kind) out.push_back(r);
  }
  return out;
}

std::vector<std::string> ScriptedHttp::urls(Kind kind) const {
  std::vector<std::string> out;
  for (const auto& r : requests_) {
    if (r.kind == kind) out.push_back(r.url);
  }
  return out;
}

void ScriptedHttp::dataRequest(DataRequest request, DataCompletion done) {
  requests_.push_back({Kind::Data,
                       request.url,
                       request.method,
                       request.body,
                       queue_->now(),
                       request.idleTimeoutSeconds,
                       request.allowsCellularAccess,
                       {}});
  Answer answer = answerFor(request.url);
  double delay = answer.delay;
  if (delay > request.idleTimeoutSeconds) {
    delay = request.idleTimeoutSeconds;
    answer = Answer{{}, 0, timeoutError(), 0};
  }
  queue_->postAfter(delay, [answer, done = std::move(done)] {
    done(answer.error ? std::string() : answer.body, HttpResponse{answer.status, {}}, answer.error);
  });
}

void ScriptedHttp::download(DownloadRequest request, DownloadCompletion done) {
  requests_.push_back({Kind::Download,
                       request.url,
                       "GET",
                       {},
                       queue_->now(),
                       request.idleTimeoutSeconds,
                       request.allowsCellularAccess,
                       request.temporaryDirectory});
  Answer answer = answerFor(request.url);
  double delay = answer.delay;
  if (delay > request.idleTimeoutSeconds) {
    delay = request.idleTimeoutSeconds;
    answer = Answer{{}, 0, timeoutError(), 0};
  }
  const std::string dir = request.temporaryDirectory;
  queue_->postAfter(delay, [this, answer, dir, done = std::move(done)] {
    if (answer.error) {
      done(std::nullopt, HttpResponse{answer.status, {}}, answer.error);
      return;
    }
    // Like a real adapter: the body lands in a temporary file beside the destination,
    // and whatever the caller leaves of it is removed after the completion.
    const auto path = (std::filesystem::path(dir) /
                       (".tovani-test-download-" + std::to_string(nextTemporaryFile_++)))
                          .string();
    {
      std::ofstream out(path, std::ios::binary);
      out << answer.body;
    }
    ++liveTemporaryFiles_;
    done(path, HttpResponse{answer.status, {}}, std::nullopt);
    std::error_code ec;
    std::filesystem::remove(path, ec);
    --liveTemporaryFiles_;
  });
}

void ScriptedHttp::beacon(const std::string& url) {
  requests_.push_back({Kind::Beacon, url, "GET", {}, queue_->now(), 0, true, {}});
}

void ScriptedHttp::reportedBeacon(const std::string& url, BeaconReportHandler report) {
  beacon(url);
  // Answered by the routes like any request; a beacon has no idle time-out of its own here.
  const Answer answer = answerFor(url);
  queue_->postAfter(answer.delay, [answer, report = std::move(report)] {
    report(BeaconReport{answer.error ? 0 : answer.status, answer.delay, answer.error});
  });
}

std::optional<std::string> ScriptedHttp::fetchBlocking(const std::string& url) {
  return fetchBlockingWithin(url, 3.0);
}

std::optional<std::string> ScriptedHttp::fetchBlockingWithin(const std::string& url,
                                                             double timeLimitSeconds) {
  requests_.push_back({Kind::Blocking, url, "GET", {}, queue_->now(), timeLimitSeconds, true, {}});
  const Answer answer = answerFor(url);
  queue_->block(std::min(answer.delay, timeLimitSeconds));
  if (answer.delay > timeLimitSeconds) return std::nullopt;
  if (answer.error || answer.status < 200 || answer.status > 299) return std::nullopt;
  return answer.body;
}

}  // namespace tovani::test
