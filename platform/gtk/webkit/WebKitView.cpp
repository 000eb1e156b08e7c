#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

#include "WebKitShared.hpp"

namespace tovani::gtk {

namespace {

// Two spellings of one address (a host in capitals, an empty path) compare equal.
std::string normalised(const std::string& url) {
  GUri* uri = g_uri_parse(
      url.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_ENCODED | G_URI_FLAGS_SCHEME_NORMALIZE),
      nullptr);
  if (uri == nullptr) return url;
  char* text = g_uri_to_string(uri);
  std::string out = text;
  g_free(text);
  g_uri_unref(uri);
  return out;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// "text/html; charset=utf-8" → {"text/html", "utf-8"}; HTML when the server names nothing.
std::pair<std::string, std::string> contentType(const std::map<std::string, std::string>& headers) {
  std::string value;
  for (const auto& [name, text] : headers) {
    if (lower(name) == "content-type") value = text;
  }
  const auto semicolon = value.find(';');
  std::string mime = trimmed(value.substr(0, semicolon));
  std::string charset;
  if (semicolon != std::string::npos) {
    const std::string rest = value.substr(semicolon + 1);
    const auto at = lower(rest).find("charset=");
    if (at != std::string::npos) {
      charset = trimmed(rest.substr(at + 8));
      charset = charset.substr(0, charset.find(';'));
      std::erase(charset, '"');
    }
  }
  return {mime.empty() ? "text/html" : mime, charset};
}

class PageView final : public WebKitView, public std::enable_shared_from_this<PageView> {
 public:
  explicit PageView(std::shared_ptr<WebKitWebViewFactory::Shared> shared)
      : shared_(std::move(shared)) {
    view_ = WEBKIT_WEB_VIEW(
        g_object_ref_sink(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", shared_->context,
                                       "settings", shared_->settings, nullptr)));
    g_signal_connect(view_, "decide-policy", G_CALLBACK(onDecidePolicy), this);
    g_signal_connect(view_, "load-changed", G_CALLBACK(onLoadChanged), this);
    g_signal_connect(view_, "load-failed", G_CALLBACK(onLoadFailed), this);
    g_signal_connect(view_, "web-process-terminated", G_CALLBACK(onWebProcessTerminated), this);
  }

  ~PageView() override {
    g_signal_handlers_disconnect_by_data(view_, this);
    webkit_web_view_stop_loading(view_);
    // Takes the widget off screen even when a renderer still holds it in a container.
    gtk_widget_destroy(GTK_WIDGET(view_));
    g_object_unref(view_);
  }

  // Asked later on the main queue, as a browser does: the caller may be in the middle of
  // changing its own state.
  void loadRequest(const WebRequest& request) override {
    shared_->mainQueue->post([weak = weak_from_this(), request] {
      if (auto self = weak.lock()) self->start(request, 0);
    });
  }

  void setNavigationDecider(std::function<bool(const WebRequest&)> decider) override {
    decider_ = std::move(decider);
  }

  // The engine draws no overscroll bounce on the desktop, so there is nothing to turn off.
  void setScrollBounces(bool) override {}

  void setLoadResultHandler(std::function<void(bool loaded)> handler) override {
    loadResult_ = std::move(handler);
  }

  GtkWidget* widget() override { return GTK_WIDGET(view_); }
  WebKitWebView* engineView() override { return view_; }
  std::string currentUrl() const override {
    const char* uri = webkit_web_view_get_uri(view_);
    return uri != nullptr ? uri : "";
  }
  int pagesLoaded() const override { return pagesLoaded_; }
  void setPageLoadedHandler(std::function<void()> handler) override {
    loadedHandler_ = std::move(handler);
  }

 private:
  bool ask(const WebRequest& request) {
    auto decider = decider_;  // the decider may replace itself
    if (!decider) return true;
    try {
      return decider(request);
    } catch (...) {
      shared_->log("end card: the navigation decider failed; " + request.url + " not loaded");
      return false;
    }
  }

  // A load the SDK asked for: the decider first, then the engine (GET) or a fetch of our own
  // (POST), since the engine has no public way to post a body byte for byte.
  void start(const WebRequest& request, int hop) {
    if (hop == 0) resultPending_ = true;
    if (!ask(request)) {
      finish(false);
      return;
    }
    if (hop == 0) lastRequest_ = request;
    const unsigned generation = ++generation_;
    const std::string method = request.method.empty() ? "GET" : request.method;
    if (method == "GET" && request.body.empty()) {
      approved_ = normalised(request.url);
      webkit_web_view_load_uri(view_, request.url.c_str());
      return;
    }
    linux::CurlRequest curl;
    curl.url = request.url;
    curl.method = method;
    curl.body = request.body;
    curl.idleTimeoutSeconds = shared_->options.idleTimeoutSeconds;
    curl.followRedirects = false;  // each hop goes to the decider first
    curl.maxBytes = shared_->options.maxPageBytes;
    shared_->http->send(std::move(curl), [weak = weak_from_this(), generation, request,
                                          hop](linux::CurlResult result) {
      if (auto self = weak.lock()) self->onAnswer(generation, request, hop, std::move(result));
    });
  }

  void onAnswer(unsigned generation, const WebRequest& request, int hop, linux::CurlResult result) {
    if (generation != generation_) return;  // a newer navigation replaced this one
    const long status = result.response.status;
    if (!result.error && status >= 300 && status < 400 && !result.redirectUrl.empty()) {
      if (hop >= shared_->options.maxRedirects) {
        shared_->log("end card: too many redirects from " + request.url);
        finish(false);
        return;
      }
      // 307 and 308 repeat the request as it was; the others turn it into a GET.
      const bool keep = status == 307 || status == 308;
      start(WebRequest{result.redirectUrl, keep ? request.method : "GET",
                       keep ? request.body : std::string(), false},
            hop + 1);
      return;
    }
    if (result.error) {
      // The view stays as it was, as a browser's would after a failed form post.
      shared_->log("end card: " + request.url + " not loaded: " + result.error->message);
      finish(false);
      return;
    }
    if (status < 200 || status > 299) {
      // An error page is no end card: the SDK is told, and it decides what to show.
      shared_->log("end card: " + request.url + " answered " + std::to_string(status));
      finish(false);
      return;
    }
    // The page is shown under its own address, so that its relative links, images and forms
    // resolve against the ad host and the engine sends them there.
    const std::string base = result.effectiveUrl.empty() ? request.url : result.effectiveUrl;
    const auto [mime, charset] = contentType(result.response.headers);
    GBytes* bytes = g_bytes_new(result.body.data(), result.body.size());
    approved_ = normalised(base);
    webkit_web_view_load_bytes(view_, bytes, mime.c_str(),
                               charset.empty() ? nullptr : charset.c_str(), base.c_str());
    g_bytes_unref(bytes);
  }

  bool decideNavigation(WebKitNavigationPolicyDecision* decision, bool newWindow) {
    WebKitNavigationAction* action =
        webkit_navigation_policy_decision_get_navigation_action(decision);
    WebKitURIRequest* engineRequest = webkit_navigation_action_get_request(action);
    WebRequest request;
    request.url = webkit_uri_request_get_uri(engineRequest);
    const char* method = webkit_uri_request_get_http_method(engineRequest);
    request.method = method != nullptr ? method : "GET";
    request.userInitiated = webkit_navigation_action_is_user_gesture(action) != FALSE;
    // The load that start() already put to the decider is not asked about twice.
    if (!newWindow && !approved_.empty() && !request.userInitiated &&
        normalised(request.url) == approved_) {
      approved_.clear();
      return true;
    }
    if (!ask(request)) return false;
    ++generation_;  // a page's own navigation replaces a fetch still on its way
    approved_.clear();
    if (newWindow) {
      // An end card has no second window: an allowed pop-up opens in place instead, once the
      // engine is done with this decision.
      // Held so that a task the queue drops without running still lets go of it.
      std::shared_ptr<WebKitURIRequest> held(WEBKIT_URI_REQUEST(g_object_ref(engineRequest)),
                                             [](WebKitURIRequest* r) { g_object_unref(r); });
      shared_->mainQueue->post([weak = weak_from_this(), held, url = request.url] {
        if (auto self = weak.lock()) {
          self->approved_ = normalised(url);
          webkit_web_view_load_request(self->view_, held.get());
        }
      });
      return false;
    }
    return true;
  }

  static gboolean onDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                                 WebKitPolicyDecisionType type, gpointer data) {
    auto self = static_cast<PageView*>(data)->shared_from_this();  // the decider may drop us
    bool use = true;
    switch (type) {
      case WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION:
      case WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION:
        use = self->decideNavigation(WEBKIT_NAVIGATION_POLICY_DECISION(decision),
                                     type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION);
        break;
      case WEBKIT_POLICY_DECISION_TYPE_RESPONSE:
        // What the engine cannot show it would offer as a download; an end card shows or
        // ignores.
        use = webkit_response_policy_decision_is_mime_type_supported(
                  WEBKIT_RESPONSE_POLICY_DECISION(decision)) != FALSE;
        break;
      default:
        return FALSE;
    }
    if (use) {
      webkit_policy_decision_use(decision);
    } else {
      webkit_policy_decision_ignore(decision);
    }
    return TRUE;
  }

  static void onLoadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer data) {
    if (event != WEBKIT_LOAD_FINISHED) return;
    auto self = static_cast<PageView*>(data)->shared_from_this();
    ++self->pagesLoaded_;
    self->finish(true);
    auto handler = self->loadedHandler_;
    if (handler) handler();
  }

  static gboolean onLoadFailed(WebKitWebView*, WebKitLoadEvent, gchar* uri, GError* error,
                               gpointer data) {
    auto* self = static_cast<PageView*>(data);
    // A navigation the decider refused ends as a cancelled load: not a failure worth a line.
    if (!g_error_matches(error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED) &&
        !g_error_matches(error, WEBKIT_POLICY_ERROR,
                         WEBKIT_POLICY_ERROR_FRAME_LOAD_INTERRUPTED_BY_POLICY_CHANGE)) {
      self->shared_->log(std::string("end card: ") + (uri != nullptr ? uri : "") +
                         " not loaded: " + error->message);
    }
    self->finish(false);
    return FALSE;
  }

  static void onWebProcessTerminated(WebKitWebView*, WebKitWebProcessTerminationReason reason,
                                     gpointer data) {
    auto* self = static_cast<PageView*>(data);
    self->shared_->log(std::string("end card: the page's web process ended (") +
                       (reason == WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT ? "memory limit"
                        : reason == WEBKIT_WEB_PROCESS_TERMINATED_BY_API   ? "stopped"
                                                                           : "crashed") +
                       ")");
    self->shared_->mainQueue->post([weak = self->weak_from_this()] {
      if (auto view = weak.lock()) view->afterCrash();
    });
  }

  // Reports the outcome of the load the SDK asked for, once; the engine's later navigations
  // inside the page are not the SDK's loads.
  void finish(bool loaded) {
    if (!resultPending_) return;
    resultPending_ = false;
    auto handler = loadResult_;
    if (!handler) return;
    shared_->mainQueue->post([handler, loaded] { handler(loaded); });
  }

  void afterCrash() {
    ++generation_;
    approved_.clear();
    if (gtk_widget_is_drawable(widget())) {
      // On screen, the page can no longer be used or closed by its own links: it ends the
      // card as its close link would, with whatever result the showing had reached.
      ask(WebRequest{"tovaniksdkcall://close", "GET", {}, false});
      return;
    }
    // Not shown yet (cards load ahead of time): load it once more, so that it is ready when
    // shown; a page that brings its process down every time is not tried again.
    if (lastRequest_ && crashReloads_++ == 0) start(*lastRequest_, 0);
  }

  std::shared_ptr<WebKitWebViewFactory::Shared> shared_;
  WebKitWebView* view_ = nullptr;  // a reference of our own
  std::function<bool(const WebRequest&)> decider_;
  std::function<void()> loadedHandler_;
  std::function<void(bool)> loadResult_;
  bool resultPending_ = false;
  std::optional<WebRequest> lastRequest_;
  std::string approved_;     // the one navigation already put to the decider, normalised
  unsigned generation_ = 0;  // a newer navigation makes older answers stale
  int pagesLoaded_ = 0;
  int crashReloads_ = 0;
};

}  // namespace

std::shared_ptr<WebKitView> makeWebKitView(std::shared_ptr<WebKitWebViewFactory::Shared> shared) {
  return std::make_shared<PageView>(std::move(shared));
}

}  // namespace tovani::gtk
