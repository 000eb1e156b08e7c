#include <string>

#include "tovani/Constants.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

constexpr int kSkipImageCount = 6;
constexpr const char* kActionImagePath = "button/click.png";
constexpr size_t kFirstCountdownDigit = 5;
constexpr double kSkipImageZ = 101;
constexpr double kActionImageZ = 100;

std::string cdnUrl(const std::string& relativePath) {
  return formatAt("%@%@", {TOVANI_URL_CDN, relativePath});
}

std::shared_ptr<Image> fetchImage(Http& http, const std::string& url) {
  auto data = http.fetchBlocking(url);
  if (!data) return nullptr;
  return Image::fromData(std::move(*data), url);
}

// Takes the tick off the player. The player refuses a token it does not hold (a second
// tap, or a tick already removed); that refusal is expected and deliberately ignored.
void removeTick(tovaniViewer& viewer) {
  try {
    if (!viewer.tnAdPlayer) return;
    if (!viewer.tnPeriodicTimeObserver ||
        !viewer.tnAdPlayer->removeTimeObserver(*viewer.tnPeriodicTimeObserver)) {
      throw PlatformError("the time observer is not registered with this player");
    }
  } catch (const PlatformError&) {
  }
}

void takeDown(const std::shared_ptr<View>& view) {
  if (view) view->removeFromSuperview();
}

}  // namespace

void tovaniViewer::init_images() {
  if (!skipevent_images.empty()) return;
  // The fetches block the main thread; when the CDN gave nothing, this showing does not
  // ask again on every tick.
  if (showingNumber != 0 && skipImagesFetchedInShowing == showingNumber) return;
  skipImagesFetchedInShowing = showingNumber;
  std::vector<std::shared_ptr<Image>> images;
  for (int n = 0; n < kSkipImageCount; ++n) {
    auto fetched =
        fetchImage(*platform()->http, cdnUrl("button/" + std::to_string(n) + "_skip.png"));
    // The list ends at the first image that did not come: the countdown must never show a
    // neighbour's digit in place of a missing one.
    if (!fetched) {
      cdnFailedInShowing = showingNumber;
      break;
    }
    images.push_back(std::move(fetched));
  }
  skipevent_images = std::move(images);
}

void tovaniViewer::imageArray() {
  init_images();
  if (!skipevent_imageview) {
    skipevent_imageview = std::make_shared<View>(Kind::ImageView);
    // Without the digit 5 the view starts empty; the first tick's look-up then reports
    // the short list. Failing here would stop the showing before it began.
    if (skipevent_images.size() > kFirstCountdownDigit) {
      skipevent_imageview->image = skipevent_images[kFirstCountdownDigit];
    }
    skipevent_imageview->zPosition = kSkipImageZ;
    // An image view takes no touches until the countdown has run out.
    skipevent_imageview->userInteractionEnabled = false;
  }
  if (!actionevent_image) {
    // Each fetch may hold the main thread for its whole time limit: a CDN that has just
    // failed the countdown digits is not asked for the action image in the same showing.
    if (showingNumber == 0 || cdnFailedInShowing != showingNumber) {
      actionevent_image = fetchImage(*platform()->http, cdnUrl(kActionImagePath));
    }
    actionevent_imageview = std::make_shared<View>(Kind::ImageView);
    actionevent_imageview->image = actionevent_image;
    actionevent_imageview->zPosition = kActionImageZ;
    actionevent_imageview->userInteractionEnabled = false;
  }
}

void tovaniViewer::skipevent_click() {
  removeTick(*this);
  if (tnAdPlayer) tnAdPlayer->pause();
  takeDown(tnAdPlayerLayer);
  takeDown(skipevent_imageview);
  takeDown(button);
  takeDown(actionevent_imageview);
  takeDown(tnVidoeTimeRemain);
  tnVideoPlayState = 3;
  // Skipping before the last second keeps tnState, so the end card skips its first-display
  // adjustments.
  if (tnState == 5) tnState = 6;
  // A reward already earned stays earned.
  if (tovaniResult != 0) tovaniResult = 3;
  if (endCardWanted(tnAdsExtensionsEndcardUse)) {
    tnEndCard();
  } else {
    adClose_TNSDK();
  }
}

void tovaniViewer::actionevent_click() {
  removeTick(*this);
  // Before the skippable "complete" (fourteen seconds) the tap counts as click progress,
  // after it as a video click.
  if (actioncomplete_flag == 0) {
    tnSendEventURL(tnAdsExtensionsClickProgress);
  } else if (actioncomplete_flag == 1) {
    tnSendEventURL(tnAdsExtensionsVideoClick);
  }
  landingUrl(tnAdsExtensionsClickThrough);
  if (tovaniResult != 0) tovaniResult = 3;
  // The action leaves the ad: no end card, and closing takes the player down.
  adClose_TNSDK();
}

}  // namespace tovani
