#pragma once
#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "tovani/adserver/AdServer.hpp"
#include "tovani/gtk/GtkPlatform.hpp"

namespace tovani::demo {

// The development ad server on loopback and the GTK platform pointed at it, with a fresh
// documents folder (a cold start): what the windowed demo and the desktop tests share.
struct DesktopSession {
  std::unique_ptr<adserver::AdServer> server;
  std::string documents;  // removed with the session
  gtk::GtkPlatform desktop;

  // `options` comes back filled with the loopback mappings, the server's CA file and the
  // documents folder; the rest is left as given.
  DesktopSession(GtkWindow* window, adserver::Options serverOptions,
                 gtk::GtkPlatformOptions options);
  ~DesktopSession();
  DesktopSession(const DesktopSession&) = delete;
  DesktopSession& operator=(const DesktopSession&) = delete;
};

// True when an X11 or Wayland display is set.
bool displayAvailable();
// Writes what the window shows now as a PNG; false when it cannot.
bool saveWindowPng(GtkWidget* window, const std::string& path);
// The first node of `kind` (and z position, when given) in the tree below `root`.
std::shared_ptr<View> findNode(const View& root, View::Kind kind, double zPosition = -1);

}  // namespace tovani::demo
