#include "ShowDriver.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>

#include "tovani/Constants.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::demo {

namespace {

// Where the SDK stacks its controls: the skip button above the action button.
constexpr double kSkipZ = 101;
constexpr double kActionZ = 100;

// The stage names of the inspector as the timeline words them.
const std::map<std::string, std::string> kStageLabels = {
    {"start", "start sent"},
    {"first-quartile", "first quartile sent"},
    {"midpoint", "midpoint sent"},
    {"third-quartile", "third quartile sent"},
    {"near-end", "last second reached"},
    {"skippable-complete", "skippable complete (14 s)"},
    {"video-ended", "video ended"},
    {"skip", "skipped"},
    {"endcard-prepared", "end card prepared"},
    {"endcard-shown", "end card on screen"},
    {"reload", "replay"},
    {"close", "closed"},
};

double steadySeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool onScreenAndTappable(const std::shared_ptr<View>& v) {
  return v && !v->hidden && v->userInteractionEnabled && !v->gestureRecognizers().empty();
}

void collect(const std::shared_ptr<View>& view, std::vector<std::shared_ptr<View>>& out) {
  for (const auto& child : view->subviews()) {
    out.push_back(child);
    collect(child, out);
  }
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

ShowDriver::ShowDriver(std::shared_ptr<View> hostRoot, const linux::LinuxPlatform& platform,
                       std::shared_ptr<DemoClock> clock, ViewerActions actions,
                       std::function<void(const TimelineEvent&)> emit)
    : root_(std::move(hostRoot)),
      platform_(platform),
      clock_(std::move(clock)),
      actions_(std::move(actions)),
      emit_(std::move(emit)) {}

ShowDriver::Screen ShowDriver::look() const {
  Screen screen;
  std::vector<std::shared_ptr<View>> all;
  collect(root_, all);
  for (const auto& v : all) {
    if (v->kind == View::Kind::VideoLayer && v->player) screen.video = v;
    if (v->kind == View::Kind::ImageView && v->zPosition == kSkipZ) screen.skip = v;
    if (v->kind == View::Kind::ImageView && v->zPosition == kActionZ) screen.action = v;
    if (v->kind == View::Kind::WebView && v->webView) screen.endCard = v;
  }
  return screen;
}

double ShowDriver::mediaTime() const {
  return player_ ? player_->currentTime() : 0;
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

void ShowDriver::sample(const Screen& screen) {
  if (screen.video) player_ = screen.video->player;
  if (!player_) return;
  const double media = mediaTime();
  if (std::isfinite(media)) {
    showingTime_ += std::max(0.0, media - lastMediaTime_);
    lastMediaTime_ = media;
  }
  const double d = player_->duration();
  if (std::isfinite(d) && d > 0) duration_ = d;
}

void ShowDriver::onEvent(const InspectorEvent& e) {
  sample(look());
  if (e.kind == InspectorEventKind::Candidate && e.outcome == "chosen") adId_ = e.adId;
  if (e.kind == InspectorEventKind::Stage) {
    if (e.name == "start" || e.name == "reload") playing_ = true;
    if (e.name == "video-ended" || e.name == "skip" || e.name == "action" ||
        e.name == "endcard-shown" || e.name == "close")
      playing_ = false;
    if (e.name == "reward-point") record("result", "reward point reached (0)");
    const auto label = kStageLabels.find(e.name);
    if (label != kStageLabels.end()) record("stage", label->second);
  }
}

void ShowDriver::step() {
  // The SDK's clock may be stopped while the app is away; samples use the wall clock.
  const double wall =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const Screen screen = look();
  sample(screen);
  samples_.emplace_back(wall, showingTime_);
  if (screen.skip) skippable_ = true;
  watchCountdown(screen);
  if (root_->subviews().empty() || !player_) return;
  const double t = mediaTime();
  actOnControls(screen, t);
  actOnBackground(t);
  actOnEndCard(screen);
}

void ShowDriver::watchCountdown(const Screen& screen) {
  const auto& skip = screen.skip;
  if (!skip || skip->hidden || !skip->image) return;
  const auto& url = skip->image->sourceUrl;
  const auto slash = url.find_last_of('/');
  const std::string name = slash == std::string::npos ? url : url.substr(slash + 1);
  if (name == lastCountdown_) return;
  lastCountdown_ = name;
  record("countdown", name.rfind("0_", 0) == 0 ? "skip active" : "countdown " + name.substr(0, 1));
}

void ShowDriver::actOnControls(const Screen& screen, double t) {
  if (actions_.skipAt && !skipped_ && t >= *actions_.skipAt && onScreenAndTappable(screen.skip)) {
    record("action", "skip tapped");
    skipped_ = true;
    screen.skip->tap();
  }
  if (actions_.actionAt && !actionTapped_ && screen.video && t >= *actions_.actionAt &&
      onScreenAndTappable(screen.action)) {
    record("action", "action tapped");
    actionTapped_ = true;
    screen.action->tap();
  }
}

void ShowDriver::actOnBackground(double t) {
  if (!actions_.backgroundAt) return;
  if (away_ == Away::NotYet && t >= *actions_.backgroundAt && playing_) {
    // As the system does: time stops for the demo, the app is suspended, its video pauses.
    clock_->freeze();
    player_->pause();
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

void ShowDriver::actOnEndCard(const Screen& screen) {
  const auto& node = screen.endCard;
  const bool visible = node && !node->hidden;
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
