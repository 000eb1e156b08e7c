#include "tovani/linux/LinuxApplication.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tovani::linux {

namespace {

std::optional<std::filesystem::path> programPath() {
  std::error_code error;
  auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error || path.empty()) return std::nullopt;
  return path;
}

std::string schemeOf(const std::string& url) {
  const auto colon = url.find(':');
  if (colon == std::string::npos) return {};
  std::string scheme = url.substr(0, colon);
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return scheme;
}

bool isLandscape(DeviceOrientation o) {
  return o == DeviceOrientation::LandscapeLeft || o == DeviceOrientation::LandscapeRight;
}

bool isPortrait(DeviceOrientation o) {
  return o == DeviceOrientation::Portrait || o == DeviceOrientation::PortraitUpsideDown;
}

}  // namespace

Size LinuxScreen::boundsSize() const {
  std::lock_guard lock(mutex_);
  return profile_.boundsSize;
}

std::optional<double> LinuxScreen::scale() const {
  std::lock_guard lock(mutex_);
  return profile_.scale;
}

std::optional<InterfaceIdiom> LinuxScreen::interfaceIdiom() const {
  std::lock_guard lock(mutex_);
  return profile_.idiom;
}

DeviceOrientation LinuxScreen::deviceOrientation() const {
  std::lock_guard lock(mutex_);
  return profile_.orientation;
}

std::string LinuxScreen::deviceModelName() const {
  std::lock_guard lock(mutex_);
  return profile_.modelName;
}

ScreenProfile LinuxScreen::profile() const {
  std::lock_guard lock(mutex_);
  return profile_;
}

void LinuxScreen::setProfile(const ScreenProfile& profile) {
  std::lock_guard lock(mutex_);
  profile_ = profile;
}

void LinuxScreen::setOrientation(DeviceOrientation orientation) {
  std::lock_guard lock(mutex_);
  profile_.orientation = orientation;
  Size& size = profile_.boundsSize;
  const bool wide = size.width > size.height;
  if ((isLandscape(orientation) && !wide) || (isPortrait(orientation) && wide)) {
    std::swap(size.width, size.height);
  }
}

LinuxApplication::LinuxApplication(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Log> log,
                                   ApplicationOptions options)
    : mainQueue_(std::move(mainQueue)), log_(std::move(log)), options_(std::move(options)) {
  const auto program = programPath();
  bundleName_ = options_.bundleName;
  if (!bundleName_ && program) bundleName_ = program->filename().string();
  resourcePath_ = options_.bundleResourcePath;
  if (!resourcePath_ && program) resourcePath_ = program->parent_path().string();
  statusBarHidden_ = options_.statusBarHidden;
}

bool LinuxApplication::isStatusBarHidden() const {
  std::lock_guard lock(mutex_);
  return statusBarHidden_;
}

void LinuxApplication::setStatusBarHidden(bool hidden) {
  std::lock_guard lock(mutex_);
  statusBarHidden_ = hidden;
}

bool LinuxApplication::canOpenURL(const std::string& url) const {
  if (options_.canOpenURL) return options_.canOpenURL(url);
  const std::string scheme = schemeOf(url);
  return scheme == "http" || scheme == "https";
}

void LinuxApplication::openURL(const std::string& url) {
  {
    std::lock_guard lock(mutex_);
    opened_.push_back(url);
  }
  if (options_.openURL) {
    options_.openURL(url);
  } else if (log_) {
    log_->write("open URL: " + url);
  }
}

void LinuxApplication::setEventHandler(std::function<void(AppEvent)> handler) {
  std::lock_guard lock(handler_->mutex);
  handler_->handler = std::move(handler);
}

void LinuxApplication::sendEvent(AppEvent event) {
  // The handler is read when the event is delivered, so one registered in between gets it.
  mainQueue_->post([slot = handler_, event] {
    std::function<void(AppEvent)> handler;
    {
      std::lock_guard lock(slot->mutex);
      handler = slot->handler;
    }
    if (handler) handler(event);
  });
}

std::vector<std::string> LinuxApplication::openedURLs() const {
  std::lock_guard lock(mutex_);
  return opened_;
}

}  // namespace tovani::linux
