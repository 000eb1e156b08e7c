#pragma once
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tovani/Export.hpp"
#include "tovani/platform/Application.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/Screen.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

// The screen the SDK lays its views out for. Linux has no phone screen, so it is a profile.
struct ScreenProfile {
  Size boundsSize{375, 667};
  std::optional<double> scale = 2.0;
  std::optional<InterfaceIdiom> idiom = InterfaceIdiom::Phone;
  DeviceOrientation orientation = DeviceOrientation::Portrait;
  std::string modelName = "iPhone";

  static ScreenProfile phone() { return {}; }
  static ScreenProfile tablet() {
    return {{768, 1024}, 2.0, InterfaceIdiom::Pad, DeviceOrientation::Portrait, "iPad"};
  }
};

class TOVANI_EXPORT LinuxScreen final : public Screen {
 public:
  explicit LinuxScreen(ScreenProfile profile = ScreenProfile::phone()) : profile_(profile) {}
  Size boundsSize() const override;
  std::optional<double> scale() const override;
  std::optional<InterfaceIdiom> interfaceIdiom() const override;
  DeviceOrientation deviceOrientation() const override;
  std::string deviceModelName() const override;

  ScreenProfile profile() const;
  void setProfile(const ScreenProfile& profile);
  // Turns the device. Landscape orientations give a wide bounds size and portrait ones a tall
  // one, as a phone reports after rotating; face up, face down and unknown keep the size.
  void setOrientation(DeviceOrientation orientation);

 private:
  mutable std::mutex mutex_;
  ScreenProfile profile_;
};

struct ApplicationOptions {
  std::optional<std::string> bundleName;          // default: the program's file name
  std::optional<std::string> bundleResourcePath;  // default: the program's folder
  bool statusBarHidden = false;
  std::function<bool(const std::string&)> canOpenURL;  // default: http and https only
  std::function<void(const std::string&)> openURL;     // default: log the URL
};

class TOVANI_EXPORT LinuxApplication final : public Application {
 public:
  LinuxApplication(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Log> log,
                   ApplicationOptions options = {});

  bool isStatusBarHidden() const override;
  void setStatusBarHidden(bool hidden) override;
  bool canOpenURL(const std::string& url) const override;
  void openURL(const std::string& url) override;
  std::optional<std::string> bundleName() const override { return bundleName_; }
  std::optional<std::string> bundleResourcePath() const override { return resourcePath_; }
  void setEventHandler(std::function<void(AppEvent)> handler) override;

  // The host's lifecycle: delivered to the registered handler later, on the main queue.
  // Safe from any thread.
  void sendEvent(AppEvent event);
  // Every URL handed to openURL, oldest first.
  std::vector<std::string> openedURLs() const;

 private:
  std::shared_ptr<MainQueue> mainQueue_;
  std::shared_ptr<Log> log_;
  ApplicationOptions options_;
  std::optional<std::string> bundleName_;
  std::optional<std::string> resourcePath_;
  mutable std::mutex mutex_;
  bool statusBarHidden_ = false;
  std::vector<std::string> opened_;
  // Shared with queued events, which may run after this object is gone.
  struct HandlerSlot {
    std::mutex mutex;
    std::function<void(AppEvent)> handler;
  };
  std::shared_ptr<HandlerSlot> handler_ = std::make_shared<HandlerSlot>();
};

}  // namespace tovani::linux

#pragma pop_macro("linux")
