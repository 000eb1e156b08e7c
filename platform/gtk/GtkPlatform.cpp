#include "tovani/gtk/GtkPlatform.hpp"

#include <gtk/gtk.h>

namespace tovani::gtk {

namespace {

// The end card's web views: a real engine, whose widgets the host view places.
std::shared_ptr<WebViewFactory> makeWebViews(const GtkPlatform& bundle,
                                             const GtkPlatformOptions& options) {
  return std::make_shared<WebKitWebViewFactory>(bundle.http, bundle.mainLoop, bundle.log,
                                                options.webKit);
}

}  // namespace

GtkPlatform makeGtkPlatform(GtkWindow* window, GtkPlatformOptions options) {
  GtkPlatform bundle;
  bundle.log = std::make_shared<linux::LinuxLog>(std::move(options.logSink));
  bundle.mainLoop = std::make_shared<linux::MainLoop>(linux::MainContextChoice::Default);
  bundle.mainLoop->setErrorReporter(
      [log = bundle.log](const std::string& line) { log->write(line); });
  bundle.hostView = options.hostView ? options.hostView : HostView::forWindow(window);
  bundle.http = std::make_shared<linux::CurlHttp>(bundle.mainLoop, std::move(options.http));
  bundle.players =
      std::make_shared<GtkVideoPlayerFactory>(bundle.mainLoop, bundle.log, options.video);
  bundle.webViews = makeWebViews(bundle, options);
  bundle.screen = std::make_shared<GtkScreen>(bundle.hostView, options.screen);
  bundle.application = std::make_shared<GtkApplication>(window, bundle.mainLoop, bundle.log,
                                                        std::move(options.application));
  bundle.device = std::make_shared<linux::LinuxDevice>(std::move(options.device));
  bundle.reachability = std::make_shared<linux::LinuxReachability>(std::move(options.reachability));
  // A new size lays the ad out again, as a device rotation does.
  std::weak_ptr<GtkApplication> app = bundle.application;
  bundle.hostView->setSizeChangedHandler([app](Size) {
    if (auto live = app.lock()) live->sendEvent(AppEvent::OrientationDidChange);
  });

  auto platform = std::make_shared<Platform>();
  platform->mainQueue = bundle.mainLoop;
  platform->clock = std::make_shared<linux::SystemClock>();
  platform->http = bundle.http;
  platform->players = bundle.players;
  platform->webViews = bundle.webViews;
  platform->screen = bundle.screen;
  platform->application = bundle.application;
  platform->device = bundle.device;
  platform->reachability = bundle.reachability;
  platform->log = bundle.log;
  bundle.platform = std::move(platform);
  return bundle;
}

}  // namespace tovani::gtk
