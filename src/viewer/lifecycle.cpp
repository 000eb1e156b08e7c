#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// An ad left in the background this long or longer is abandoned on return.
constexpr int64_t kAbandonAfterSeconds = 11;

}  // namespace

void tovaniViewer::tnAdPlayerItemDidReachEnd() {
  inspectStage("video-ended");
  tnVideoPlayState = 4;
  // Only a video whose last second the tick saw counts as completed here.
  if (tnState == 5) {
    tnState = 6;
    tnSendEventURL(tnAdsExtensionsComplete);
  }
  if (endCardWanted(tnAdsExtensionsEndcardUse)) {
    tnEndCard();
  } else {
    adClose_TNSDK();
  }
}

void tovaniViewer::appWillResignActive() {
  // The viewer does not pause the player; the time away decides what happens on return.
  tnLastTimeStamp = tnGetCurrentTime();
  inspectStage("background");
}

void tovaniViewer::tnAdPlayerWillEnterForeground() {
  tnLastTimeStampFlag = 0;
  inspection.emit([&] {
    InspectorEvent e;
    e.kind = InspectorEventKind::Stage;
    e.name = "foreground";
    e.mediaTime = mediaTimeForInspection();
    e.gapSeconds = static_cast<double>(tnGetCurrentTime() - tnLastTimeStamp);
    e.reason = tnVideoPlayState != 1                  ? "no video playing"
               : *e.gapSeconds < kAbandonAfterSeconds ? "back in time: playback resumes"
                                                      : "away too long: the ad is abandoned";
    return e;
  });
  if (tnVideoPlayState != 1) return;
  if (tnGetCurrentTime() - tnLastTimeStamp < kAbandonAfterSeconds) {
    if (tnAdPlayer) tnAdPlayer->play();
    tnLastTimeStampFlag = 1;
    return;
  }
  // Away too long: the ad is abandoned whether or not the reward point was reached.
  tovaniResult = 3;
  tnEndCardViewState(true);
  adClose_TNSDK();
}

}  // namespace tovani
