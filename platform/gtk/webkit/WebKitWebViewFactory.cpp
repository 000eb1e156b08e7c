#include "WebKitShared.hpp"

namespace tovani::gtk {

namespace {

// Nothing a page offers for download is saved: the SDK may write only into the app's
// documents folder, and an end card has no reason to hand the user a file.
void cancelDownload(WebKitWebContext*, WebKitDownload* download, gpointer) {
  webkit_download_cancel(download);
}

}  // namespace

WebKitWebViewFactory::Shared::Shared(std::shared_ptr<linux::CurlHttp> http_,
                                     std::shared_ptr<MainQueue> mainQueue_,
                                     std::shared_ptr<Log> log_, WebKitViewOptions options_)
    : http(std::move(http_)),
      mainQueue(std::move(mainQueue_)),
      logSink(std::move(log_)),
      options(std::move(options_)) {
  // Ephemeral: cookies, cache and storage live in memory only, never in the user's home.
  WebKitWebsiteDataManager* data = webkit_website_data_manager_new_ephemeral();
  if (!options.httpProxy.empty()) {
    WebKitNetworkProxySettings* proxy = webkit_network_proxy_settings_new(nullptr, nullptr);
    webkit_network_proxy_settings_add_proxy_for_scheme(proxy, "http", options.httpProxy.c_str());
    webkit_website_data_manager_set_network_proxy_settings(data, WEBKIT_NETWORK_PROXY_MODE_CUSTOM,
                                                           proxy);
    webkit_network_proxy_settings_free(proxy);
  }
  context = webkit_web_context_new_with_website_data_manager(data);
  g_object_unref(data);
  webkit_web_context_set_cache_model(context, WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
  g_signal_connect(context, "download-started", G_CALLBACK(cancelDownload), nullptr);

  // A browser tab's defaults, spelled out so that a change of the engine's defaults cannot
  // quietly give an ad page more than a tab gets.
  settings = webkit_settings_new();
  webkit_settings_set_allow_file_access_from_file_urls(settings, FALSE);
  webkit_settings_set_allow_universal_access_from_file_urls(settings, FALSE);
  webkit_settings_set_javascript_can_open_windows_automatically(settings, FALSE);
  webkit_settings_set_enable_developer_extras(settings, FALSE);
  webkit_settings_set_enable_write_console_messages_to_stdout(settings, FALSE);
  webkit_settings_set_enable_javascript(settings, TRUE);
}

WebKitWebViewFactory::Shared::~Shared() {
  g_signal_handlers_disconnect_by_func(context, reinterpret_cast<gpointer>(cancelDownload),
                                       nullptr);
  g_object_unref(settings);
  g_object_unref(context);
}

WebKitWebViewFactory::WebKitWebViewFactory(std::shared_ptr<linux::CurlHttp> http,
                                           std::shared_ptr<MainQueue> mainQueue,
                                           std::shared_ptr<Log> log, WebKitViewOptions options)
    : shared_(std::make_shared<Shared>(std::move(http), std::move(mainQueue), std::move(log),
                                       std::move(options))) {}

WebKitWebViewFactory::~WebKitWebViewFactory() = default;

std::shared_ptr<WebView> WebKitWebViewFactory::createWebView() {
  auto view = makeWebKitView(shared_);
  std::erase_if(created_, [](const auto& weak) { return weak.expired(); });
  created_.push_back(view);
  return view;
}

std::vector<std::shared_ptr<WebKitView>> WebKitWebViewFactory::webViews() const {
  std::vector<std::shared_ptr<WebKitView>> live;
  for (const auto& weak : created_) {
    if (auto view = weak.lock()) live.push_back(std::move(view));
  }
  return live;
}

}  // namespace tovani::gtk
