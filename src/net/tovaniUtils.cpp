#include "net/tovaniUtils.hpp"

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "net/UrlEncoding.hpp"
#include "util/Guard.hpp"
#include "util/Text.hpp"

namespace tovani {

namespace {

constexpr double kIdleTimeoutSeconds = 3.0;

// Runs the caller's completion at the main-queue boundary: whatever it throws is logged and
// stops there instead of unwinding into the HTTP adapter and the host's run loop.
template <typename Completion, typename... Args>
void complete(const std::shared_ptr<Log>& log, Completion& completion, Args&&... args) {
  if (!completion) return;
  guarded(log, [&]() { completion(std::forward<Args>(args)...); })();
}

// A platform without the ports a request needs cannot send it; the caller still hears of
// the failure, later and on the main queue like any other answer, instead of waiting.
template <typename Completion, typename Nothing>
void failUnsent(const Platform& platform, Completion completion, Nothing nothing) {
  if (platform.log) platform.log->write("tovani: request not sent: the platform lacks a port");
  if (!platform.mainQueue) return;
  platform.mainQueue->post([log = platform.log, completion = std::move(completion),
                            nothing = std::move(nothing)]() mutable {
    complete(log, completion, std::move(nothing), HttpResponse{},
             std::optional<HttpError>(HttpError{0, "request not sent"}));
  });
}

}  // namespace

void tovaniUtils::requestNetwork(const Platform& platform, const std::string& url,
                                 DataCompletion completion) {
  if (!platform.http) {
    failUnsent(platform, std::move(completion), std::string());
    return;
  }
  DataRequest request;
  request.url = url;
  request.method = "GET";
  request.idleTimeoutSeconds = kIdleTimeoutSeconds;
  request.allowsCellularAccess = true;
  platform.http->dataRequest(
      std::move(request),
      [log = platform.log, completion = std::move(completion)](
          std::string body, HttpResponse response, std::optional<HttpError> error) mutable {
        complete(log, completion, std::move(body), std::move(response), std::move(error));
      });
}

void tovaniUtils::requestDownload(const Platform& platform, const std::string& url,
                                  DownloadCompletion completion) {
  if (!platform.http || !platform.device) {
    failUnsent(platform, std::move(completion), std::optional<std::string>());
    return;
  }
  DownloadRequest request;
  request.url = url;
  request.idleTimeoutSeconds = kIdleTimeoutSeconds;
  // The temporary file lands beside its final place, so that moving it in is one rename and
  // nothing is ever written outside the app's documents folder.
  const auto folder = documentsFolder(*platform.device);
  if (!folder) {
    failUnsent(platform, std::move(completion), std::optional<std::string>());
    return;
  }
  request.temporaryDirectory = *folder;
  platform.http->download(
      std::move(request), [log = platform.log, completion = std::move(completion)](
                              std::optional<std::string> file, HttpResponse response,
                              std::optional<HttpError> error) mutable {
        complete(log, completion, std::move(file), std::move(response), std::move(error));
      });
}

std::optional<std::string> tovaniUtils::documentsFolder(const Device& device) {
  std::string folder = device.documentsDirectory();
  // "~" and "~/..." stand for the user's home folder, as the platform's folder search gives
  // them; "~name" is not expanded and stays relative.
  if (folder == "~" || folder.starts_with("~/")) {
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') return std::nullopt;
    folder = std::string(home) + folder.substr(1);
  }
  if (!std::filesystem::path(folder).is_absolute()) return std::nullopt;
  return folder;
}

std::string tovaniUtils::queryParameterForDeviceName(const Device& device) {
  const auto model = device.hardwareModel();
  if (!model) return "";
  return formatAt("&device=%@", {mp_URLEncodedString(*model)});
}

std::string tovaniUtils::queryParameterForDeviceVersion(const Device& device) {
  const auto version = device.osVersion();
  if (!version) return "";
  return formatAt("&osv=%@", {mp_URLEncodedString(*version)});
}

}  // namespace tovani
