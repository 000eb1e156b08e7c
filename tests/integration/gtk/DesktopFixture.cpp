#include "DesktopFixture.hpp"

#include <X11/extensions/XTest.h>
#include <gdk/gdkx.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Inventory.hpp"
#include "sdk/FacadeState.hpp"
#include "tovani/TovaniSDK.hpp"
#include "util/NotificationCenter.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {

namespace fs = std::filesystem;

std::string DesktopTest::handlerDir;

double ShiftedClock::now() const {
  using namespace std::chrono;
  if (pinned) return *pinned;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

void DesktopTest::SetUpTestSuite() {
  prepareDesktop();
}

void prepareDesktop() {
  auto& handlerDir = DesktopTest::handlerDir;
  if (!handlerDir.empty()) return;
  // GLib reads the XDG folders once, so they are set before the first GLib call.
  std::string pattern = (fs::temp_directory_path() / "tovani-gio-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  handlerDir = pattern;
  fs::create_directories(handlerDir + "/data/applications");
  fs::create_directories(handlerDir + "/config");
  const std::string script = handlerDir + "/record.sh";
  std::ofstream(script) << "#!/bin/sh\necho \"$1\" >> " << handlerDir << "/opened.txt\n";
  chmod(script.c_str(), 0755);
  std::ofstream(handlerDir + "/data/applications/tovani-recorder.desktop")
      << "[Desktop Entry]\nType=Application\nName=Recorder\nExec=" << script
      << " %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\n";
  std::ofstream(handlerDir + "/config/mimeapps.list")
      << "[Default Applications]\nx-scheme-handler/http=tovani-recorder.desktop\n"
         "x-scheme-handler/https=tovani-recorder.desktop\n";
  setenv("XDG_DATA_HOME", (handlerDir + "/data").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (handlerDir + "/config").c_str(), 1);
  // No accessibility bus: the tests need none, and its client is never freed.
  setenv("NO_AT_BRIDGE", "1", 1);
  if (demo::displayAvailable()) gtk_init(nullptr, nullptr);
}

void DesktopTest::SetUp() {
  if (!demo::displayAvailable()) GTEST_SKIP() << "no display: run under xvfb-run";
  resetFacadeForTesting();
  resetProcessState();
  NotificationCenter::defaultCenter().reset();
  std::error_code ec;
  fs::remove(handlerDir + "/opened.txt", ec);
}

void DesktopTest::TearDown() {
  TovaniSDK::setPlatform(nullptr);
  resetFacadeForTesting();
  resetProcessState();
  NotificationCenter::defaultCenter().reset();
  session.reset();
  if (window != nullptr) gtk_widget_destroy(window);
  window = nullptr;
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

void DesktopTest::open(int width, int height, const std::string& modelName, InterfaceIdiom idiom,
                       adserver::Options server, double speed) {
  window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_default_size(GTK_WINDOW(window), width, height);
  gtk_container_add(GTK_CONTAINER(window), gtk_label_new("host content"));
  gtk::GtkPlatformOptions options;
  options.video.playbackRate = speed;
  options.screen.modelName = modelName;
  options.screen.idiom = idiom;
  options.logSink = [](const std::string&) {};
  session = std::make_unique<demo::DesktopSession>(GTK_WINDOW(window), std::move(server),
                                                   std::move(options));
  clock = std::make_shared<ShiftedClock>();
  session->desktop.platform->clock = clock;
  host = std::make_shared<Recorder>();
  gtk_widget_show_all(window);
  TovaniSDK::setPlatform(session->desktop.platform);
  TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT", TovaniSDK::CategoryList{});
  TovaniSDK::delegate(host);
  ASSERT_TRUE(runUntil([&] { return session->desktop.hostView->size().width == width; }, 5));
}

bool DesktopTest::runUntil(const std::function<bool()>& done, double seconds) {
  return session->desktop.mainLoop->runUntil(done, seconds);
}

void DesktopTest::waitForInventory() {
  ASSERT_TRUE(runUntil([&] { return demo::readInventory().ready(); }, 30));
}

void DesktopTest::show() {
  TovaniSDK::tovaniShow(session->desktop.hostView->rootView());
}

std::vector<std::string> DesktopTest::launchedUrls() {
  std::ifstream in(handlerDir + "/opened.txt");
  std::vector<std::string> urls;
  for (std::string line; std::getline(in, line);) urls.push_back(line);
  return urls;
}

std::shared_ptr<View> DesktopTest::node(View::Kind kind, double z) const {
  return demo::findNode(*session->desktop.hostView->rootView(), kind, z);
}

GdkRectangle DesktopTest::placeOf(GtkWidget* widget) const {
  // Overlay children sit in windows of their own: their allocation is relative to those.
  GdkRectangle r{0, 0, gtk_widget_get_allocated_width(widget),
                 gtk_widget_get_allocated_height(widget)};
  gtk_widget_translate_coordinates(widget, GTK_WIDGET(session->desktop.hostView->overlay()), 0, 0,
                                   &r.x, &r.y);
  return r;
}

void DesktopTest::clickOn(const View& target) {
  GtkWidget* widget = session->desktop.hostView->widgetFor(target);
  ASSERT_NE(widget, nullptr);
  const GdkRectangle a = placeOf(widget);
  int x = 0, y = 0;
  gdk_window_get_origin(gtk_widget_get_window(window), &x, &y);
  int inWindowX = 0, inWindowY = 0;
  gtk_widget_translate_coordinates(GTK_WIDGET(session->desktop.hostView->overlay()), window, 0, 0,
                                   &inWindowX, &inWindowY);
  Display* display = gdk_x11_display_get_xdisplay(gdk_display_get_default());
  XTestFakeMotionEvent(display, -1, x + inWindowX + a.x + a.width / 2,
                       y + inWindowY + a.y + a.height / 2, CurrentTime);
  XTestFakeButtonEvent(display, 1, True, CurrentTime);
  XTestFakeButtonEvent(display, 1, False, CurrentTime);
  XFlush(display);
}

std::vector<std::string> DesktopTest::misplacedNodes() const {
  std::vector<std::string> wrong;
  auto& hostView = *session->desktop.hostView;
  std::function<void(const View&, double, double)> walk = [&](const View& parent, double x,
                                                              double y) {
    for (const auto& child : parent.subviews()) {
      const double cx = x + child->frame.x, cy = y + child->frame.y;
      if (!child->hidden && child->frame.width > 0) {
        GtkWidget* widget = hostView.widgetFor(*child);
        GdkRectangle a{};
        if (widget != nullptr) a = placeOf(widget);
        const GdkRectangle want{static_cast<int>(std::lround(cx)),
                                static_cast<int>(std::lround(cy)),
                                static_cast<int>(std::lround(child->frame.width)),
                                static_cast<int>(std::lround(child->frame.height))};
        if (widget == nullptr || a.x != want.x || a.y != want.y || a.width != want.width ||
            a.height != want.height) {
          std::ostringstream s;
          s << "kind " << static_cast<int>(child->kind) << " z " << child->zPosition << ": at "
            << a.x << "," << a.y << " " << a.width << "x" << a.height << ", frame " << want.x << ","
            << want.y << " " << want.width << "x" << want.height;
          wrong.push_back(s.str());
        }
        walk(*child, cx, cy);
      }
    }
  };
  walk(*hostView.rootView(), 0, 0);
  return wrong;
}

GdkPixbuf* DesktopTest::screenshot(const std::string& name) const {
  GdkWindow* w = gtk_widget_get_window(window);
  GdkPixbuf* shot =
      gdk_pixbuf_get_from_window(w, 0, 0, gdk_window_get_width(w), gdk_window_get_height(w));
  // Kept for a person to look at when asked (CI keeps them as artefacts).
  if (const char* folder = std::getenv("TOVANI_TEST_SCREENSHOTS"); folder && shot) {
    gdk_pixbuf_save(shot, (std::string(folder) + "/" + name + ".png").c_str(), "png", nullptr,
                    nullptr);
  }
  return shot;
}

}  // namespace tovani::test
