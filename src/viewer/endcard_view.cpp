#include <cstring>
#include <string>

#include "net/Url.hpp"
#include "tovani/Constants.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// The page calls the library through links of this scheme; the host part is the command.
constexpr const char* kBridgeScheme = "tovaniksdkcall";
constexpr const char* kReloadCommand = "reload";
constexpr const char* kCloseCommand = "close";
// "install" is accepted and deliberately does nothing: the page handles it itself.
constexpr double kEndCardZ = 9999;

void takeDown(const std::shared_ptr<View>& view) {
  if (view) view->removeFromSuperview();
}

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

void tovaniViewer::tnEndCard() {
  takeDown(actionevent_imageview);
  takeDown(skipevent_imageview);
  takeDown(button);
  takeDown(tnVidoeTimeRemain);
  // The page was loaded ahead of time; without a network its links could not work, so the
  // ad closes instead of showing it.
  if (!connectedToNetwork(adRequestURL("json"))) {
    inspectStage("endcard-skipped", "no network: the end card's links could not work");
    tovaniResult = 2;
    adClose_TNSDK();
    return;
  }
  // A page that failed, or has not arrived by now, would be an empty card without a close
  // link: the showing ends as it does for an ad without a card, keeping what it earned.
  if (endCardPage != EndCardPage::Loaded) {
    log("tovani: end card not shown: its page did not load");
    adClose_TNSDK();
    return;
  }
  tnVideoPlayState = 2;
  if (endcardCheck_flag == 0) {
    tnSendEventURL(tnAdsExtensionsImpression);
    ++endcardCheck_flag;
  }
  // First display after a video that ran to its last second: the card goes above every
  // control. A card reached by an early skip keeps the state it had.
  if (tnState == 6) {
    tnState = 7;
    if (tnAdEndCardView) {
      if (tnAdEndCardView->webView) tnAdEndCardView->webView->setScrollBounces(false);
      tnAdEndCardView->zPosition = kEndCardZ;
    }
  }
  tnEndCardViewState(false);
  inspectStage("endcard-shown");
}

void tovaniViewer::tnEndCardViewState(bool hide) {
  if (tnAdEndCardView) tnAdEndCardView->hidden = hide;
}

void tovaniViewer::endCardPageLoaded(bool loaded) {
  endCardPage = loaded ? EndCardPage::Loaded : EndCardPage::Failed;
  // A page that breaks while the card is on screen (a link inside the card that fails)
  // would leave the user without a way out.
  const bool shown = tnVideoPlayState == 2 && tnAdEndCardView && !tnAdEndCardView->hidden &&
                     tnAdEndCardView->superview() != nullptr;
  if (!loaded && shown) {
    log("tovani: end card closed: its page did not load");
    tnEndCardViewState(true);
    adClose_TNSDK();
  }
}

bool tovaniViewer::shouldStartLoadWithRequest(const WebRequest& request) {
  const std::string& url = request.url;
  const auto parsed = parseUrl(url);
  // Schemes compare without regard to case, as URLs define them: the page's commands work
  // in whatever case it writes them.
  const std::string scheme = parsed ? parsed->scheme : std::string();

  if (scheme == kBridgeScheme) {
    const std::string& command = parsed->host;
    if (command == kReloadCommand) {
      inspectStage("reload");
      // A replay keeps tnState and the once-flags of the reward, the skippable complete
      // and the impression: it reports nothing a second time.
      tnEndCardViewState(true);
      if (tnAdPlayer) tnAdPlayer->seek(0);
      tnADTimer();
      tnVideoPlayState = 1;
      actionevent_flag = 0;
      skipevent_flag = 0;
      addSubview(tnAdPlayerLayer);
      if (tnAdPlayer) tnAdPlayer->play();
      addSubview(tnVidoeTimeRemain);
    } else if (command == kCloseCommand) {
      inspectStage("endcard-close");
      tnEndCardViewState(true);
      adClose_TNSDK();
    }
    return false;
  }

  // The card's own pages and everything they load stay inside the card. The root must end
  // where the host name ends, so "http://<host>.elsewhere.example/" is not taken for it.
  if (startsWith(url, TOVANI_PRODUCTION_ROOT_URL)) {
    const std::string_view rest =
        std::string_view(url).substr(std::strlen(TOVANI_PRODUCTION_ROOT_URL));
    // After a colon comes a port, or user information that puts another host behind it
    // ("http://<host>:@elsewhere.example/"): only a parsed host that is ours stays.
    if (rest.empty() || rest.front() == '/' || rest.front() == '?' || rest.front() == '#' ||
        (rest.front() == ':' && parsed && parsed->host == TOVANI_PRODUCTION_AD_HOST)) {
      return true;
    }
  }

  // Leaving the ad is the user's choice: a redirect or a script on the page that heads
  // elsewhere on its own is no click, and the ad goes on.
  if (!request.userInitiated) {
    if (unrequestedNavigationLoggedInShowing != showingNumber || showingNumber == 0) {
      unrequestedNavigationLoggedInShowing = showingNumber;
      log("tovani: end-card navigation nobody tapped was cancelled: " + url);
    }
    return false;
  }

  inspectStage("endcard-link", url);
  auto& application = *platform()->application;
  if (scheme == "tel") {
    // A device that cannot call counts no click.
    if (application.canOpenURL(url)) {
      tnSendEventURL(tnAdsExtensionsClickTracking);
      landingUrl(url);
    }
  } else if (scheme == "geo") {
    const auto address = mapsAddressForGeoHost(parsed->host);
    if (!address) log("tovani: geo link without a usable host part ignored: " + url);
    if (address && application.canOpenURL(*address)) {
      tnSendEventURL(tnAdsExtensionsClickTracking);
      landingUrl(*address);
    }
  } else {
    // Any other link leaves the ad and counts as a click, whether the system opens it or not.
    tnSendEventURL(tnAdsExtensionsClickTracking);
    landingUrl(url);
  }
  tnEndCardViewState(true);
  adClose_TNSDK();
  return false;
}

}  // namespace tovani
