#pragma once
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tovani/platform/Application.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/Screen.hpp"
#include "tovani/platform/WebView.hpp"

namespace tovani::test {

// Records page loads; a test follows links on the page through navigate(). Each load is
// put to the decider later, on the main queue, never inside
// loadRequest, and an allowed load reports its outcome as `pageOutcome` says.
class RecordingWebView : public WebView, public std::enable_shared_from_this<RecordingWebView> {
 public:
  enum class PageOutcome { Loaded, Failed, Stalled };
  explicit RecordingWebView(std::shared_ptr<MainQueue> queue = nullptr)
      : queue_(std::move(queue)) {}
  void loadRequest(const WebRequest& request) override;
  void setLoadResultHandler(std::function<void(bool)> handler) override {
    loadResult_ = std::move(handler);
  }
  void setNavigationDecider(std::function<bool(const WebRequest&)> decider) override {
    decider_ = std::move(decider);
  }
  void setScrollBounces(bool b) override { bounces = b; }

  // A link tapped on the page: asks the decider as a browser would; an allowed link loads
  // in place. Returns the decision.
  bool navigate(const std::string& url);
  // A navigation nobody tapped: a redirect of the page, or its script. Returns the decision.
  bool navigateOnItsOwn(const std::string& url);
  // A load ending now, as a navigation inside the page would.
  void reportLoad(bool loaded) {
    if (loadResult_) loadResult_(loaded);
  }

  std::vector<WebRequest> loads;           // loadRequest calls
  std::vector<std::string> loadedInPlace;  // links the decider allowed
  int pagesLoaded = 0;                     // loads and links the decider allowed
  bool bounces = true;
  PageOutcome pageOutcome = PageOutcome::Loaded;

 private:
  bool ask(const WebRequest& request);
  std::shared_ptr<MainQueue> queue_;
  std::function<bool(const WebRequest&)> decider_;
  std::function<void(bool)> loadResult_;
};

class RecordingWebViewFactory : public WebViewFactory {
 public:
  explicit RecordingWebViewFactory(std::shared_ptr<MainQueue> queue = nullptr)
      : queue_(std::move(queue)) {}
  std::shared_ptr<WebView> createWebView() override {
    created.push_back(std::make_shared<RecordingWebView>(queue_));
    return created.back();
  }
  std::vector<std::shared_ptr<RecordingWebView>> created;

 private:
  std::shared_ptr<MainQueue> queue_;
};

class FakeScreen : public Screen {
 public:
  Size boundsSize() const override { return size; }
  std::optional<double> scale() const override { return scaleFactor; }
  std::optional<InterfaceIdiom> interfaceIdiom() const override { return idiom; }
  DeviceOrientation deviceOrientation() const override { return orientation; }
  std::string deviceModelName() const override { return modelName; }

  Size size{375, 667};
  std::optional<double> scaleFactor = 2.0;
  std::optional<InterfaceIdiom> idiom = InterfaceIdiom::Phone;
  DeviceOrientation orientation = DeviceOrientation::Portrait;
  std::string modelName = "iPhone";
};

class FakeApplication : public Application {
 public:
  bool isStatusBarHidden() const override { return statusBarHidden; }
  void setStatusBarHidden(bool hidden) override {
    statusBarHidden = hidden;
    statusBarChanges.push_back(hidden);
  }
  bool canOpenURL(const std::string& url) const override;
  void openURL(const std::string& url) override { opened.push_back(url); }
  std::optional<std::string> bundleName() const override { return name; }
  std::optional<std::string> bundleResourcePath() const override { return resourcePath; }
  void setEventHandler(std::function<void(AppEvent)> handler) override {
    handler_ = std::move(handler);
  }

  // Delivers a lifecycle event as the platform would, on the calling (main) thread.
  void fire(AppEvent event) {
    if (handler_) handler_(event);
  }

  bool statusBarHidden = false;
  std::vector<bool> statusBarChanges;
  std::set<std::string> openableSchemes{"http", "https", "tel"};
  std::vector<std::string> opened;
  std::optional<std::string> name = std::string("DemoHost");
  std::optional<std::string> resourcePath;

 private:
  std::function<void(AppEvent)> handler_;
};

class FakeDevice : public Device {
 public:
  std::optional<std::string> hardwareModel() const override { return model; }
  std::optional<std::string> osVersion() const override { return os; }
  std::optional<Carrier> carrier() const override { return carrierInfo; }
  std::optional<std::string> advertisingIdentifier() const override { return idfa; }
  std::string documentsDirectory() const override { return documents; }
  std::optional<double> fileCreationTime(const std::string& path) const override;

  std::optional<std::string> model = std::string("iPhone9,3");
  std::optional<std::string> os = std::string("10.3");
  std::optional<Carrier> carrierInfo;
  std::optional<std::string> idfa;
  std::string documents;
  // Creation times by file name; other files report their write time.
  std::map<std::string, double> creationTimes;
};

class FakeReachability : public ReachabilitySource {
 public:
  std::optional<uint32_t> internetFlags() const override { return flags; }
  std::optional<uint32_t> flags = 0x2;
};

class CapturedLog : public Log {
 public:
  void write(const std::string& line) override { lines.push_back(line); }
  std::vector<std::string> lines;
};

}  // namespace tovani::test
