#include "DesktopSession.hpp"

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>

namespace tovani::demo {

namespace fs = std::filesystem;

DesktopSession::DesktopSession(GtkWindow* window, adserver::Options serverOptions,
                               gtk::GtkPlatformOptions options) {
  server = std::make_unique<adserver::AdServer>(std::move(serverOptions));
  server->start();
  std::string pattern = (fs::temp_directory_path() / "tovani-desktop-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no documents folder");
  documents = pattern;

  const auto hosts = server->hosts();
  const std::string http = "127.0.0.1:" + std::to_string(server->httpPort());
  const std::string https = "127.0.0.1:" + std::to_string(server->httpsPort());
  for (const auto& host : {hosts.production, hosts.test, hosts.cdnHost}) {
    options.http.connectTo.push_back(host + ":80:" + http);
    options.http.connectTo.push_back(host + ":443:" + https);
  }
  options.http.caFile = server->caFile().string();
  // The end card's own requests (links, images, forms) reach the server as a proxy's would.
  options.webKit.httpProxy = "http://" + http;
  options.device.documentsDirectory = documents;
  // The server is on loopback: online whatever the machine's routes say.
  options.reachability.overrideFlags = 0x2;
  desktop = gtk::makeGtkPlatform(window, std::move(options));
}

DesktopSession::~DesktopSession() {
  server->stop();
  std::error_code ec;
  fs::remove_all(documents, ec);
}

bool displayAvailable() {
  const char* x11 = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (x11 != nullptr && *x11 != '\0') || (wayland != nullptr && *wayland != '\0');
}

bool saveWindowPng(GtkWidget* window, const std::string& path) {
  GdkWindow* gdkWindow = gtk_widget_get_window(window);
  if (gdkWindow == nullptr) return false;
  GdkPixbuf* shot = gdk_pixbuf_get_from_window(gdkWindow, 0, 0, gdk_window_get_width(gdkWindow),
                                               gdk_window_get_height(gdkWindow));
  if (shot == nullptr) return false;
  const bool saved = gdk_pixbuf_save(shot, path.c_str(), "png", nullptr, nullptr) != FALSE;
  g_object_unref(shot);
  return saved;
}

std::shared_ptr<View> findNode(const View& root, View::Kind kind, double zPosition) {
  for (const auto& child : root.subviews()) {
    if (child->kind == kind && (zPosition < 0 || child->zPosition == zPosition)) return child;
    if (auto found = findNode(*child, kind, zPosition)) return found;
  }
  return nullptr;
}

}  // namespace tovani::demo
