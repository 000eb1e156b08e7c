#include "tovani/linux/HeadlessWebView.hpp"

#include <vector>

#include "HtmlLinks.hpp"

namespace tovani::linux {

HeadlessWebView::HeadlessWebView(std::shared_ptr<CurlHttp> http,
                                 std::shared_ptr<MainQueue> mainQueue, WebViewOptions options)
    : http_(std::move(http)), mainQueue_(std::move(mainQueue)), options_(options) {}

void HeadlessWebView::loadRequest(const WebRequest& request) {
  // Asked later, as a browser does: the caller may be in the middle of changing its own state.
  mainQueue_->post([weak = weak_from_this(), request] {
    if (auto self = weak.lock()) self->navigate(request, 0);
  });
}

void HeadlessWebView::setNavigationDecider(std::function<bool(const WebRequest&)> decider) {
  decider_ = std::move(decider);
}

bool HeadlessWebView::followLink(const std::string& url) {
  const std::string base = page_ ? page_->url : std::string();
  const auto absolute = detail::resolveUrl(base, url);
  return navigate(WebRequest{absolute.value_or(url), "GET", {}, true}, 0);
}

bool HeadlessWebView::navigate(const WebRequest& request, int hop) {
  // Keeps this view alive through the decider, which may drop the owner's last reference.
  auto self = weak_from_this().lock();
  auto decider = decider_;
  if (decider && !decider(request)) return false;
  const unsigned generation = ++generation_;
  loading_ = true;
  CurlRequest curl;
  curl.url = request.url;
  curl.method = request.method.empty() ? "GET" : request.method;
  curl.body = request.body;
  curl.idleTimeoutSeconds = options_.idleTimeoutSeconds;
  curl.followRedirects = false;  // each hop goes to the decider first
  curl.maxBytes = options_.maxPageBytes;
  http_->send(std::move(curl), [weak = weak_from_this(), generation, request, hop](CurlResult r) {
    if (auto view = weak.lock()) view->onAnswer(generation, request, hop, std::move(r));
  });
  return true;
}

void HeadlessWebView::onAnswer(unsigned generation, const WebRequest& request, int hop,
                               CurlResult result) {
  if (generation != generation_) return;
  const long status = result.response.status;
  if (!result.error && status >= 300 && status < 400 && !result.redirectUrl.empty()) {
    if (hop < options_.maxRedirects) {
      // 307 and 308 repeat the request as it was; the others turn it into a GET.
      const bool keep = status == 307 || status == 308;
      WebRequest next{result.redirectUrl, keep ? request.method : "GET",
                      keep ? request.body : std::string()};
      if (navigate(next, hop + 1)) return;
      loading_ = false;
      return;
    }
    result.error = HttpError{kHttpErrorTooManyRedirects, "too many redirects"};
  }
  loading_ = false;
  lastError_ = result.error;
  if (!result.error) {
    WebPage page;
    page.url = result.effectiveUrl.empty() ? request.url : result.effectiveUrl;
    page.status = status;
    page.links = detail::extractLinks(result.body, page.url);
    page.body = std::move(result.body);
    page_ = std::move(page);
    ++pagesLoaded_;
  }
  auto handler = loadedHandler_;
  if (handler) handler();
}

HeadlessWebViewFactory::HeadlessWebViewFactory(std::shared_ptr<CurlHttp> http,
                                               std::shared_ptr<MainQueue> mainQueue,
                                               WebViewOptions options)
    : http_(std::move(http)), mainQueue_(std::move(mainQueue)), options_(options) {}

std::shared_ptr<WebView> HeadlessWebViewFactory::createWebView() {
  auto view = std::make_shared<HeadlessWebView>(http_, mainQueue_, options_);
  std::erase_if(created_, [](const auto& weak) { return weak.expired(); });
  created_.push_back(view);
  return view;
}

std::vector<std::shared_ptr<HeadlessWebView>> HeadlessWebViewFactory::webViews() const {
  std::vector<std::shared_ptr<HeadlessWebView>> live;
  for (const auto& weak : created_) {
    if (auto view = weak.lock()) live.push_back(std::move(view));
  }
  return live;
}

}  // namespace tovani::linux
