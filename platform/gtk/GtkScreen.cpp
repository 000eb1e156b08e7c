#include <gtk/gtk.h>

#include <fstream>
#include <string>

#include "tovani/gtk/GtkHostAdapters.hpp"

namespace tovani::gtk {

namespace {

std::string readLine(const char* path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  while (!line.empty() && (line.back() == ' ' || line.back() == '\n')) line.pop_back();
  return line;
}

// SMBIOS chassis types 30 (tablet), 31 (convertible) and 32 (detachable) are held like a
// tablet; every other machine is neither a phone nor a pad.
InterfaceIdiom machineIdiom() {
  const std::string chassis = readLine("/sys/class/dmi/id/chassis_type");
  if (chassis == "30" || chassis == "31" || chassis == "32") return InterfaceIdiom::Pad;
  return InterfaceIdiom::Unspecified;
}

std::string machineModelName() {
  const std::string product = readLine("/sys/class/dmi/id/product_name");
  return product.empty() ? "Linux" : product;
}

}  // namespace

GtkScreen::GtkScreen(std::shared_ptr<HostView> hostView, ScreenOptions options)
    : hostView_(std::move(hostView)),
      idiom_(options.idiom ? *options.idiom : machineIdiom()),
      modelName_(options.modelName ? *options.modelName : machineModelName()) {}

Size GtkScreen::boundsSize() const {
  return hostView_->size();
}

std::optional<double> GtkScreen::scale() const {
  GtkWidget* widget = GTK_WIDGET(hostView_->overlay());
  if (GdkWindow* window = gtk_widget_get_window(widget)) {
    GdkMonitor* monitor = gdk_display_get_monitor_at_window(gdk_window_get_display(window), window);
    if (monitor != nullptr) return gdk_monitor_get_scale_factor(monitor);
  }
  return gtk_widget_get_scale_factor(widget);
}

DeviceOrientation GtkScreen::deviceOrientation() const {
  const Size size = hostView_->size();
  return size.width > size.height ? DeviceOrientation::LandscapeLeft : DeviceOrientation::Portrait;
}

}  // namespace tovani::gtk
