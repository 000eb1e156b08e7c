// bench_desktop_show [showings]: from tovaniShow to the first video frame drawn in the window
// (GTK platform, gtksink), against tovaniShow to the headless player's play() call; then the
// main thread's longest stall and the stalls over one frame (16 ms) during one whole showing.
// Both run the cached video against the in-process ad server on loopback. Needs a display
// (xvfb-run works).
#include <gtk/gtk.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Inventory.hpp"
#include "gui/DesktopSession.hpp"
#include "sdk/FacadeState.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/gtk/WidgetBacked.hpp"
#include "viewer/ProcessState.hpp"

namespace {

using namespace tovani;

struct Counter final : TovaniDelegate {
  int results = 0;
  void tovaniCallBack(int32_t) override { ++results; }
};

// Passes everything through and notes when play() is first called.
class StampedPlayer : public MediaPlayer {
 public:
  StampedPlayer(std::shared_ptr<MediaPlayer> inner, gint64* played)
      : inner_(std::move(inner)), played_(played) {}
  void play() override {
    if (*played_ == 0) *played_ = g_get_monotonic_time();
    inner_->play();
  }
  void pause() override { inner_->pause(); }
  void seek(double s) override { inner_->seek(s); }
  double currentTime() const override { return inner_->currentTime(); }
  double duration() const override { return inner_->duration(); }
  bool hasCurrentItem() const override { return inner_->hasCurrentItem(); }
  TimeObserverToken addPeriodicTimeObserver(double i, std::function<void(double)> t) override {
    return inner_->addPeriodicTimeObserver(i, std::move(t));
  }
  bool removeTimeObserver(TimeObserverToken t) override { return inner_->removeTimeObserver(t); }
  void setHoldsLastFrameAtEnd(bool h) override { inner_->setHoldsLastFrameAtEnd(h); }
  void setItemEndedHandler(std::function<void()> h) override {
    inner_->setItemEndedHandler(std::move(h));
  }

 private:
  std::shared_ptr<MediaPlayer> inner_;
  gint64* played_;
};

// The same for a player that draws into a widget: the host view must still find the widget.
class StampedWidgetPlayer final : public StampedPlayer, public gtk::WidgetBacked {
 public:
  StampedWidgetPlayer(std::shared_ptr<MediaPlayer> inner, gint64* played)
      : StampedPlayer(inner, played), widget_(dynamic_cast<WidgetBacked&>(*inner).widget()) {}
  GtkWidget* widget() override { return widget_; }

 private:
  GtkWidget* widget_;
};

class StampedFactory final : public MediaPlayerFactory {
 public:
  StampedFactory(std::shared_ptr<MediaPlayerFactory> inner, gint64* played)
      : inner_(std::move(inner)), played_(played) {}
  std::shared_ptr<MediaPlayer> createPlayer(const std::string& path) override {
    auto inner = inner_->createPlayer(path);
    if (dynamic_cast<gtk::WidgetBacked*>(inner.get()) != nullptr) {
      return std::make_shared<StampedWidgetPlayer>(inner, played_);
    }
    return std::make_shared<StampedPlayer>(inner, played_);
  }

 private:
  std::shared_ptr<MediaPlayerFactory> inner_;
  gint64* played_;
};

struct ShiftedClock final : Clock {
  double shift = 0;
  double now() const override { return g_get_real_time() / 1e6 + shift; }
};

// The default scenario with its first ad's end card off: a showing ends with its video.
adserver::Options scenario() {
  std::ifstream in(std::string(TOVANI_SOURCE_DIR) + "/tools/adserver/scenarios/default.json");
  std::stringstream text;
  text << in.rdbuf();
  auto json = nlohmann::json::parse(text.str());
  json["vast"][0]["extensions"]["EndcardUse"] = "false";
  adserver::Options options;
  options.scenarioText = json.dump();
  return options;
}

void report(const char* what, std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  if (ms.empty()) return;
  std::printf("%-44s median %7.1f ms   p95 %7.1f ms   (n=%zu)\n", what, ms[ms.size() / 2],
              ms[std::min(ms.size() - 1, ms.size() * 95 / 100)], ms.size());
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int showings = argc > 1 ? std::max(1, std::atoi(argv[1])) : 30;
  setenv("NO_AT_BRIDGE", "1", 1);
  if (!gtk_init_check(nullptr, nullptr)) {
    std::fprintf(stderr, "bench_desktop_show: no display (try xvfb-run)\n");
    return 2;
  }
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_default_size(GTK_WINDOW(window), 375, 667);
  gint64 firstFrame = 0, played = 0;
  gtk::GtkPlatformOptions options;
  options.logSink = [](const std::string&) {};
  options.screen.modelName = "iPhone";
  options.video.firstFrameDrawn = [&](int64_t at) { firstFrame = at; };
  demo::DesktopSession session(GTK_WINDOW(window), scenario(), std::move(options));
  gtk_widget_show_all(window);
  auto& desktop = session.desktop;
  auto clock = std::make_shared<ShiftedClock>();
  auto platform = std::make_shared<Platform>(*desktop.platform);
  platform->clock = clock;
  platform->players = std::make_shared<StampedFactory>(desktop.players, &played);
  auto host = std::make_shared<Counter>();

  std::vector<double> toPlay, toFrame, gtkPlay;
  auto leave = [&](gtk::GtkApplication& app) {
    app.sendEvent(AppEvent::WillResignActive);
    clock->shift += 11;
    app.sendEvent(AppEvent::WillEnterForeground);
  };
  TovaniSDK::setPlatform(platform);
  TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT", TovaniSDK::CategoryList{});
  TovaniSDK::delegate(host);
  if (!desktop.mainLoop->runUntil([&] { return demo::readInventory().ready(); }, 60)) {
    std::fprintf(stderr, "the inventory did not get ready\n");
    return 1;
  }
  // Showing -1 warms up: it makes the designed blocking fetch of the countdown images.
  for (int i = -1; i < showings; ++i) {
    firstFrame = played = 0;
    const int before = host->results;
    const gint64 start = g_get_monotonic_time();
    TovaniSDK::tovaniShow(desktop.hostView->rootView());
    desktop.mainLoop->runUntil([&] { return firstFrame != 0; }, 10);
    if (firstFrame == 0 || played == 0) {
      std::fprintf(stderr, "showing %d drew no frame (play() %s, callbacks %d)\n", i + 1,
                   played != 0 ? "called" : "not called", host->results - before);
      return 1;
    }
    if (i >= 0) toFrame.push_back((firstFrame - start) / 1e3);
    if (i >= 0) gtkPlay.push_back((played - start) / 1e3);
    leave(*desktop.application);
    desktop.mainLoop->runUntil([&] { return host->results > before; }, 10);
  }
  // The same SDK and loop with the headless GStreamer player.
  platform->players = std::make_shared<StampedFactory>(
      std::make_shared<linux::GstPlayerFactory>(desktop.mainLoop, desktop.log), &played);
  for (int i = 0; i < showings; ++i) {
    played = 0;
    const int before = host->results;
    const gint64 start = g_get_monotonic_time();
    TovaniSDK::tovaniShow(desktop.hostView->rootView());
    desktop.mainLoop->runUntil([&] { return played != 0; }, 10);
    if (played != 0) toPlay.push_back((played - start) / 1e3);
    leave(*desktop.application);
    desktop.mainLoop->runUntil([&] { return host->results > before; }, 10);
  }
  platform->players = std::make_shared<StampedFactory>(desktop.players, &played);

  // One whole showing (video at 4x, images already fetched): the main thread's stalls, seen
  // as late wake-ups of a 1-ms heartbeat.
  desktop.players->setOptions({4.0, true, options.video.firstFrameDrawn});
  struct Beat {
    gint64 last = 0, longest = 0;
    int overFrame = 0;
  } beat;
  const int before = host->results;
  TovaniSDK::tovaniShow(desktop.hostView->rootView());
  beat.last = g_get_monotonic_time();
  const guint heart = g_timeout_add_full(
      G_PRIORITY_HIGH, 1,
      +[](gpointer data) -> gboolean {
        auto* b = static_cast<Beat*>(data);
        const gint64 now = g_get_monotonic_time();
        const gint64 gap = now - b->last - 1000;
        b->longest = std::max(b->longest, gap);
        b->overFrame += gap > 16000;
        b->last = now;
        return G_SOURCE_CONTINUE;
      },
      &beat, nullptr);
  desktop.mainLoop->runUntil([&] { return host->results > before; }, 30);
  g_source_remove(heart);
  TovaniSDK::setPlatform(nullptr);
  resetFacadeForTesting();
  resetProcessState();

  report("GTK: tovaniShow -> first frame drawn", toFrame);
  report("GTK: tovaniShow -> play()", gtkPlay);
  report("headless player: tovaniShow -> play()", toPlay);
  std::printf(
      "main thread during one whole showing: longest stall %.1f ms, stalls over 16 ms: %d\n",
      beat.longest / 1e3, beat.overFrame);
  std::printf("first frame drawn (GTK) / play() (headless), medians: %.2f\n",
              median(toFrame) / median(toPlay));
  gtk_widget_destroy(window);
  return 0;
}
