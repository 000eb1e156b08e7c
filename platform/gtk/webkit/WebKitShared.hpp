#pragma once
#include <webkit2/webkit2.h>

#include <memory>

#include "tovani/gtk/WebKitWebView.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::gtk {

// The engine context and settings every view of one factory uses, with the SDK's ports.
struct WebKitWebViewFactory::Shared {
  Shared(std::shared_ptr<linux::CurlHttp> http, std::shared_ptr<MainQueue> mainQueue,
         std::shared_ptr<Log> log, WebKitViewOptions options);
  ~Shared();
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  void log(const std::string& line) const {
    if (logSink) logSink->write(line);
  }

  std::shared_ptr<linux::CurlHttp> http;
  std::shared_ptr<MainQueue> mainQueue;
  std::shared_ptr<Log> logSink;
  WebKitViewOptions options;
  WebKitWebContext* context = nullptr;  // owned
  WebKitSettings* settings = nullptr;   // owned
};

// Makes one view of the factory; the view keeps `shared` alive.
std::shared_ptr<WebKitView> makeWebKitView(std::shared_ptr<WebKitWebViewFactory::Shared> shared);

}  // namespace tovani::gtk

#pragma pop_macro("linux")
