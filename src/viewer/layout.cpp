#include <algorithm>
#include <memory>

#include "util/Guard.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

constexpr const char* kPhoneModelName = "iPhone";
// The screen may still report its old size when the orientation event arrives, so the
// layout runs once more after this delay.
constexpr double kSecondLayoutDelay = 0.3;
constexpr float kLargeSkipImageAbove = 480.0f;
constexpr float kTabletDensity = 132.0f;
constexpr float kOtherDensity = 160.0f;
constexpr float kPhoneDensity = 163.0f;

enum class Proportions { Portrait, Landscape };

void setFrame(const std::shared_ptr<View>& view, const Rect& frame) {
  if (view) view->frame = frame;
}

float densityFor(const std::optional<InterfaceIdiom>& idiom) {
  if (!idiom || *idiom == InterfaceIdiom::Phone) return kPhoneDensity;
  if (*idiom == InterfaceIdiom::Pad) return kTabletDensity;
  return kOtherDensity;
}

}  // namespace

void tovaniViewer::viewResize_TNSDK() {
  const Size size = platform()->screen->boundsSize();
  if (!(currentBoundSize == Size{}) && currentBoundSize == size) return;
  const DeviceOrientation orientation = platform()->screen->deviceOrientation();
  if (orientation == DeviceOrientation::LandscapeLeft ||
      orientation == DeviceOrientation::LandscapeRight) {
    resizeLandscape();
  } else {
    // Unknown, face up and face down included: the video keeps portrait proportions.
    resizePortrait();
  }
  currentBoundSize = size;
}

namespace {

// Both orientations share everything but the proportions forced on a non-phone and the
// phone's video gravity.
void layOut(tovaniViewer& viewer, Proportions proportions) {
  const Screen& screen = *viewer.platform()->screen;
  const Size size = screen.boundsSize();
  viewer.backgroundColor = Color::black();
  if (screen.deviceModelName() == kPhoneModelName) {
    viewer.frame = {0, 0, size.width, size.height};
    // Only landscape asks a phone to fit the video inside; portrait leaves the gravity as
    // it is.
    if (proportions == Proportions::Landscape && viewer.tnAdPlayerLayer) {
      viewer.tnAdPlayerLayer->videoGravity = VideoGravity::ResizeAspect;
    }
    setFrame(viewer.tnAdPlayerLayer, viewer.frame);
    setFrame(viewer.tnAdEndCardView, viewer.frame);
    setFrame(viewer.button, viewer.frame);
  } else {
    viewer.frame = {0, 0, size.width, size.height};
    if (viewer.tnAdPlayerLayer) viewer.tnAdPlayerLayer->videoGravity = VideoGravity::ResizeAspect;
    // Other devices may report either orientation's size; the video gets the proportions
    // asked for whatever the screen says.
    const float w = static_cast<float>(size.width);
    const float h = static_cast<float>(size.height);
    const float shorter = std::min(w, h);
    const float longer = std::max(w, h);
    const Rect content = proportions == Proportions::Portrait ? Rect{0, 0, shorter, longer}
                                                              : Rect{0, 0, longer, shorter};
    setFrame(viewer.tnAdPlayerLayer, content);
    setFrame(viewer.tnAdEndCardView, content);
    setFrame(viewer.button, content);
  }

  const Rect b = viewer.bounds();
  setFrame(viewer.tnVidoeTimeRemain, {b.width - 45, 0, 35, 35});
  const float scale = static_cast<float>(screen.scale().value_or(1.0));
  if (scale * densityFor(screen.interfaceIdiom()) > kLargeSkipImageAbove) {
    setFrame(viewer.skipevent_imageview, {b.width - 165, b.height - 52, 150, 37});
  } else {
    setFrame(viewer.skipevent_imageview, {b.width - 110, b.height - 35, 100, 25});
  }
  setFrame(viewer.actionevent_imageview, {10, b.height - 55, 45, 45});
}

}  // namespace

void tovaniViewer::resizePortrait() {
  layOut(*this, Proportions::Portrait);
}

void tovaniViewer::resizeLandscape() {
  layOut(*this, Proportions::Landscape);
}

void tovaniViewer::orientationChanged() {
  viewResize_TNSDK();
  std::weak_ptr<tovaniViewer> weak = self();
  auto log = platform()->log;
  platform()->mainQueue->postAfter(kSecondLayoutDelay, [weak, log] {
    runGuarded(log.get(), [&] {
      if (auto viewer = weak.lock()) viewer->viewResize_TNSDK();
    });
  });
}

}  // namespace tovani
