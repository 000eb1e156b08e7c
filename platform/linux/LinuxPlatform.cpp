#include "tovani/linux/LinuxPlatform.hpp"

#include "tovani/tovani.h"

namespace tovani::linux {

void LinuxPlatform::rotate(DeviceOrientation orientation) const {
  screen->setOrientation(orientation);
  application->sendEvent(AppEvent::OrientationDidChange);
}

LinuxPlatform makeLinuxPlatform(LinuxPlatformOptions options) {
  LinuxPlatform bundle;
  bundle.log = std::make_shared<LinuxLog>(std::move(options.logSink));
  bundle.mainLoop = std::make_shared<MainLoop>(options.mainContext);
  bundle.mainLoop->setErrorReporter(
      [log = bundle.log](const std::string& line) { log->write(line); });
  bundle.http = std::make_shared<CurlHttp>(bundle.mainLoop, std::move(options.http));
  bundle.players = std::make_shared<GstPlayerFactory>(bundle.mainLoop, bundle.log, options.player);
  bundle.webViews =
      std::make_shared<HeadlessWebViewFactory>(bundle.http, bundle.mainLoop, options.webView);
  bundle.screen = std::make_shared<LinuxScreen>(options.screen);
  bundle.application = std::make_shared<LinuxApplication>(bundle.mainLoop, bundle.log,
                                                          std::move(options.application));
  bundle.device = std::make_shared<LinuxDevice>(std::move(options.device));
  bundle.reachability =
      std::make_shared<LinuxReachability>(std::move(options.reachability), bundle.log);

  auto platform = std::make_shared<Platform>();
  platform->mainQueue = bundle.mainLoop;
  platform->clock = std::make_shared<SystemClock>();
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

}  // namespace tovani::linux

namespace {

std::shared_ptr<tovani::Platform> makeDefaultLinuxPlatform() {
  return tovani::linux::makeLinuxPlatform().platform;
}

// Loading this library (or pulling this object into a static host) makes the Linux adapters
// the default platform, without the core linking against them.
[[gnu::constructor]] void registerAtLoad() {
  tovani::setDefaultPlatformMaker(&makeDefaultLinuxPlatform);
}

}  // namespace

extern "C" void tovani_linux_register_default(void) {
  tovani::setDefaultPlatformMaker(&makeDefaultLinuxPlatform);
}
