#include <gio/gio.h>
#include <gtk/gtk.h>
#include <unistd.h>

#include <filesystem>

#include "tovani/gtk/GtkHostAdapters.hpp"

namespace tovani::gtk {

namespace {

std::string programPath() {
  std::error_code error;
  auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::string() : path.string();
}

gboolean onWindowState(GtkWidget*, GdkEventWindowState* event, gpointer data) {
  auto* app = static_cast<GtkApplication*>(data);
  if (event->changed_mask & GDK_WINDOW_STATE_FULLSCREEN) {
    app->windowFullscreen((event->new_window_state & GDK_WINDOW_STATE_FULLSCREEN) != 0);
  }
  if (event->changed_mask & GDK_WINDOW_STATE_ICONIFIED) {
    app->windowAway((event->new_window_state & GDK_WINDOW_STATE_ICONIFIED) != 0);
  }
  return FALSE;
}

gboolean onMapped(GtkWidget*, GdkEvent* event, gpointer data) {
  static_cast<GtkApplication*>(data)->windowAway(event->type == GDK_UNMAP);
  return FALSE;
}

}  // namespace

GtkApplication::GtkApplication(GtkWindow* window, std::shared_ptr<MainQueue> mainQueue,
                               std::shared_ptr<Log> log, GtkApplicationOptions options)
    : window_(window),
      mainQueue_(std::move(mainQueue)),
      log_(std::move(log)),
      options_(std::move(options)),
      handler_(std::make_shared<std::function<void(AppEvent)>>()) {
  const std::string exe = programPath();
  bundleName_ = options_.bundleName ? options_.bundleName
                                    : std::optional(std::filesystem::path(exe).filename().string());
  resourcePath_ = options_.bundleResourcePath
                      ? options_.bundleResourcePath
                      : std::optional(std::filesystem::path(exe).parent_path().string());
  g_object_add_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
  gtk_widget_add_events(GTK_WIDGET(window_), GDK_STRUCTURE_MASK);
  g_signal_connect(window_, "window-state-event", G_CALLBACK(onWindowState), this);
  g_signal_connect(window_, "map-event", G_CALLBACK(onMapped), this);
  g_signal_connect(window_, "unmap-event", G_CALLBACK(onMapped), this);
}

GtkApplication::~GtkApplication() {
  if (window_ == nullptr) return;
  g_signal_handlers_disconnect_by_data(window_, this);
  g_object_remove_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
}

void GtkApplication::setStatusBarHidden(bool hidden) {
  // The window manager may take a while (or refuse); the asked-for state is what the SDK
  // restores later, so it is kept at once.
  fullscreen_ = hidden;
  if (window_ == nullptr) return;
  if (hidden) {
    gtk_window_fullscreen(window_);
  } else {
    gtk_window_unfullscreen(window_);
  }
}

bool GtkApplication::canOpenURL(const std::string& url) const {
  gchar* scheme = g_uri_parse_scheme(url.c_str());
  if (scheme == nullptr) return false;
  GAppInfo* handler = g_app_info_get_default_for_uri_scheme(scheme);
  g_free(scheme);
  if (handler == nullptr) return false;
  g_object_unref(handler);
  return true;
}

void GtkApplication::openURL(const std::string& url) {
  if (options_.launcher) return options_.launcher(url);
  GdkAppLaunchContext* context =
      window_ != nullptr
          ? gdk_display_get_app_launch_context(gtk_widget_get_display(GTK_WIDGET(window_)))
          : nullptr;
  GError* error = nullptr;
  if (!g_app_info_launch_default_for_uri(url.c_str(), G_APP_LAUNCH_CONTEXT(context), &error)) {
    if (log_) log_->write("cannot open " + url + ": " + (error ? error->message : "no handler"));
  }
  if (error != nullptr) g_error_free(error);
  if (context != nullptr) g_object_unref(context);
}

void GtkApplication::setEventHandler(std::function<void(AppEvent)> handler) {
  *handler_ = std::move(handler);
}

void GtkApplication::sendEvent(AppEvent event) {
  mainQueue_->post([slot = handler_, event] {
    auto handler = *slot;
    if (handler) handler(event);
  });
}

void GtkApplication::windowAway(bool away) {
  // Minimising also unmaps the window: one change, one event.
  if (away == away_) return;
  away_ = away;
  sendEvent(away ? AppEvent::WillResignActive : AppEvent::WillEnterForeground);
}

}  // namespace tovani::gtk
