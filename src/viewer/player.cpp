#include <array>
#include <string_view>
#include <utility>

#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "util/Guard.hpp"
#include "util/NotificationCenter.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

constexpr const char* kTrackingPath = "InLine.Creatives.Creative.Linear.TrackingEvents.Tracking";

// An element's text at `keyPath` from the ad, trimmed; none when the element (or its text)
// is missing.
Text trimmedText(const XmlValue& ad, const std::string& keyPath) {
  const Text text = stringForKeyPath(ad, keyPath + ".text");
  if (!text) return std::nullopt;
  return trimWhitespaceAndNewlines(*text);
}

// Every notification that playback registers, and a few more that tear-down clears.
constexpr std::array<const char*, 5> kObservedNames = {
    kApplicationWillResignActive, kApplicationWillTerminate, kPlayerItemDidPlayToEndTime,
    kApplicationWillEnterForeground, kDeviceOrientationDidChange};

// Tracking event names and the properties that keep their URLs.
constexpr std::array<std::pair<std::string_view, Text tovaniViewer::*>, 5> kTrackingEvents = {{
    {"start", &tovaniViewer::tnAdsStartTracking},
    {"firstQuartile", &tovaniViewer::tnAdsFirstQuartileTracking},
    {"midpoint", &tovaniViewer::tnAdsMidpointTracking},
    {"thirdQuartile", &tovaniViewer::tnAdsThirdQuartileTracking},
    {"complete", &tovaniViewer::tnAdsCompleteTracking},
}};

void readTrackingEvents(tovaniViewer& viewer, const XmlValue& tracking) {
  // The elements are walked by index, which only a list allows: one Tracking element is a
  // map, and walking a non-empty map (or a lone attribute string) by index raises.
  if (tracking.isNone()) return;
  if (const XmlMap* single = tracking.map(); single != nullptr && single->empty()) return;
  const XmlList* list = tracking.list();
  if (list == nullptr) throw PlatformError("Tracking is not a list and cannot be walked by index");

  for (const XmlValue& element : *list) {
    if (!element.isMap()) throw PlatformError("a Tracking entry is not an element");
    const XmlValue eventValue = element["event"];
    const std::string* event = eventValue.string();
    if (event == nullptr) continue;
    // Each name is tested on its own; a later element with the same event wins.
    for (const auto& [name, property] : kTrackingEvents) {
      if (*event == name) viewer.*property = stringForKeyPath(element, "text");
    }
  }
}

void registerPlaybackObservers(tovaniViewer& viewer) {
  std::weak_ptr<tovaniViewer> weak = viewer.self();
  auto log = viewer.platform()->log;
  // Handlers hold the viewer weakly and run guarded: a notification is a main-queue entry.
  const auto handler = [&weak, &log](void (tovaniViewer::*operation)()) {
    return [weak, log, operation](const Notification&) {
      runGuarded(log.get(), [&] {
        if (auto live = weak.lock()) ((*live).*operation)();
      });
    };
  };
  auto& center = NotificationCenter::defaultCenter();
  center.addObserver(&viewer, kDeviceOrientationDidChange,
                     handler(&tovaniViewer::orientationChanged));
  center.addObserver(&viewer, kPlayerItemDidPlayToEndTime,
                     handler(&tovaniViewer::tnAdPlayerItemDidReachEnd), viewer.tnAdPlayer.get());
  center.addObserver(&viewer, kApplicationWillResignActive,
                     handler(&tovaniViewer::appWillResignActive));
  center.addObserver(&viewer, kApplicationWillEnterForeground,
                     handler(&tovaniViewer::tnAdPlayerWillEnterForeground));
}

}  // namespace

void tovaniViewer::tnADPlayStart(const std::string& path, const XmlValue& ad) {
  ++showingNumber;
  endCardPage = EndCardPage::None;  // the page of an earlier ad is not this ad's card
  button = std::make_shared<View>(Kind::Button);
  button->backgroundColor = Color::clear();
  addSubview(button);

  // The showing is counted before a frame has played and stays counted if playback fails.
  const Text rawId = stringForKeyPath(ad, "id");
  const Text adsNo = rawId ? Text(trimWhitespaceAndNewlines(*rawId)) : std::nullopt;
  if (tnDataManager) tnDataManager->executeQuery(formatStatement(sql::kInsertImpression, {adsNo}));

  tnAdsExtensionsClickThrough = trimmedText(ad, "InLine.Extensions.ClickThrough");
  // Hidden here, between the first and the second extension, on purpose.
  platform()->application->setStatusBarHidden(true);
  tnAdsExtensionsClickTracking = trimmedText(ad, "InLine.Extensions.Click");
  tnAdsExtensionsClickType = trimmedText(ad, "InLine.Extensions.ClickType");
  tnAdsExtensionsSkipUse = trimmedText(ad, "InLine.Extensions.SkipUse");
  tnAdsExtensionsEndcardUse = trimmedText(ad, "InLine.Extensions.EndcardUse");
  tnAdsExtensionsVideoClick = trimmedText(ad, "InLine.Extensions.VideoClick");
  tnAdsExtensionsClickProgress = trimmedText(ad, "InLine.Extensions.ClickProgress");
  tnAdsExtensionsEndcardProgress = trimmedText(ad, "InLine.Extensions.EndcardProgress");
  tnAdsExtensionsComplete = trimmedText(ad, "InLine.Extensions.Complete");
  tnAdsExtensionsEtc = trimmedText(ad, "InLine.Extensions.Etc");
  // The end-card text also gets the trailing trim that beacon URLs get.
  if (tnAdsExtensionsEtc)
    tnAdsExtensionsEtc = trimTrailingWhitespaceAndNewlines(*tnAdsExtensionsEtc);
  tnAdsExtensionsImpression = trimmedText(ad, "InLine.Extensions.Impression");
  tnAdsExtensionsFrequency = trimmedText(ad, "InLine.Extensions.frequency");

  readTrackingEvents(*this, valueForKeyPath(ad, kTrackingPath));

  skipUseCheck = stringBoolValue(tnAdsExtensionsSkipUse);
  if (skipUseCheck) imageArray();

  if (tnAdEndCardView) addSubview(tnAdEndCardView);
  tnEndCardViewState(true);

  tnAdPlayer = platform()->players->createPlayer(path);
  if (!tnAdPlayer) throw PlatformError("the platform made no player for " + path);
  tnAdPlayerLayer = std::make_shared<View>(Kind::VideoLayer);
  tnAdPlayerLayer->player = tnAdPlayer;
  tnAdPlayerLayer->frame = bounds();
  tnAdPlayer->setHoldsLastFrameAtEnd(true);
  // The end of the item reaches the viewer as a notification whose object is the player,
  // so that only the observer of this player hears it.
  std::weak_ptr<MediaPlayer> weakPlayer = tnAdPlayer;
  tnAdPlayer->setItemEndedHandler([weakPlayer, log = platform()->log] {
    runGuarded(log.get(), [&] {
      if (auto ended = weakPlayer.lock()) {
        NotificationCenter::defaultCenter().post(kPlayerItemDidPlayToEndTime, ended.get());
      }
    });
  });

  tnVideoPlayState = 0;
  tnState = 0;
  actionevent_flag = 0;
  skipevent_flag = 0;
  actioncomplete_flag = 0;
  endcardCheck_flag = 0;
  skipAdReword_flag = 0;

  tovaniResult = 2;

  if (tnVidoeTimeRemain) addSubview(tnVidoeTimeRemain);
  tnADTimer();
  viewResize_TNSDK();

  registerPlaybackObservers(*this);

  addSubview(tnAdPlayerLayer);
  tnAdPlayer->play();
}

void tovaniViewer::init_player() {
  auto& center = NotificationCenter::defaultCenter();
  center.removeObserver(this);
  for (const char* name : kObservedNames) center.removeObserver(this, name);

  if (tnAdPlayer) tnAdPlayer->pause();
  if (tnAdPlayerLayer) tnAdPlayerLayer->removeFromSuperview();

  for (const auto& view : {actionevent_imageview, skipevent_imageview, button, tnVidoeTimeRemain}) {
    if (view) view->removeFromSuperview();
  }

  // The tick may already be gone (the skip and action taps remove it), which the player
  // reports as an error; that is expected here and ignored.
  try {
    if (tnAdPlayer) {
      if (!tnPeriodicTimeObserver || !tnAdPlayer->removeTimeObserver(*tnPeriodicTimeObserver)) {
        throw PlatformError("the periodic time observer is not registered with the player");
      }
    }
  } catch (const PlatformError&) {
  }
  tnPeriodicTimeObserver.reset();

  tnAdPlayer = nullptr;
  removeFromSuperview();
}

}  // namespace tovani
