#pragma once
#include <functional>
#include <memory>
#include <string>
#include "tovani/Export.hpp"

namespace tovani {

struct WebRequest {
  std::string url;
  std::string method = "GET";
  std::string body;
  // Set by the adapter when a person started this navigation (a tap or click on the shown
  // page); false for the initial load, redirects and navigations a script made on its own.
  bool userInitiated = false;
};

// A page view. Hidden state, frame and z position live on its View node; the port loads
// pages and asks before every navigation.
class TOVANI_EXPORT WebView {
 public:
  virtual ~WebView() = default;
  virtual void loadRequest(const WebRequest& request) = 0;
  // Asked on the main thread before every navigation (the initial load included);
  // returning false cancels it.
  virtual void setNavigationDecider(std::function<bool(const WebRequest&)> decider) = 0;
  virtual void setScrollBounces(bool bounces) = 0;
  // Told on the main queue when a page load ends: true when the page arrived whole with a
  // 2xx status; false for an error status, a reset, a time-out, a cut-off body or a
  // redirect that was cancelled. An answer overtaken by a newer load is not reported.
  // A view that never reports counts as one whose pages never load.
  virtual void setLoadResultHandler(std::function<void(bool loaded)> handler) { (void)handler; }
};

class TOVANI_EXPORT WebViewFactory {
 public:
  virtual ~WebViewFactory() = default;
  virtual std::shared_ptr<WebView> createWebView() = 0;
};

}  // namespace tovani
