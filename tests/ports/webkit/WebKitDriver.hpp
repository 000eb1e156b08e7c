#pragma once
#include <gtk/gtk.h>
#include <webkit2/webkit2.h>

#include <string>
#include <vector>

#include "ports/WebViewRigs.hpp"
#include "tovani/gtk/WebKitWebView.hpp"

namespace tovani::ports {

// A WebKit end card in a shown window, reaching the ad server through its proxy setting.
struct WebKitRig : AdServerRig {
  WebKitRig();
  ~WebKitRig() override;
  std::shared_ptr<WebView> makeView() override;
  void tapLink(WebView& view, const std::string& url) override;
  int pagesLoaded(WebView& view) override;

  // Runs `js` in the page of `view` and returns its value as text.
  std::string script(gtk::WebKitView& view, const std::string& js);
  // A person's click: pointer press and release at the centre of the page's element `id`.
  void clickOn(gtk::WebKitView& view, const std::string& id);

  std::shared_ptr<Log> log;
  std::unique_ptr<gtk::WebKitWebViewFactory> factory;
  GtkWidget* window = nullptr;
  std::vector<std::shared_ptr<WebView>> views;
};

// The children of this process that are WebKit's web-content processes.
std::vector<int> webProcesses();

}  // namespace tovani::ports
