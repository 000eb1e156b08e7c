#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tovani/Export.hpp"
#include "tovani/gtk/WidgetBacked.hpp"
#include "tovani/linux/CurlHttp.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/WebView.hpp"

typedef struct _WebKitWebView WebKitWebView;

#pragma push_macro("linux")
#undef linux

namespace tovani::gtk {

struct WebKitViewOptions {
  // The first page of a card is fetched by the SDK itself (see WebKitView::loadRequest).
  double idleTimeoutSeconds = 10.0;
  uint64_t maxPageBytes = 4ull << 20;
  int maxRedirects = 5;  // each hop is a navigation the decider is asked about
  // Every request the engine itself makes (links, images, forms) goes through this HTTP
  // proxy when set, e.g. "http://127.0.0.1:18080": how a test or the demo reaches a loopback
  // ad server under the compiled-in host names. Empty: the system's proxy settings.
  std::string httpProxy;
};

// An end-card page shown by WebKitGTK in a widget of its own. Every navigation, the first
// load included, is put to the navigation decider before it happens; a person's click on the
// page is marked `userInitiated`. All calls on the main thread (the GTK main loop).
class TOVANI_EXPORT WebKitView : public WebView, public WidgetBacked {
 public:
  // The engine's view, for a host that wants to inspect or script the page.
  virtual WebKitWebView* engineView() = 0;
  // The address of the page shown (or being loaded); empty before the first load.
  virtual std::string currentUrl() const = 0;
  // Pages that finished loading so far.
  virtual int pagesLoaded() const = 0;
  // Called on the main thread each time a page has finished loading.
  virtual void setPageLoadedHandler(std::function<void()> handler) = 0;
};

// Makes WebKit views that share one private, ephemeral engine context: nothing the pages do
// (cookies, cache, local storage) is written to disk, and the views run with a browser tab's
// defaults (no file:// access, no plugins, no pop-up windows).
class TOVANI_EXPORT WebKitWebViewFactory final : public WebViewFactory {
 public:
  // `http` fetches the first page of each card; `log` receives the engine's failures.
  WebKitWebViewFactory(std::shared_ptr<linux::CurlHttp> http, std::shared_ptr<MainQueue> mainQueue,
                       std::shared_ptr<Log> log, WebKitViewOptions options = {});
  ~WebKitWebViewFactory() override;
  WebKitWebViewFactory(const WebKitWebViewFactory&) = delete;
  WebKitWebViewFactory& operator=(const WebKitWebViewFactory&) = delete;

  std::shared_ptr<WebView> createWebView() override;
  // The views made so far that are still alive, oldest first.
  std::vector<std::shared_ptr<WebKitView>> webViews() const;

  struct Shared;  // what the views share with the factory

 private:
  std::shared_ptr<Shared> shared_;
  mutable std::vector<std::weak_ptr<WebKitView>> created_;
};

}  // namespace tovani::gtk

#pragma pop_macro("linux")
