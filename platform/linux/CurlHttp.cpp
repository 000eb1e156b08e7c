#include "tovani/linux/CurlHttp.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CurlTransfer.hpp"

namespace tovani::linux {

using detail::SteadyClock;
using detail::Transfer;

namespace {

constexpr size_t kRequestLogSize = 256;

struct BlockingSink {
  std::string body;
  uint64_t maxBytes = 0;
};

size_t onBlockingBody(char* data, size_t size, size_t count, void* user) {
  auto* sink = static_cast<BlockingSink*>(user);
  const size_t length = size * count;
  if (sink->body.size() + length > sink->maxBytes) return 0;
  sink->body.append(data, length);
  return length;
}

// A downloaded file handed to a completion, removed once the completion is over.
class Leftover {
 public:
  explicit Leftover(std::string path) : path_(std::move(path)) {}
  Leftover(const Leftover&) = delete;
  Leftover& operator=(const Leftover&) = delete;
  ~Leftover() { remove(); }
  void remove() {
    if (!path_.empty()) ::unlink(path_.c_str());
    path_.clear();
  }

 private:
  std::string path_;
};

// Stops every live worker when the process exits. A host may exit while transfers run, and
// the TLS library's own exit handler then frees what such a transfer goes on using on its
// worker thread. The handler is registered after curl's global set-up, so it runs first.
class WorkersAtExit {
 public:
  static WorkersAtExit& instance() {
    static auto* workers = new WorkersAtExit;  // used from an exit handler: never destroyed
    return *workers;
  }
  void add(const void* key, std::function<void()> stop) {
    std::lock_guard lock(mutex_);
    if (!registered_) registered_ = std::atexit(&WorkersAtExit::stopAll) == 0;
    stops_[key] = std::move(stop);
  }
  void remove(const void* key) {
    std::lock_guard lock(mutex_);
    stops_.erase(key);
  }

 private:
  static void stopAll() {
    std::unordered_map<const void*, std::function<void()>> stops;
    {
      std::lock_guard lock(instance().mutex_);
      stops.swap(instance().stops_);
    }
    for (auto& [key, stop] : stops) stop();
  }
  std::mutex mutex_;
  bool registered_ = false;
  std::unordered_map<const void*, std::function<void()>> stops_;
};

}  // namespace

struct CurlHttp::Impl {
  std::shared_ptr<MainQueue> mainQueue;
  HttpOptions options;
  curl_slist* connectTo = nullptr;
  CURLM* multi = nullptr;
  std::thread worker;

  std::mutex mutex;  // guards pending and stopping
  std::vector<std::unique_ptr<Transfer>> pending;
  bool stopping = false;
  std::map<CURL*, std::unique_ptr<Transfer>> active;  // worker thread only

  mutable std::mutex logMutex;
  std::deque<RequestRecord> log;

  std::mutex temporaryMutex;
  std::set<std::string> temporaryFiles;  // names of every temporary file this process made

  std::mutex blockingMutex;
  CURL* blocking = nullptr;  // kept between calls so its connections and TLS sessions are reused

  std::mutex joinMutex;  // the destructor and the exit handler may both stop the worker

  // Idempotent; transfers still running are dropped with their temporary files.
  void stopWorker() {
    {
      std::lock_guard lock(mutex);
      stopping = true;
    }
    curl_multi_wakeup(multi);
    std::lock_guard join(joinMutex);
    if (worker.joinable() && worker.get_id() != std::this_thread::get_id()) worker.join();
  }

  ~Impl() {
    if (blocking != nullptr) curl_easy_cleanup(blocking);
    if (multi != nullptr) curl_multi_cleanup(multi);
    curl_slist_free_all(connectTo);
  }

  void record(std::string kind, std::string method, std::string url, bool cellular) {
    std::lock_guard lock(logMutex);
    if (log.size() == kRequestLogSize) log.pop_front();
    log.push_back({std::move(kind), std::move(method), std::move(url), cellular});
  }

  void submit(std::unique_ptr<Transfer> transfer) {
    {
      std::lock_guard lock(mutex);
      pending.push_back(std::move(transfer));
    }
    curl_multi_wakeup(multi);
  }

  void finish(std::unique_ptr<Transfer> transfer, CURLcode code, bool timedOutIdle) {
    CurlResult result = transfer->result(code, timedOutIdle);
    switch (transfer->kind) {
      case Transfer::Kind::Beacon:
        if (transfer->beaconDone) {
          const double latency =
              std::chrono::duration<double>(SteadyClock::now() - transfer->startedAt).count();
          mainQueue->post([done = std::move(transfer->beaconDone), result = std::move(result),
                           latency]() {
            done(BeaconReport{result.error ? 0 : result.response.status, latency, result.error});
          });
        }
        return;
      case Transfer::Kind::Data:
        mainQueue->post(
            [done = std::move(transfer->dataDone), result = std::move(result)]() { done(result); });
        return;
      case Transfer::Kind::Download:
        break;
    }
    ::close(transfer->file.fd);
    transfer->file.fd = -1;
    std::optional<std::string> path;
    if (!result.error) {
      // Handed on; from now on the completion task, not the transfer, removes what is left.
      path = std::exchange(transfer->file.path, {});
    } else {
      // Gone before the caller hears of the failure, not at some point after.
      ::unlink(transfer->file.path.c_str());
      transfer->file.path.clear();
    }
    // The caller moves the file into place during the call; whatever is still there when it
    // returns, or when the completion is dropped unrun, was not wanted.
    auto leftover = path ? std::make_shared<Leftover>(*path) : nullptr;
    mainQueue->post([done = std::move(transfer->downloadDone), path, leftover,
                     response = std::move(result.response), error = std::move(result.error)]() {
      done(path, response, error);
      if (leftover) leftover->remove();
    });
  }

  void adoptPending() {
    std::vector<std::unique_ptr<Transfer>> batch;
    {
      std::lock_guard lock(mutex);
      batch.swap(pending);
    }
    for (auto& transfer : batch) {
      CURL* easy = transfer->easy;
      if (curl_multi_add_handle(multi, easy) != CURLM_OK) {
        finish(std::move(transfer), CURLE_FAILED_INIT, false);
        continue;
      }
      active.emplace(easy, std::move(transfer));
    }
  }

  void collectFinished() {
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* easy = message->easy_handle;
      const CURLcode code = message->data.result;
      curl_multi_remove_handle(multi, easy);
      auto node = active.extract(easy);
      if (!node.empty()) finish(std::move(node.mapped()), code, false);
    }
  }

  // Ends transfers that received nothing for their idle time; returns the next deadline.
  std::optional<SteadyClock::time_point> endStalled() {
    const auto now = SteadyClock::now();
    std::optional<SteadyClock::time_point> next;
    for (auto it = active.begin(); it != active.end();) {
      const auto deadline = it->second->idleDeadline();
      if (deadline && *deadline <= now) {
        curl_multi_remove_handle(multi, it->first);
        finish(std::move(it->second), CURLE_OPERATION_TIMEDOUT, true);
        it = active.erase(it);
        continue;
      }
      if (deadline && (!next || *deadline < *next)) next = deadline;
      ++it;
    }
    return next;
  }

  void run() {
    for (;;) {
      {
        std::lock_guard lock(mutex);
        if (stopping) break;
      }
      adoptPending();
      int running = 0;
      curl_multi_perform(multi, &running);
      collectFinished();
      const auto next = endStalled();
      int waitMs = 1000;
      if (next) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - SteadyClock::now());
        waitMs = static_cast<int>(std::clamp<long long>(left.count(), 1, 1000));
      }
      curl_multi_poll(multi, nullptr, 0, waitMs, nullptr);
    }
    for (auto& [easy, transfer] : active) curl_multi_remove_handle(multi, easy);
    active.clear();
    std::lock_guard lock(mutex);
    pending.clear();
  }

  void start(Transfer::Kind kind, const CurlRequest& request, std::unique_ptr<Transfer> transfer) {
    transfer->kind = kind;
    if (!transfer->configure(request, options, connectTo)) {
      finish(std::move(transfer), CURLE_FAILED_INIT, false);
      return;
    }
    submit(std::move(transfer));
  }
};

CurlHttp::CurlHttp(std::shared_ptr<MainQueue> mainQueue, HttpOptions options)
    : impl_(std::make_shared<Impl>()) {
  detail::ensureCurlInitialised();
  impl_->mainQueue = std::move(mainQueue);
  impl_->options = std::move(options);
  impl_->connectTo = detail::makeConnectTo(impl_->options.connectTo);
  impl_->multi = curl_multi_init();
  impl_->worker = std::thread([impl = impl_.get()] { impl->run(); });
  WorkersAtExit::instance().add(impl_.get(), [weak = std::weak_ptr<Impl>(impl_)] {
    if (auto impl = weak.lock()) impl->stopWorker();
  });
}

CurlHttp::~CurlHttp() {
  WorkersAtExit::instance().remove(impl_.get());
  impl_->stopWorker();
}

void CurlHttp::dataRequest(DataRequest request, DataCompletion done) {
  impl_->record("data", request.method, request.url, request.allowsCellularAccess);
  CurlRequest curl{std::move(request.url),
                   std::move(request.method),
                   std::move(request.body),
                   request.idleTimeoutSeconds,
                   request.allowsCellularAccess,
                   true,
                   0};
  auto transfer = std::make_unique<Transfer>();
  transfer->dataDone = [done = std::move(done)](CurlResult result) {
    done(std::move(result.body), std::move(result.response), std::move(result.error));
  };
  impl_->start(Transfer::Kind::Data, curl, std::move(transfer));
}

void CurlHttp::send(CurlRequest request, std::function<void(CurlResult)> done) {
  impl_->record("page", request.method, request.url, request.allowsCellularAccess);
  auto transfer = std::make_unique<Transfer>();
  transfer->dataDone = std::move(done);
  impl_->start(Transfer::Kind::Data, request, std::move(transfer));
}

void CurlHttp::download(DownloadRequest request, DownloadCompletion done) {
  impl_->record("download", "GET", request.url, request.allowsCellularAccess);
  std::string error;
  auto file = detail::createTemporaryFile(request.temporaryDirectory, &error);
  if (!file) {
    impl_->mainQueue->post([done = std::move(done), error] {
      done(std::nullopt, HttpResponse{}, HttpError{kHttpErrorFile, error});
    });
    return;
  }
  {
    std::lock_guard lock(impl_->temporaryMutex);
    impl_->temporaryFiles.insert(std::filesystem::path(file->path).filename().string());
  }
  auto transfer = std::make_unique<Transfer>();
  transfer->file = *file;
  transfer->downloadDone = std::move(done);
  CurlRequest curl;
  curl.url = std::move(request.url);
  curl.idleTimeoutSeconds = request.idleTimeoutSeconds;
  curl.allowsCellularAccess = request.allowsCellularAccess;
  impl_->start(Transfer::Kind::Download, curl, std::move(transfer));
}

void CurlHttp::removeLeftoverDownloads(const std::string& directory) {
  namespace fs = std::filesystem;
  if (!fs::path(directory).is_absolute()) return;
  std::error_code ec;
  fs::directory_iterator entries(directory, ec);
  if (ec) return;
  for (auto it = fs::begin(entries); it != fs::end(entries); it.increment(ec)) {
    if (ec) return;
    if (!detail::isTemporaryFileName(it->path().filename().string())) continue;
    if (it->is_symlink(ec) || !it->is_regular_file(ec)) continue;
    {
      std::lock_guard lock(impl_->temporaryMutex);
      if (impl_->temporaryFiles.count(it->path().filename().string()) > 0) continue;
    }
    std::error_code ignored;
    fs::remove(it->path(), ignored);
  }
}

void CurlHttp::beacon(const std::string& url) {
  if (!detail::isFetchableUrl(url)) return;
  impl_->record("beacon", "GET", url, true);
  CurlRequest curl;
  curl.url = url;
  curl.idleTimeoutSeconds = impl_->options.beaconIdleTimeoutSeconds;
  impl_->start(Transfer::Kind::Beacon, curl, std::make_unique<Transfer>());
}

void CurlHttp::reportedBeacon(const std::string& url, BeaconReportHandler report) {
  if (!detail::isFetchableUrl(url)) {
    // Nothing is sent, which the inspector hears of like any other failure.
    impl_->mainQueue->post([report = std::move(report)] {
      report(BeaconReport{0, 0, HttpError{0, "not an http or https URL: nothing sent"}});
    });
    return;
  }
  impl_->record("beacon", "GET", url, true);
  CurlRequest curl;
  curl.url = url;
  curl.idleTimeoutSeconds = impl_->options.beaconIdleTimeoutSeconds;
  auto transfer = std::make_unique<Transfer>();
  transfer->beaconDone = std::move(report);
  impl_->start(Transfer::Kind::Beacon, curl, std::move(transfer));
}

std::optional<std::string> CurlHttp::fetchBlocking(const std::string& url) {
  return fetchBlockingWithin(url, impl_->options.blockingFetchTimeoutSeconds);
}

std::optional<std::string> CurlHttp::fetchBlockingWithin(const std::string& url,
                                                         double timeLimitSeconds) {
  if (!detail::isFetchableUrl(url)) return std::nullopt;
  impl_->record("blocking", "GET", url, true);
  std::lock_guard lock(impl_->blockingMutex);
  CURL*& easy = impl_->blocking;
  if (easy == nullptr) {
    easy = curl_easy_init();
    if (easy == nullptr) return std::nullopt;
    const auto& options = impl_->options;
    detail::applyCommonOptions(easy, options, impl_->connectTo, true);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBlockingBody);
  }
  // The caller is the main thread: the whole call, connection included, is bounded.
  const double limit = std::min(timeLimitSeconds, impl_->options.blockingFetchTimeoutSeconds);
  if (!(limit > 0)) return std::nullopt;
  const long limitMs = std::max(1L, std::lround(limit * 1000));
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, limitMs);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, limitMs);
  BlockingSink sink;
  sink.maxBytes = impl_->options.maxBodyBytes;
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &sink);
  const CURLcode code = curl_easy_perform(easy);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, nullptr);
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  if (code != CURLE_OK || status < 200 || status > 299) return std::nullopt;
  return std::move(sink.body);
}

std::vector<RequestRecord> CurlHttp::requestLog() const {
  std::lock_guard lock(impl_->logMutex);
  return {impl_->log.begin(), impl_->log.end()};
}

const HttpOptions& CurlHttp::options() const {
  return impl_->options;
}

}  // namespace tovani::linux
