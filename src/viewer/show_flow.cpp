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

void tovaniViewer::adPlay_TNSDK() {
  if (ads_init_flag != 1) {
    tovaniResult = 2;
    notification_send();
    removeFromSuperview();
    return;
  }
  if (db_Init_flag != 1) {
    tovaniResult = 1;
    notification_send();
    removeFromSuperview();
    downloadDataBase();
    return;
  }
  if (isAdStart) return;
  isAdStart = true;

  tovaniUtils::requestNetwork(
      *platform(), adRequestURL("vast"),
      [viewer = self()](std::string body, HttpResponse, std::optional<HttpError> error) {
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
  init_player();
  platform()->application->setStatusBarHidden(isAppStatusBarHidden);
  notification_send();
}

void tovaniViewer::notification_send() {
  // The host holds its delegate; once it is gone the result simply stays in tovaniResult.
  const auto receiver = delegate.lock();
  if (!receiver) return;
  receiver->tovaniCallBack(tovaniResult);
}

}  // namespace tovani
