#include <cmath>
#include <memory>
#include <optional>
#include <string>

#include "util/Guard.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

constexpr double kTickSeconds = 0.3;
constexpr const char* kSecondsSuffix = "초";
constexpr int64_t kCountdownSeconds = 5;
constexpr int64_t kActionAfterSeconds = 5;
constexpr int64_t kSkippableCompleteAfterSeconds = 14;
constexpr int64_t kLongAdSeconds = 60;
constexpr size_t kActiveSkipImage = 0;

// The image the countdown shows, by list index. A list cut short by a failed fetch has no
// such image; showing another digit instead would mislead the user, so the lookup fails
// the way the platform's list would and the tick's guard contains it.
std::shared_ptr<Image> countdownImage(size_t index) {
  if (index >= skipevent_images.size()) {
    throw PlatformError("countdown image index " + std::to_string(index) +
                        " beyond bounds of a list of " + std::to_string(skipevent_images.size()));
  }
  return skipevent_images[index];
}

// A tap recogniser for one of the viewer's tap actions. The viewer keeps the recogniser,
// so the recogniser only points back weakly; a tap runs at the main-queue boundary.
std::shared_ptr<TapRecognizer> tapFor(const std::shared_ptr<tovaniViewer>& viewer,
                                      void (tovaniViewer::*action)()) {
  std::weak_ptr<tovaniViewer> weak = viewer;
  auto log = viewer->platform()->log;
  return std::make_shared<TapRecognizer>(TapRecognizer{[weak, log, action] {
    runGuarded(log.get(), [&] {
      if (auto target = weak.lock()) ((*target).*action)();
    });
  }});
}

}  // namespace

void tovaniViewer::timeRemain() {
  if (tnVidoeTimeRemain) return;
  auto label = std::make_shared<View>(Kind::Label);
  label->frame = {bounds().width - 45, 0, 35, 35};
  label->textAlignment = TextAlignment::Right;
  label->textColor = Color::white();
  // Set in this order on purpose: the bold system face replaces the named one at once and
  // is the one that shows.
  label->font = Font{"AppleSDGothicNeo", 15, false};
  label->font = Font{"", 15, true};
  label->zPosition = 102;
  tnVidoeTimeRemain = label;
}

void tovaniViewer::tnADTimer() {
  if (!tnAdPlayer) return;
  // The player keeps the tick, and the viewer keeps the player: a strong capture would
  // keep both alive for ever once a showing is abandoned. The tick therefore holds the
  // viewer weakly and takes a strong hold only while it runs, so that a close started
  // inside the tick cannot free the viewer under it.
  std::weak_ptr<tovaniViewer> weak = self();
  auto log = platform()->log;
  // A short countdown list fails on every tick; one log line per registration says it.
  auto reported = std::make_shared<bool>(false);
  tnPeriodicTimeObserver =
      tnAdPlayer->addPeriodicTimeObserver(kTickSeconds, [weak, log, reported](double now) {
        runGuarded(log.get(), [&] {
          auto viewer = weak.lock();
          if (!viewer) return;
          try {
            viewer->onPlaybackTick(now);
          } catch (const PlatformError& e) {
            if (*reported) return;
            *reported = true;
            viewer->log(std::string("tovani: playback tick stopped short: ") + e.what());
          }
        });
      });
}

void tovaniViewer::onPlaybackTick(double t) {
  const double d = tnAdPlayer && tnAdPlayer->hasCurrentItem() ? tnAdPlayer->duration() : 0;
  // An unknown duration is NaN: every comparison below is false and it rounds to 0.
  const double p = d > 0 ? t / d : 0;
  const double r = d - t;
  if (r >= 0 && tnVidoeTimeRemain) tnVidoeTimeRemain->text = formatNoDecimals(r) + kSecondsSuffix;

  const int64_t D = roundHalfAwayAsFloat(d);
  const int64_t T = roundHalfAwayAsFloat(t);
  const bool nearEnd = T >= D - 1;

  // One step of the tracking ladder per tick, so a tick that jumps past two fractions
  // reports them on consecutive ticks, in order.
  if (tnState == 0) {
    inspectStage("start");
    tnSendEventURL(tnAdsStartTracking);
    tnVideoPlayState = 1;
    tnState = 1;
  } else if (p >= 0.25 && tnState == 1) {
    inspectStage("first-quartile");
    tnSendEventURL(tnAdsFirstQuartileTracking);
    prepareAD_TNSDK();
    tnState = 2;
  } else if (p >= 0.5 && tnState == 2) {
    inspectStage("midpoint");
    tnSendEventURL(tnAdsMidpointTracking);
    if (endCardWanted(tnAdsExtensionsEndcardUse)) tnEndCardPrepare();
    tnState = 3;
  } else if (p >= 0.75 && tnState == 3) {
    inspectStage("third-quartile");
    tnSendEventURL(tnAdsThirdQuartileTracking);
    tnState = 4;
  } else if (tnState == 4 && nearEnd) {
    tnState = 5;
    inspectStage("near-end");
    // A skippable ad reports "complete" at fourteen seconds instead (below).
    if (!skipUseCheck) {
      tnSendEventURL(tnAdsCompleteTracking);
      tovaniResult = 0;
      inspectStage("reward-point");
    }
  }

  if (!skipUseCheck) return;

  if (skipevent_flag == 0) {
    ++skipevent_flag;
    addSubview(skipevent_imageview);
  }
  if (skipAdReword_flag == 0 &&
      ((D < kLongAdSeconds && nearEnd) || (D >= kLongAdSeconds && T >= kLongAdSeconds))) {
    tovaniResult = 0;
    ++skipAdReword_flag;
    inspectStage("reward-point");
  }
  if (skipevent_images.empty()) init_images();
  if (D == 0) return;

  const int64_t R = roundHalfAwayAsFloat(r);
  const int64_t elapsed = D - R;
  // A digit missing from a list cut short is never replaced by another image; the rest of
  // the tick still runs, and the failure is raised once the tick is done.
  std::optional<std::string> missingImage;
  const auto imageAt = [&](size_t index) -> std::shared_ptr<Image> {
    try {
      return countdownImage(index);
    } catch (const PlatformError& e) {
      missingImage = e.what();
      return nullptr;
    }
  };
  if (elapsed >= 0 && elapsed < kCountdownSeconds) {
    // Touches go off before the digit is looked up: a missing digit must not leave the
    // button of an earlier showing tappable during the countdown.
    if (elapsed == 0 && skipevent_imageview) skipevent_imageview->userInteractionEnabled = false;
    // Digits 5..1 for the first five seconds.
    // A digit that could not be fetched shows no image at all, never the one shown before.
    auto digit = imageAt(static_cast<size_t>(kCountdownSeconds - elapsed));
    if (skipevent_imageview) skipevent_imageview->image = digit;
    if (elapsed == 2 && endCardWanted(tnAdsExtensionsEndcardUse)) tnEndCardPrepare();
  } else if (auto active = imageAt(kActiveSkipImage); !active) {
    // Without the active button the last digit must not stay on screen either.
    if (skipevent_imageview) skipevent_imageview->image = nullptr;
  } else {
    // Only a button the user can see takes taps.
    if (skipevent_imageview) skipevent_imageview->image = active;
    if (!skipevent_touch) skipevent_touch = tapFor(self(), &tovaniViewer::skipevent_click);
    if (skipevent_imageview) {
      skipevent_imageview->userInteractionEnabled = true;
      skipevent_imageview->addGestureRecognizer(skipevent_touch);
    }
  }

  if (elapsed == kActionAfterSeconds && actionevent_flag == 0) {
    ++actionevent_flag;
    addSubview(actionevent_imageview);
    if (!actionevent_touch) actionevent_touch = tapFor(self(), &tovaniViewer::actionevent_click);
    if (actionevent_imageview) {
      actionevent_imageview->userInteractionEnabled = true;
      actionevent_imageview->addGestureRecognizer(actionevent_touch);
    }
  }
  // Sent at fourteen seconds whatever the length: the skippable ad's own "complete".
  if (elapsed == kSkippableCompleteAfterSeconds && actioncomplete_flag == 0) {
    ++actioncomplete_flag;
    inspectStage("skippable-complete");
    tnSendEventURL(tnAdsCompleteTracking);
  }
  if (missingImage) throw PlatformError(*missingImage);
}

}  // namespace tovani
