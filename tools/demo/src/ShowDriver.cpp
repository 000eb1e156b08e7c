#include "ShowDriver.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tovani/Constants.hpp"
#include "viewer/ProcessState.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::demo {

namespace {

const char* stageName(int state) {
  switch (state) {
    case 0:
      return "waiting for the first tick";
    case 1:
      return "start sent";
    case 2:
      return "first quartile sent";
    case 3:
      return "midpoint sent";
    case 4:
      return "third quartile sent";
    case 5:
      return "last second reached";
    case 6:
      return "video ended or skipped";
    case 7:
      return "end card shown";
    default:
      return "unknown stage";
  }
}

double steadySeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool attachedAndTappable(const std::shared_ptr<View>& v) {
  return v && v->superview() && !v->hidden && v->userInteractionEnabled &&
         !v->gestureRecognizers().empty();
}

// The link on the page that matches the viewer's choice.
std::string linkFor(const std::string& choice, const std::vector<std::string>& links) {
  const std::string root = TOVANI_PRODUCTION_ROOT_URL;
  for (const auto& link : links) {
    const bool command = link.rfind("tovaniksdkcall:", 0) == 0;
    if (command && link.find("//" + choice) != std::string::npos) return link;
    if (choice == "tel" && link.rfind("tel:", 0) == 0) return link;
    if (choice == "geo" && link.rfind("geo:", 0) == 0) return link;
    if (choice == "inhost" && link.rfind(root, 0) == 0) return link;
    if (choice == "outbound" && !command && link.rfind("http", 0) == 0 &&
        link.rfind(root, 0) != 0) {
      return link;
    }
  }
  return {};
}

}  // namespace

ShowDriver::ShowDriver(std::shared_ptr<tovaniViewer> viewer, const linux::LinuxPlatform& platform,
                       std::shared_ptr<DemoClock> clock, ViewerActions actions,
                       std::function<void(const TimelineEvent&)> emit)
    : viewer_(std::move(viewer)),
      platform_(platform),
      clock_(std::move(clock)),
      actions_(std::move(actions)),
      emit_(std::move(emit)) {}

double ShowDriver::mediaTime() const {
  return viewer_->tnAdPlayer ? viewer_->tnAdPlayer->currentTime() : 0;
}

double ShowDriver::showingTimeAt(double epoch) const {
  double media = 0;
  for (const auto& [at, t] : samples_) {
    if (at > epoch) break;
    media = t;
  }
  return media;
}

void ShowDriver::record(const std::string& lane, const std::string& label) {
  emit_(TimelineEvent{showingTime_, lane, label});
}

void ShowDriver::step() {
  // The SDK's clock may be stopped while the app is away; samples use the wall clock.
  const double wall =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  if (viewer_->tnAdPlayer) {
    const double media = mediaTime();
    showingTime_ += std::max(0.0, media - lastMediaTime_);
    lastMediaTime_ = media;
  }
  samples_.emplace_back(wall, showingTime_);
  watchState();
  if (!viewer_->tnAdPlayer) return;
  const double t = mediaTime();
  actOnControls(t);
  actOnBackground(t);
  actOnEndCard();
}

void ShowDriver::watchState() {
  if (viewer_->tnAdPlayer) {
    skippable_ = viewer_->skipUseCheck;
    const double d = viewer_->tnAdPlayer->duration();
    if (std::isfinite(d) && d > 0) duration_ = d;
  }
  if (viewer_->tnState != lastState_ && viewer_->tnAdPlayer) {
    lastState_ = viewer_->tnState;
    record("stage", stageName(lastState_));
  }
  if (tovaniResult != lastResult_) {
    if (lastResult_ != -1 && tovaniResult == 0) record("result", "reward point reached (0)");
    lastResult_ = tovaniResult;
  }
  const auto& skip = viewer_->skipevent_imageview;
  if (skip && skip->superview() && skip->image) {
    const auto& url = skip->image->sourceUrl;
    const auto slash = url.find_last_of('/');
    const std::string name = slash == std::string::npos ? url : url.substr(slash + 1);
    if (name != lastCountdown_) {
      lastCountdown_ = name;
      record("countdown",
             name.rfind("0_", 0) == 0 ? "skip active" : "countdown " + name.substr(0, 1));
    }
  }
}

void ShowDriver::actOnControls(double t) {
  if (actions_.skipAt && !skipped_ && t >= *actions_.skipAt &&
      attachedAndTappable(viewer_->skipevent_imageview)) {
    record("action", "skip tapped");
    skipped_ = true;
    viewer_->skipevent_imageview->tap();
  }
  if (actions_.actionAt && !actionTapped_ && viewer_->tnAdPlayer && t >= *actions_.actionAt &&
      attachedAndTappable(viewer_->actionevent_imageview)) {
    record("action", "action tapped");
    actionTapped_ = true;
    viewer_->actionevent_imageview->tap();
  }
}

void ShowDriver::actOnBackground(double t) {
  if (!actions_.backgroundAt) return;
  if (away_ == Away::NotYet && t >= *actions_.backgroundAt && viewer_->tnVideoPlayState == 1) {
    // As the system does: time stops for the demo, the app is suspended, its video pauses.
    clock_->freeze();
    viewer_->tnAdPlayer->pause();
    platform_.application->sendEvent(AppEvent::WillResignActive);
    away_ = Away::Away;
    awaySince_ = steadySeconds();
    record("action", "to the background");
  } else if (away_ == Away::Away && steadySeconds() - awaySince_ >= 0.3) {
    clock_->resumeAfter(actions_.backgroundFor);
    platform_.application->sendEvent(AppEvent::WillEnterForeground);
    away_ = Away::Back;
    char label[64];
    snprintf(label, sizeof label, "back after %.0f s", actions_.backgroundFor);
    record("action", label);
  }
}

void ShowDriver::actOnEndCard() {
  const auto& node = viewer_->tnAdEndCardView;
  const bool visible = node && !node->hidden && node->superview();
  if (visible && !endCardVisible_) {
    ++endCardVisits_;
    record("endcard", "end card shown");
  }
  endCardVisible_ = visible;
  if (!visible || actions_.endCardLink == "none") return;
  auto web = std::dynamic_pointer_cast<linux::HeadlessWebView>(node->webView);
  if (!web || web->isLoading() || !web->page()) return;
  // After an in-host link, wait for its page before the next tap.
  if (linksFollowed_ > 0 && web->pagesLoaded() == pagesAtLastFollow_ &&
      actions_.endCardLink == "inhost") {
    return;
  }
  std::string choice = actions_.endCardLink;
  // reload, install and an in-host link leave the ad open: the viewer closes it next.
  if (linksFollowed_ > 0 && (choice == "reload" || choice == "install" || choice == "inhost")) {
    choice = "close";
  }
  std::string link = linkFor(choice, web->page()->links);
  if (link.empty()) {
    problem_ = "the end-card page has no " + choice + " link";
    link = "tovaniksdkcall://close";
  }
  record("endcard", "follow " + choice + " link " + link);
  ++linksFollowed_;
  pagesAtLastFollow_ = web->pagesLoaded();
  web->followLink(link);
}

}  // namespace tovani::demo

#pragma pop_macro("linux")
