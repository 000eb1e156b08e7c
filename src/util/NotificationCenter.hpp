#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tovani {

// Names the viewer observes, as the platform spells them.
inline constexpr const char* kDeviceOrientationDidChange = "UIDeviceOrientationDidChangeNotification";
inline constexpr const char* kPlayerItemDidPlayToEndTime = "AVPlayerItemDidPlayToEndTimeNotification";
inline constexpr const char* kApplicationWillResignActive = "UIApplicationWillResignActiveNotification";
inline constexpr const char* kApplicationWillEnterForeground =
    "UIApplicationWillEnterForegroundNotification";
inline constexpr const char* kApplicationWillTerminate = "UIApplicationWillTerminateNotification";
inline constexpr const char* kReachabilityChangedNotification =
    "kNetworkReachabilityChangedNotification";

struct Notification {
  std::string name;
  const void* object = nullptr;
};

// The core's default notification centre (main thread only). Observers are identified by
// an owner pointer; an observer with an object only receives posts of that object.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  void addObserver(const void* owner, const std::string& name, Handler handler,
                   const void* object = nullptr);
  void removeObserver(const void* owner);
  void removeObserver(const void* owner, const std::string& name);
  void post(const std::string& name, const void* object = nullptr);
  size_t observerCount(const void* owner, const std::string& name) const;
  void reset();

 private:
  struct Entry {
    const void* owner;
    std::string name;
    const void* object;
    Handler handler;
    bool removed = false;
  };
  std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace tovani
