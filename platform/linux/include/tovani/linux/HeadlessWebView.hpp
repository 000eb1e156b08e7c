#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tovani/Export.hpp"
#include "tovani/linux/CurlHttp.hpp"
#include "tovani/platform/MainQueue.hpp"
#include "tovani/platform/WebView.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

struct WebViewOptions {
  double idleTimeoutSeconds = 10.0;
  uint64_t maxPageBytes = 4ull << 20;
  int maxRedirects = 5;  // each hop is a navigation the decider is asked about
};

struct WebPage {
  std::string url;  // where the page came from, after redirects
  long status = 0;
  std::string body;
  // Every href of the page, made absolute against `url`, in document order. A host or demo
  // picks one and hands it to followLink, as a user's tap would.
  std::vector<std::string> links;
};

// A web view without a screen: it fetches pages, keeps the current one and its links, and asks
// the navigation decider before every navigation, redirects included, as a browser does. All
// calls on the main thread.
class TOVANI_EXPORT HeadlessWebView final : public WebView,
                                            public std::enable_shared_from_this<HeadlessWebView> {
 public:
  HeadlessWebView(std::shared_ptr<CurlHttp> http, std::shared_ptr<MainQueue> mainQueue,
                  WebViewOptions options = {});

  // The decider is asked later on the main queue, never inside this call; a POST is sent
  // form-encoded.
  void loadRequest(const WebRequest& request) override;
  void setNavigationDecider(std::function<bool(const WebRequest&)> decider) override;
  void setScrollBounces(bool bounces) override { bounces_ = bounces; }
  void setLoadResultHandler(std::function<void(bool loaded)> handler) override {
    loadResult_ = std::move(handler);
  }

  // A tap on a link: `url` (relative to the current page or absolute) is put to the decider
  // now as a navigation the user started, and loaded in place with GET when allowed.
  // Returns the decider's answer. A page's meta refresh is followed on its own, as a
  // browser does, and is no user's navigation.
  bool followLink(const std::string& url);

  const std::optional<WebPage>& page() const { return page_; }
  bool isLoading() const { return loading_; }
  int pagesLoaded() const { return pagesLoaded_; }
  const std::optional<HttpError>& lastError() const { return lastError_; }
  bool scrollBounces() const { return bounces_; }
  // Called on the main queue after each page has loaded (or failed: see lastError()).
  void setPageLoadedHandler(std::function<void()> handler) { loadedHandler_ = std::move(handler); }

 private:
  bool navigate(const WebRequest& request, int hop);
  void onAnswer(unsigned generation, const WebRequest& request, int hop, CurlResult result);
  void reportLoad(bool loaded);

  std::shared_ptr<CurlHttp> http_;
  std::shared_ptr<MainQueue> mainQueue_;
  WebViewOptions options_;
  std::function<bool(const WebRequest&)> decider_;
  std::function<void()> loadedHandler_;
  std::function<void(bool)> loadResult_;
  int refreshes_ = 0;  // meta refreshes followed since the last load or tap
  std::optional<WebPage> page_;
  std::optional<HttpError> lastError_;
  unsigned generation_ = 0;  // a newer navigation makes older answers stale
  bool loading_ = false;
  bool bounces_ = true;
  int pagesLoaded_ = 0;
};

class TOVANI_EXPORT HeadlessWebViewFactory final : public WebViewFactory {
 public:
  HeadlessWebViewFactory(std::shared_ptr<CurlHttp> http, std::shared_ptr<MainQueue> mainQueue,
                         WebViewOptions options = {});
  std::shared_ptr<WebView> createWebView() override;
  // The views made so far that are still alive, oldest first.
  std::vector<std::shared_ptr<HeadlessWebView>> webViews() const;

 private:
  std::shared_ptr<CurlHttp> http_;
  std::shared_ptr<MainQueue> mainQueue_;
  WebViewOptions options_;
  mutable std::vector<std::weak_ptr<HeadlessWebView>> created_;
};

}  // namespace tovani::linux

#pragma pop_macro("linux")
