#pragma once
#include <functional>
#include <memory>
#include <string>

#include "tovani/Export.hpp"
#include "tovani/Platform.hpp"
#include "tovani/linux/CurlHttp.hpp"
#include "tovani/linux/GstPlayer.hpp"
#include "tovani/linux/HeadlessWebView.hpp"
#include "tovani/linux/LinuxApplication.hpp"
#include "tovani/linux/LinuxDevice.hpp"
#include "tovani/linux/MainLoop.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

struct LinuxPlatformOptions {
  MainContextChoice mainContext = MainContextChoice::Default;
  HttpOptions http;
  PlayerOptions player;
  WebViewOptions webView;
  DeviceOptions device;  // device.appName names the documents folder
  ScreenProfile screen;
  ApplicationOptions application;
  ReachabilityOptions reachability;
  // Receives every log line; empty: "[tovani] <line>" on standard error.
  std::function<void(const std::string&)> logSink;
};

// The Linux adapters, bundled as the Platform the SDK takes and also by their own types for
// what only a host can do: run the loop, drive a headless web view, send lifecycle events.
//
//   tovani::linux::LinuxPlatformOptions options;
//   options.http.connectTo = {"ads.tovani.example:80:127.0.0.1:18080"};
//   options.player.playbackRate = 4.0;
//   auto linux = tovani::linux::makeLinuxPlatform(options);
//   tovani::TovaniSDK::setPlatform(linux.platform);
//   ...  // TovaniSDK calls, on this thread
//   linux.mainLoop->run();  // or runUntil(condition, seconds); quit() from anywhere
//   linux.application->sendEvent(tovani::AppEvent::WillResignActive);  // lifecycle, any thread
struct TOVANI_EXPORT LinuxPlatform {
  std::shared_ptr<Platform> platform;  // hand this to the SDK
  std::shared_ptr<MainLoop> mainLoop;  // the SDK's main queue; the host runs it
  std::shared_ptr<CurlHttp> http;
  std::shared_ptr<GstPlayerFactory> players;
  std::shared_ptr<HeadlessWebViewFactory> webViews;
  std::shared_ptr<LinuxScreen> screen;
  std::shared_ptr<LinuxApplication> application;
  std::shared_ptr<LinuxDevice> device;
  std::shared_ptr<LinuxReachability> reachability;
  std::shared_ptr<LinuxLog> log;

  // Turns the screen and then tells the SDK, in the order a device rotation does.
  void rotate(DeviceOrientation orientation) const;
};

// Builds every adapter. The thread that later runs `mainLoop` is the SDK's main thread.
TOVANI_EXPORT LinuxPlatform makeLinuxPlatform(LinuxPlatformOptions options = {});

}  // namespace tovani::linux

#pragma pop_macro("linux")
