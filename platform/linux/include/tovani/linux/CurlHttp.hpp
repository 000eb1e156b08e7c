#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tovani/Export.hpp"
#include "tovani/platform/Http.hpp"
#include "tovani/platform/MainQueue.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

struct HttpOptions {
  // Host mappings "host:port:connect-to-host:connect-to-port", e.g.
  // "ads.tovani.example:80:127.0.0.1:18080": the URL keeps its host, the socket goes there.
  std::vector<std::string> connectTo;
  std::string caFile;  // PEM bundle to trust instead of the system's store; empty: system
  uint64_t maxDownloadBytes = 512ull << 20;  // larger downloads fail while receiving
  uint64_t maxBodyBytes = 16ull << 20;       // data requests, pages and blocking fetches
  long maxRedirects = 5;
  // Whole fetchBlocking call, connect included. It runs on the main thread (the countdown
  // images), so it stays as short as the SDK's own idle time-out.
  double blockingFetchTimeoutSeconds = 3.0;
  double beaconIdleTimeoutSeconds = 10.0;
  std::string userAgent = "tovani-linux";
};

// HttpError::code values: libcurl's result codes, with the ones a caller may act on named.
inline constexpr int kHttpErrorUnsupportedProtocol = 1;  // not http/https, redirects included
inline constexpr int kHttpErrorTimedOut = 28;            // idle or connect time-out
inline constexpr int kHttpErrorTooLarge = 63;            // over the configured size cap
inline constexpr int kHttpErrorTooManyRedirects = 47;
inline constexpr int kHttpErrorFile = 23;  // the temporary file could not be made or written

// A request with the knobs the port does not expose; used by the web view.
struct CurlRequest {
  std::string url;
  std::string method = "GET";
  std::string body;  // sent form-encoded when the method is POST
  double idleTimeoutSeconds = 3.0;
  bool allowsCellularAccess = true;
  bool followRedirects = true;
  uint64_t maxBytes = 0;  // 0: HttpOptions::maxBodyBytes
};

struct CurlResult {
  std::string body;
  HttpResponse response;
  std::optional<HttpError> error;
  std::string effectiveUrl;  // the URL of the last answer
  std::string redirectUrl;   // the absolute Location of a 3xx answer that was not followed
};

// What each started request asked for; the cellular flag has no effect on Linux, where no
// interface can be excluded per request, so it is kept here for hosts and tests to check.
struct RequestRecord {
  std::string kind;  // "data", "download", "beacon", "page", "blocking"
  std::string method;
  std::string url;
  bool allowsCellularAccess = true;
};

// The Http port on libcurl: one worker thread drives every asynchronous transfer through
// one multi handle and posts each completion to the main queue. "No data for N seconds" is
// measured from the last byte received (or from the connection, before the first byte), so
// a slow but steady transfer is never cut off, however long it takes.
class TOVANI_EXPORT CurlHttp final : public Http {
 public:
  CurlHttp(std::shared_ptr<MainQueue> mainQueue, HttpOptions options = {});
  // Stops the worker; transfers still running are dropped with their temporary files, and
  // their completions never run.
  ~CurlHttp() override;
  CurlHttp(const CurlHttp&) = delete;
  CurlHttp& operator=(const CurlHttp&) = delete;

  void dataRequest(DataRequest request, DataCompletion done) override;
  void download(DownloadRequest request, DownloadCompletion done) override;
  void beacon(const std::string& url) override;
  // The same request; `report` runs on the main queue with the status and the time from the
  // start of the transfer to its end, or the transport error.
  void reportedBeacon(const std::string& url, BeaconReportHandler report) override;
  std::optional<std::string> fetchBlocking(const std::string& url) override;
  void removeLeftoverDownloads(const std::string& directory) override;
  std::optional<std::string> fetchBlockingWithin(const std::string& url,
                                                 double timeLimitSeconds) override;

  // Starts `request`; `done` runs later on the main queue.
  void send(CurlRequest request, std::function<void(CurlResult)> done);

  // The most recent requests, oldest first (at most 256). Any thread.
  std::vector<RequestRecord> requestLog() const;
  const HttpOptions& options() const;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace tovani::linux

#pragma pop_macro("linux")
