#pragma once
#include <functional>
#include <map>
#include <optional>
#include <string>
#include "tovani/Export.hpp"

namespace tovani {

struct HttpError {
  int code = 0;  // adapter-specific; 0 when unknown
  std::string message;
};

struct HttpResponse {
  long status = 0;  // 0 when no response arrived
  std::map<std::string, std::string> headers;
};

struct DataRequest {
  std::string url;
  std::string method = "GET";
  std::string body;
  double idleTimeoutSeconds = 3.0;  // no byte for this long -> error
  bool allowsCellularAccess = true;
};

struct DownloadRequest {
  std::string url;
  double idleTimeoutSeconds = 3.0;
  bool allowsCellularAccess = true;
  // The body is written to a new temporary file inside this folder, so that the caller's
  // move into place is an atomic rename on one file system.
  std::string temporaryDirectory;
};

// Completion of a data request: body, response, error (set on transport failure or
// time-out; the HTTP status is not an error here).
using DataCompletion =
    std::function<void(std::string body, HttpResponse response, std::optional<HttpError> error)>;
// Completion of a download: the temporary file (absent on error), response, error. The
// file belongs to the caller during the call; whatever is left of it afterwards is removed.
using DownloadCompletion =
    std::function<void(std::optional<std::string> temporaryFile, HttpResponse response,
                       std::optional<HttpError> error)>;

// How a beacon went, as far as the adapter learned it: the HTTP status of the answer, or the
// transport error, and the time from sending to either.
struct BeaconReport {
  long status = 0;  // 0 when no answer arrived
  double latencySeconds = 0;
  std::optional<HttpError> error;
};
using BeaconReportHandler = std::function<void(BeaconReport report)>;

class TOVANI_EXPORT Http {
 public:
  virtual ~Http() = default;
  // Starts a request; `done` runs later, always on the main queue, never inside this call.
  virtual void dataRequest(DataRequest request, DataCompletion done) = 0;
  // Starts a download; `done` runs later on the main queue, never inside this call.
  virtual void download(DownloadRequest request, DownloadCompletion done) = 0;
  // Fire-and-forget GET; the answer is ignored. An unparsable URL sends nothing.
  virtual void beacon(const std::string& url) = 0;
  // The same request as beacon(), for an inspected showing: `report` runs later on the main
  // queue with what the adapter learned. The core never waits for it or acts on it. An
  // adapter that cannot tell sends the plain beacon and never reports.
  virtual void reportedBeacon(const std::string& url, BeaconReportHandler report) {
    (void)report;
    beacon(url);
  }
  // The only blocking call: fetches `url` on the calling thread with a bounded total time.
  // Returns the body of a successful (2xx) answer, or nothing.
  virtual std::optional<std::string> fetchBlocking(const std::string& url) = 0;
  // The same, given up after `timeLimitSeconds` at the latest (the adapter's own bound
  // applies too). An adapter that cannot bound a single call answers with the plain fetch.
  // Removes the temporary download files that an earlier run left in `directory` (a crash,
  // or an exit while a download ran), recognised by the adapter's own naming, and never one
  // that a download of this process still writes. Called at start-up.
  virtual void removeLeftoverDownloads(const std::string& directory) { (void)directory; }
  virtual std::optional<std::string> fetchBlockingWithin(const std::string& url,
                                                         double timeLimitSeconds) {
    (void)timeLimitSeconds;
    return fetchBlocking(url);
  }
};

}  // namespace tovani
