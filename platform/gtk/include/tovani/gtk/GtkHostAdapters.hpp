#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tovani/gtk/HostView.hpp"
#include "tovani/platform/Application.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/Screen.hpp"

namespace tovani::gtk {

struct ScreenOptions {
  // By default the machine's: a tablet chassis is a pad, anything else unspecified; the model
  // name is the machine's product name ("Linux" when it cannot be read).
  std::optional<InterfaceIdiom> idiom;
  std::optional<std::string> modelName;
};

// The screen as the host view sees it: its allocated size, landscape when wider than tall,
// the monitor's scale factor. Main thread only.
class GtkScreen final : public Screen {
 public:
  GtkScreen(std::shared_ptr<HostView> hostView, ScreenOptions options = {});
  Size boundsSize() const override;
  std::optional<double> scale() const override;
  std::optional<InterfaceIdiom> interfaceIdiom() const override { return idiom_; }
  DeviceOrientation deviceOrientation() const override;
  std::string deviceModelName() const override { return modelName_; }

 private:
  std::shared_ptr<HostView> hostView_;
  std::optional<InterfaceIdiom> idiom_;
  std::string modelName_;
};

struct GtkApplicationOptions {
  std::optional<std::string> bundleName;          // default: the program's file name
  std::optional<std::string> bundleResourcePath;  // default: the program's folder
  // Replaces the launch of the scheme's default handler (GIO) for openURL, e.g. to record
  // launches in tests; canOpenURL still asks GIO.
  std::function<void(const std::string&)> launcher;
};

// The application as the host's window lives it. The status bar is the window's decoration:
// hidden means full screen. The app resigns active when the window is minimised or hidden and
// enters the foreground when it is shown again; focus alone changes nothing, since a desktop
// user glancing at another window is still watching. A size change of the host view is an
// orientation change. Links open through GIO's default handler for their scheme.
class GtkApplication final : public Application {
 public:
  GtkApplication(GtkWindow* window, std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Log> log,
                 GtkApplicationOptions options = {});
  ~GtkApplication() override;
  GtkApplication(const GtkApplication&) = delete;
  GtkApplication& operator=(const GtkApplication&) = delete;

  bool isStatusBarHidden() const override { return fullscreen_; }
  void setStatusBarHidden(bool hidden) override;
  bool canOpenURL(const std::string& url) const override;
  void openURL(const std::string& url) override;
  std::optional<std::string> bundleName() const override { return bundleName_; }
  std::optional<std::string> bundleResourcePath() const override { return resourcePath_; }
  void setEventHandler(std::function<void(AppEvent)> handler) override;

  // Delivers `event` to the SDK later on the main queue.
  void sendEvent(AppEvent event);
  // Called by the window's signals.
  void windowAway(bool away);
  void windowFullscreen(bool fullscreen) { fullscreen_ = fullscreen; }

 private:
  GtkWindow* window_;  // weak
  std::shared_ptr<MainQueue> mainQueue_;
  std::shared_ptr<Log> log_;
  GtkApplicationOptions options_;
  std::optional<std::string> bundleName_;
  std::optional<std::string> resourcePath_;
  bool fullscreen_ = false;
  bool away_ = false;
  std::shared_ptr<std::function<void(AppEvent)>> handler_;
};

}  // namespace tovani::gtk
