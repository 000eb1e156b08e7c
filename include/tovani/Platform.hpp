#pragma once
#include <memory>

#include "tovani/platform/Application.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/Http.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/MediaPlayer.hpp"
#include "tovani/platform/Screen.hpp"
#include "tovani/platform/WebView.hpp"

namespace tovani {

// Every port the core reaches the world through, handed to TovaniSDK::setPlatform before
// first use. All members must be set.
struct Platform {
  std::shared_ptr<MainQueue> mainQueue;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<Http> http;
  std::shared_ptr<MediaPlayerFactory> players;
  std::shared_ptr<WebViewFactory> webViews;
  std::shared_ptr<Screen> screen;
  std::shared_ptr<Application> application;
  std::shared_ptr<Device> device;
  std::shared_ptr<ReachabilitySource> reachability;
  std::shared_ptr<Log> log;
};

// The platform built into this library (the Linux adapters when linked), or nullptr.
std::shared_ptr<Platform> makeDefaultPlatform();

}  // namespace tovani
