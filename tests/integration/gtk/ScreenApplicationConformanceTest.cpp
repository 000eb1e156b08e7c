// One contract for the screen and application the SDK can be given: the test platform's
// fakes, the headless Linux adapters and the adapters of a real window.
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DesktopFixture.hpp"
#include "support/FakePorts.hpp"
#include "support/VirtualMainQueue.hpp"
#include "tovani/linux/LinuxPlatform.hpp"

namespace tovani::test {
namespace {

// A screen and application under test, and the ways a test moves them.
class HostRig {
 public:
  virtual ~HostRig() = default;
  virtual Screen& screen() = 0;
  virtual Application& application() = 0;
  // Turns the host to landscape (true) or portrait, as its platform does.
  virtual void turn(bool landscape) = 0;
  // The host leaves (true) or comes back; events arrive through the main queue.
  virtual void leave(bool away) = 0;
  virtual void runQueue() = 0;
};

class FakeRig final : public HostRig {
 public:
  Screen& screen() override { return screen_; }
  Application& application() override { return app_; }
  void turn(bool landscape) override {
    screen_.size = landscape ? Size{667, 375} : Size{375, 667};
    screen_.orientation =
        landscape ? DeviceOrientation::LandscapeLeft : DeviceOrientation::Portrait;
  }
  void leave(bool away) override {
    queue_.post([this, away] {
      app_.fire(away ? AppEvent::WillResignActive : AppEvent::WillEnterForeground);
    });
  }
  void runQueue() override { queue_.runUntilIdle(); }

 private:
  FakeScreen screen_;
  FakeApplication app_ = [] {
    FakeApplication a;
    a.openableSchemes = {"http", "https"};
    return a;
  }();
  VirtualMainQueue queue_;
};

class LinuxRig final : public HostRig {
 public:
  Screen& screen() override { return *bundle_.screen; }
  Application& application() override { return *bundle_.application; }
  void turn(bool landscape) override {
    bundle_.rotate(landscape ? DeviceOrientation::LandscapeLeft : DeviceOrientation::Portrait);
  }
  void leave(bool away) override {
    bundle_.application->sendEvent(away ? AppEvent::WillResignActive
                                        : AppEvent::WillEnterForeground);
  }
  void runQueue() override { bundle_.mainLoop->runFor(0.1); }

 private:
  linux::LinuxPlatform bundle_ = [] {
    linux::LinuxPlatformOptions o;
    o.mainContext = linux::MainContextChoice::Private;
    o.logSink = [](const std::string&) {};
    return linux::makeLinuxPlatform(o);
  }();
};

class WindowRig final : public HostRig {
 public:
  WindowRig() {
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window_), 375, 667);
    gtk::GtkPlatformOptions o;
    o.logSink = [](const std::string&) {};
    bundle_ = gtk::makeGtkPlatform(GTK_WINDOW(window_), o);
    gtk_widget_show_all(window_);
    bundle_.mainLoop->runUntil([&] { return bundle_.hostView->size().width == 375; }, 5);
  }
  ~WindowRig() override {
    bundle_ = {};
    gtk_widget_destroy(window_);
  }
  Screen& screen() override { return *bundle_.screen; }
  Application& application() override { return *bundle_.application; }
  void turn(bool landscape) override {
    gtk_window_resize(GTK_WINDOW(window_), landscape ? 667 : 375, landscape ? 375 : 667);
    bundle_.mainLoop->runUntil(
        [&] { return bundle_.hostView->size().width == (landscape ? 667 : 375); }, 5);
  }
  void leave(bool away) override {
    if (away) {
      gtk_widget_hide(window_);
    } else {
      gtk_widget_show(window_);
    }
  }
  void runQueue() override { bundle_.mainLoop->runFor(0.3); }

 private:
  GtkWidget* window_ = nullptr;
  gtk::GtkPlatform bundle_;
};

struct RigKind {
  const char* name;
  std::function<std::unique_ptr<HostRig>()> make;
  bool needsDisplay;
};

class ScreenApplicationConformance : public ::testing::TestWithParam<RigKind> {
 protected:
  static void SetUpTestSuite() { prepareDesktop(); }
  void SetUp() override {
    if (GetParam().needsDisplay && !demo::displayAvailable()) GTEST_SKIP() << "no display";
    rig_ = GetParam().make();
  }
  std::unique_ptr<HostRig> rig_;
};

TEST_P(ScreenApplicationConformance, OrientationFollowsTheBoundsAndEventsArriveOnTheQueue) {
  auto& screen = rig_->screen();
  auto& app = rig_->application();
  std::vector<AppEvent> events;
  app.setEventHandler([&](AppEvent e) {
    if (e != AppEvent::OrientationDidChange) events.push_back(e);
  });
  for (bool landscape : {true, false}) {
    rig_->turn(landscape);
    rig_->runQueue();
    const Size size = screen.boundsSize();
    EXPECT_EQ(size.width > size.height, landscape);
    EXPECT_EQ(screen.deviceOrientation() == DeviceOrientation::LandscapeLeft ||
                  screen.deviceOrientation() == DeviceOrientation::LandscapeRight,
              landscape);
  }
  EXPECT_GT(screen.scale().value_or(1.0), 0);

  rig_->leave(true);
  rig_->runQueue();
  rig_->leave(false);
  rig_->runQueue();
  EXPECT_EQ(events,
            (std::vector<AppEvent>{AppEvent::WillResignActive, AppEvent::WillEnterForeground}));

  app.setStatusBarHidden(true);
  EXPECT_TRUE(app.isStatusBarHidden());
  app.setStatusBarHidden(false);
  EXPECT_FALSE(app.isStatusBarHidden());
  EXPECT_TRUE(app.canOpenURL("https://www.example.com/landing"));
  EXPECT_FALSE(app.canOpenURL("tovani-no-such-scheme://x"));
  EXPECT_FALSE(app.canOpenURL("not a url"));
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, ScreenApplicationConformance,
    ::testing::Values(RigKind{"fakes", [] { return std::make_unique<FakeRig>(); }, false},
                      RigKind{"headless", [] { return std::make_unique<LinuxRig>(); }, false},
                      RigKind{"window", [] { return std::make_unique<WindowRig>(); }, true}),
    [](const auto& rig) { return std::string(rig.param.name); });

}  // namespace
}  // namespace tovani::test
