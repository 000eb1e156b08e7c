#pragma once
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gui/DesktopSession.hpp"
#include "tovani/TovaniDelegate.hpp"

namespace tovani::test {

// The wall clock, or a pinned time, so that a test can leave the app for 11 s at once. The
// SDK counts whole seconds, so a pinned time keeps a time away exact.
class ShiftedClock final : public Clock {
 public:
  double now() const override;
  std::optional<double> pinned;
};

struct Recorder final : TovaniDelegate {
  std::vector<int32_t> results;
  void tovaniCallBack(int32_t result) override { results.push_back(result); }
};

// Registers a GIO handler for http(s) that writes the URLs it is launched with to a file,
// turns the accessibility bus off and starts GTK when a display exists. Before any other GLib
// call (GLib reads the XDG folders once); repeated calls do nothing.
void prepareDesktop();

// A real window on the X server (Xvfb in CI) with the GTK platform against the ad server on
// loopback. Opened links go to a GIO handler registered for http(s) that writes them to a file.
class DesktopTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite();
  void SetUp() override;
  void TearDown() override;

  // Window size and the screen the SDK is told about.
  void open(int width, int height, const std::string& modelName, InterfaceIdiom idiom,
            adserver::Options server = {}, double speed = 2.0);
  bool runUntil(const std::function<bool()>& done, double seconds);
  void waitForInventory();
  void show();
  // The URLs the GIO handler was launched with.
  static std::vector<std::string> launchedUrls();
  // A real pointer click (XTest) at the centre of the node's widget.
  void clickOn(const View& node);
  // Every visible node under the viewer whose widget's allocation differs from its frame.
  std::vector<std::string> misplacedNodes() const;
  GdkPixbuf* screenshot(const std::string& name) const;  // caller unrefs
  // Where the widget is drawn, in the host view's coordinates.
  GdkRectangle placeOf(GtkWidget* widget) const;
  std::vector<adserver::LoggedRequest> requests() const { return session->server->requests(); }
  std::shared_ptr<View> node(View::Kind kind, double z = -1) const;

  friend void prepareDesktop();
  GtkWidget* window = nullptr;
  std::unique_ptr<demo::DesktopSession> session;
  std::shared_ptr<Recorder> host;
  std::shared_ptr<ShiftedClock> clock;
  static std::string handlerDir;
};

}  // namespace tovani::test
