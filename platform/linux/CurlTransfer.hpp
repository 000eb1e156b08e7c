#pragma once
// One libcurl transfer and the options every handle shares. Private to the Linux adapters.
#include <curl/curl.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tovani/linux/CurlHttp.hpp"

namespace tovani::linux::detail {

using SteadyClock = std::chrono::steady_clock;

void ensureCurlInitialised();
// True when `url` parses and its scheme is http or https.
bool isFetchableUrl(const std::string& url);
curl_slist* makeConnectTo(const std::vector<std::string>& mappings);
// Protocols, redirects, host mapping, trust store, signals: the same for every handle.
void applyCommonOptions(CURL* easy, const HttpOptions& options, curl_slist* connectTo,
                        bool followRedirects);

struct TemporaryFile {
  int fd = -1;
  std::string path;
};
// Creates a new, empty file readable only by us, refusing to follow or reuse anything that
// already exists at the chosen name.
std::optional<TemporaryFile> createTemporaryFile(const std::string& directory, std::string* error);
// True for a name createTemporaryFile makes.
bool isTemporaryFileName(std::string_view name);

struct Transfer {
  enum class Kind { Data, Download, Beacon };

  Transfer() = default;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  // Releases the handle, closes the file and removes it unless it was handed on.
  ~Transfer();

  // Makes the easy handle for `request`; false when libcurl cannot make one.
  bool configure(const CurlRequest& request, const HttpOptions& options, curl_slist* connectTo);
  // Time after which the transfer counts as stalled; none while still connecting.
  std::optional<SteadyClock::time_point> idleDeadline() const;
  // Collects the outcome; `timedOutIdle` marks a stall detected by the worker.
  CurlResult result(CURLcode code, bool timedOutIdle);

  Kind kind = Kind::Data;
  CURL* easy = nullptr;
  char errorBuffer[CURL_ERROR_SIZE] = {};
  uint64_t maxBytes = 0;
  uint64_t received = 0;
  bool tooLarge = false;
  bool writeFailed = false;
  TemporaryFile file;
  std::string body;
  HttpResponse response;
  bool connected = false;
  SteadyClock::time_point lastActivity{};
  double idleSeconds = 3.0;
  std::function<void(CurlResult)> dataDone;
  DownloadCompletion downloadDone;
  // Beacons sent for an inspector only: told how the beacon went.
  BeaconReportHandler beaconDone;
  SteadyClock::time_point startedAt = SteadyClock::now();
};

}  // namespace tovani::linux::detail
