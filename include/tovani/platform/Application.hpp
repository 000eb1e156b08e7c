#pragma once
#include <functional>
#include <optional>
#include <string>
#include "tovani/Export.hpp"

namespace tovani {

enum class AppEvent { WillResignActive, WillEnterForeground, WillTerminate, OrientationDidChange };

class TOVANI_EXPORT Application {
 public:
  virtual ~Application() = default;
  virtual bool isStatusBarHidden() const = 0;
  virtual void setStatusBarHidden(bool hidden) = 0;
  virtual bool canOpenURL(const std::string& url) const = 0;
  virtual void openURL(const std::string& url) = 0;
  virtual std::optional<std::string> bundleName() const = 0;
  virtual std::optional<std::string> bundleResourcePath() const = 0;
  // The core registers one handler; the platform calls it on the main thread.
  virtual void setEventHandler(std::function<void(AppEvent)> handler) = 0;
};

}  // namespace tovani
