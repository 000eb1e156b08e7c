#pragma once
#include <functional>
#include <memory>
#include <string>

#include "tovani/Platform.hpp"
#include "tovani/gtk/GtkHostAdapters.hpp"
#include "tovani/gtk/GtkVideoPlayer.hpp"
#include "tovani/gtk/HostView.hpp"
#include "tovani/gtk/WebKitWebView.hpp"
#include "tovani/linux/LinuxPlatform.hpp"

namespace tovani::gtk {

struct GtkPlatformOptions {
  linux::HttpOptions http;
  WebKitViewOptions webKit;  // the end card's web engine
  linux::DeviceOptions device;
  linux::ReachabilityOptions reachability;
  VideoOptions video;
  ScreenOptions screen;
  GtkApplicationOptions application;
  // Receives every log line; empty: "[tovani] <line>" on standard error.
  std::function<void(const std::string&)> logSink;
  // Where the SDK's views go; empty: a new overlay around the window's child.
  std::shared_ptr<HostView> hostView;
};

// The desktop adapters, bundled as the Platform the SDK takes and by their own types.
//
//   GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
//   auto desktop = tovani::gtk::makeGtkPlatform(GTK_WINDOW(window));
//   tovani::TovaniSDK::setPlatform(desktop.platform);
//   ...  // init, delegate
//   tovani::TovaniSDK::tovaniShow(desktop.hostView->rootView());
//   gtk_main();  // the main queue is the GTK main loop
struct GtkPlatform {
  std::shared_ptr<Platform> platform;
  std::shared_ptr<linux::MainLoop> mainLoop;  // on GLib's default context: GTK's own loop
  std::shared_ptr<HostView> hostView;
  std::shared_ptr<linux::CurlHttp> http;
  std::shared_ptr<GtkVideoPlayerFactory> players;
  std::shared_ptr<WebViewFactory> webViews;
  std::shared_ptr<GtkScreen> screen;
  std::shared_ptr<GtkApplication> application;
  std::shared_ptr<linux::LinuxDevice> device;
  std::shared_ptr<linux::LinuxReachability> reachability;
  std::shared_ptr<linux::LinuxLog> log;
};

// Builds every adapter for `window`, on the thread that runs GTK (it must have called
// gtk_init). That thread is the SDK's main thread.
GtkPlatform makeGtkPlatform(GtkWindow* window, GtkPlatformOptions options = {});

}  // namespace tovani::gtk
