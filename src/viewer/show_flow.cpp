#include <utility>

#include "net/Reachability.hpp"
#include "net/UrlEncoding.hpp"
#include "net/tovaniUtils.hpp"
#include "tovani/Constants.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// Clears isAdStart when the ad request's completion is left, also by an exception from the
// VAST mapping: a flag left set would silently swallow every later show request.
class AdRequestInFlight {
 public:
  AdRequestInFlight() = default;
  ~AdRequestInFlight() { isAdStart = false; }
  AdRequestInFlight(const AdRequestInFlight&) = delete;
  AdRequestInFlight& operator=(const AdRequestInFlight&) = delete;
};

}  // namespace

void tovaniViewer::prepareAD_TNSDK() {
  // A sync against a store that is about to be replaced would write into the old file.
  if (isDatabaseDownloading) return;
  if (connectedToNetwork(tnProviderUrl)) {
    getTNJsonList();
  } else {
    tovaniResult = 2;
    notification_send();
  }
}

bool tovaniViewer::connectedToNetwork(const Text& /*host: the general internet is tested*/) {
  const auto reachability =
      Reachability::reachabilityForInternetConnection(platform()->reachability);
  return reachability->currentReachabilityStatus() != NotReachable;
}

namespace {

void inspectCheck(tovaniViewer& viewer, const char* name, bool ended, const char* reason,
                  std::optional<int32_t> result = std::nullopt) {
  viewer.inspection.emit([&] {
    InspectorEvent e;
    e.kind = InspectorEventKind::ShowCheck;
    e.name = name;
    e.outcome = ended ? "ended" : "passed";
    e.reason = reason;
    e.result = result;
    return e;
  });
}

InspectorEvent requestEvent(const char* name, const std::string& url) {
  InspectorEvent e;
  e.kind = InspectorEventKind::AdRequest;
  e.name = name;
  e.url = url;
  return e;
}

}  // namespace

void tovaniViewer::adPlay_TNSDK() {
  inspection.beginShowing();
  inspectCheck(
      *this, "started", ads_init_flag != 1,
      ads_init_flag != 1 ? "the SDK was not started (init not called or it stopped)" : "started",
      ads_init_flag != 1 ? std::optional<int32_t>(2) : std::nullopt);
  if (ads_init_flag != 1) {
    tovaniResult = 2;
    notification_send();
    removeFromSuperview();
    return;
  }
  inspectCheck(*this, "store", db_Init_flag != 1,
               db_Init_flag != 1
                   ? (isDatabaseDownloading ? "the ad store is still downloading"
                                            : "there is no ad store; its download starts")
                   : "the ad store is in place",
               db_Init_flag != 1 ? std::optional<int32_t>(1) : std::nullopt);
  if (db_Init_flag != 1) {
    tovaniResult = 1;
    notification_send();
    removeFromSuperview();
    downloadDataBase();
    return;
  }
  inspectCheck(*this, "request-in-flight", isAdStart,
               isAdStart ? "an ad request is already in flight; this call is ignored"
                         : "no ad request in flight");
  if (isAdStart) return;
  isAdStart = true;

  const std::string url = adRequestURL("vast");
  // Kept for the answer's event only while inspecting.
  const double sentAt = inspection.active() ? monotonicSeconds() : 0;
  std::string inspectedUrl = inspection.active() ? url : std::string();
  inspection.emit([&] { return requestEvent("sent", url); });
  tovaniUtils::requestNetwork(
      *platform(), url,
      [viewer = self(), inspectedUrl = std::move(inspectedUrl), sentAt](
          std::string body, HttpResponse response, std::optional<HttpError> error) {
        viewer->inspection.emit([&] {
          InspectorEvent e = requestEvent(error ? "failed" : "answered", inspectedUrl);
          e.latencySeconds = monotonicSeconds() - sentAt;
          if (error) {
            e.error = error->message;
          } else {
            e.status = response.status;
            e.bytes = static_cast<int64_t>(body.size());
          }
          return e;
        });
        if (error) {
          isAdStart = false;
          tovaniResult = 2;
          viewer->notification_send();
          viewer->removeFromSuperview();
          return;
        }
        const AdRequestInFlight clearWhenDone;
        // A body that is not UTF-8 has no text at all, as the platform's decoding gives none.
        Text answer;
        if (isValidUtf8(body)) answer = std::move(body);
        viewer->parsingXml(answer);
      });
}

std::string tovaniViewer::adRequestURL(const std::string& xml) const {
  // osv and device are already encoded at start-up; the whole-text escaping encodes their
  // "%" once more, which is what the ad server expects.
  return legacyEscapeURL(
      formatAt(TOVANI_URL_AD, {tnProviderUrl, mediaCode, slotCode, tnUUIDStr, xml, cateCode,
                               tnvendor, tnOsversion, tnDeviceInfo, tnidfa, tnSDKVersion}));
}

void tovaniViewer::adClose_TNSDK() {
  inspectStage("close");
  init_player();
  platform()->application->setStatusBarHidden(isAppStatusBarHidden);
  notification_send();
}

void tovaniViewer::notification_send() {
  // The host holds its delegate; once it is gone the result simply stays in tovaniResult.
  const auto receiver = delegate.lock();
  inspection.emit([&] {
    InspectorEvent e;
    e.kind = InspectorEventKind::Callback;
    e.name = "tovaniCallBack";
    e.result = tovaniResult;
    if (!receiver) e.reason = "no delegate: nobody was called";
    return e;
  });
  if (!receiver) return;
  receiver->tovaniCallBack(tovaniResult);
}

}  // namespace tovani
