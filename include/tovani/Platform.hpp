#pragma once
#include <memory>

#include "tovani/Export.hpp"
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
struct TOVANI_EXPORT Platform {
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

// The platform used when the host sets none: the one a loaded platform library (the Linux
// adapters, for instance) registered with setDefaultPlatformMaker, or nullptr.
TOVANI_EXPORT std::shared_ptr<Platform> makeDefaultPlatform();

// Called by a platform library as it is loaded, so that the core never links against its
// adapters. The last registration wins; nullptr removes it.
using PlatformMaker = std::shared_ptr<Platform> (*)();
TOVANI_EXPORT void setDefaultPlatformMaker(PlatformMaker maker);

}  // namespace tovani
