#include "tovani/gtk/HostView.hpp"

#include <gtk/gtk.h>

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "NodeWidget.hpp"

namespace tovani::gtk {

namespace {

// A node as placed on screen by the last reconcile, in drawing order (bottom first).
struct Placed {
  std::weak_ptr<View> node;
  GdkRectangle rect{};
  bool visible = false;
  bool takesTouches = false;  // the node and every ancestor below the root take touches
  bool isWebView = false;
};

GdkRectangle toPixels(double x, double y, double w, double h) {
  const int left = static_cast<int>(std::lround(x));
  const int top = static_cast<int>(std::lround(y));
  return {left, top, static_cast<int>(std::lround(x + w)) - left,
          static_cast<int>(std::lround(y + h)) - top};
}

// Siblings draw in zPosition order; equal positions keep the order of the subviews.
void flatten(const View& parent, double originX, double originY, bool visible, bool touches,
             std::vector<std::pair<std::shared_ptr<View>, Placed>>& out) {
  std::vector<std::shared_ptr<View>> children = parent.subviews();
  std::stable_sort(children.begin(), children.end(),
                   [](const auto& a, const auto& b) { return a->zPosition < b->zPosition; });
  for (const auto& child : children) {
    const double x = originX + child->frame.x;
    const double y = originY + child->frame.y;
    Placed placed;
    placed.node = child;
    placed.rect = toPixels(x, y, child->frame.width, child->frame.height);
    placed.visible = visible && !child->hidden;
    placed.takesTouches = touches && child->userInteractionEnabled;
    placed.isWebView = child->kind == View::Kind::WebView;
    out.emplace_back(child, placed);
    flatten(*child, x, y, placed.visible, placed.takesTouches, out);
  }
}

}  // namespace

struct HostView::Impl {
  HostView* owner = nullptr;
  GtkOverlay* overlay = nullptr;  // weak: the host's widget may go first
  std::unordered_map<const View*, std::unique_ptr<NodeWidget>> widgets;
  std::unordered_map<GtkWidget*, NodeWidget*> byWidget;
  std::vector<GtkWidget*> order;
  std::vector<Placed> placed;
  guint tick = 0;
  Size size;
  std::function<void(Size)> sizeChanged;
  std::weak_ptr<View> pressed;
  GtkGesture* press = nullptr;

  static gboolean onTick(GtkWidget*, GdkFrameClock*, gpointer data) {
    static_cast<Impl*>(data)->owner->reconcile();
    return G_SOURCE_CONTINUE;
  }

  static gboolean onChildPosition(GtkOverlay*, GtkWidget* widget, GdkRectangle* allocation,
                                  gpointer data) {
    auto* impl = static_cast<Impl*>(data);
    auto it = impl->byWidget.find(widget);
    if (it == impl->byWidget.end()) return FALSE;  // the host's own overlay children
    *allocation = it->second->rect;
    return TRUE;
  }

  static void onSizeAllocate(GtkWidget*, GdkRectangle* allocation, gpointer data) {
    auto* impl = static_cast<Impl*>(data);
    const Size now{static_cast<double>(allocation->width), static_cast<double>(allocation->height)};
    if (now == impl->size) return;
    impl->size = now;
    impl->owner->root_->frame = {0, 0, now.width, now.height};
    if (impl->sizeChanged) impl->sizeChanged(now);
  }

  // Press and release on the same node that takes touches make a tap. The gesture sees the
  // press before any widget does; web views keep their presses for the page, and places
  // without a node leave them to the host's own widgets.
  static void onPressed(GtkGestureMultiPress* gesture, gint, gdouble x, gdouble y, gpointer data) {
    auto* impl = static_cast<Impl*>(data);
    const Placed* hit = impl->hitTest(x, y);
    if (hit == nullptr || hit->isWebView) {
      gtk_gesture_set_state(GTK_GESTURE(gesture), GTK_EVENT_SEQUENCE_DENIED);
      return;
    }
    impl->pressed = hit->node;
    gtk_gesture_set_state(GTK_GESTURE(gesture), GTK_EVENT_SEQUENCE_CLAIMED);
  }

  static void onReleased(GtkGestureMultiPress*, gint, gdouble x, gdouble y, gpointer data) {
    auto* impl = static_cast<Impl*>(data);
    auto pressed = impl->pressed.lock();
    impl->pressed.reset();
    const Placed* hit = impl->hitTest(x, y);
    if (hit == nullptr || !pressed || hit->node.lock() != pressed) return;
    tapChain(pressed);
  }

  const Placed* hitTest(double x, double y) const {
    for (auto it = placed.rbegin(); it != placed.rend(); ++it) {
      if (!it->visible || !it->takesTouches) continue;
      const GdkRectangle& r = it->rect;
      if (x >= r.x && y >= r.y && x < r.x + r.width && y < r.y + r.height) return &*it;
    }
    return nullptr;
  }

  // The node's recognisers, or its nearest ancestor's that has some.
  static bool tapChain(std::shared_ptr<View> node) {
    for (; node; node = node->superview()) {
      if (!node->gestureRecognizers().empty()) return node->tap();
    }
    return false;
  }
};

HostView::HostView(GtkOverlay* overlay)
    : overlay_(overlay), root_(std::make_shared<View>()), impl_(std::make_unique<Impl>()) {
  impl_->owner = this;
  impl_->overlay = overlay;
  g_object_add_weak_pointer(G_OBJECT(overlay), reinterpret_cast<gpointer*>(&impl_->overlay));
  GtkWidget* widget = GTK_WIDGET(overlay);
  g_signal_connect(overlay, "get-child-position", G_CALLBACK(Impl::onChildPosition), impl_.get());
  g_signal_connect(widget, "size-allocate", G_CALLBACK(Impl::onSizeAllocate), impl_.get());
  gtk_widget_add_events(widget, GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK | GDK_TOUCH_MASK);
  impl_->press = gtk_gesture_multi_press_new(widget);
  gtk_event_controller_set_propagation_phase(GTK_EVENT_CONTROLLER(impl_->press), GTK_PHASE_CAPTURE);
  g_signal_connect(impl_->press, "pressed", G_CALLBACK(Impl::onPressed), impl_.get());
  g_signal_connect(impl_->press, "released", G_CALLBACK(Impl::onReleased), impl_.get());
  impl_->tick = gtk_widget_add_tick_callback(widget, Impl::onTick, impl_.get(), nullptr);
  GtkAllocation a;
  gtk_widget_get_allocation(widget, &a);
  if (gtk_widget_get_realized(widget)) Impl::onSizeAllocate(widget, &a, impl_.get());
}

std::shared_ptr<HostView> HostView::forWindow(GtkWindow* window) {
  GtkWidget* overlay = gtk_overlay_new();
  GtkWidget* content = gtk_bin_get_child(GTK_BIN(window));
  if (content != nullptr) {
    g_object_ref(content);
    gtk_container_remove(GTK_CONTAINER(window), content);
    gtk_container_add(GTK_CONTAINER(overlay), content);
    g_object_unref(content);
  } else {
    gtk_container_add(GTK_CONTAINER(overlay), gtk_event_box_new());
  }
  gtk_container_add(GTK_CONTAINER(window), overlay);
  gtk_widget_show_all(overlay);
  return std::make_shared<HostView>(GTK_OVERLAY(overlay));
}

HostView::~HostView() {
  impl_->widgets.clear();
  g_signal_handlers_disconnect_by_data(impl_->press, impl_.get());
  g_object_unref(impl_->press);
  if (impl_->overlay != nullptr) {
    gtk_widget_remove_tick_callback(GTK_WIDGET(impl_->overlay), impl_->tick);
    g_signal_handlers_disconnect_by_data(impl_->overlay, impl_.get());
    g_object_remove_weak_pointer(G_OBJECT(impl_->overlay),
                                 reinterpret_cast<gpointer*>(&impl_->overlay));
  }
}

Size HostView::size() const {
  return impl_->size;
}

void HostView::setSizeChangedHandler(std::function<void(Size)> handler) {
  impl_->sizeChanged = std::move(handler);
}

void HostView::reconcile() {
  if (impl_->overlay == nullptr) return;
  std::vector<std::pair<std::shared_ptr<View>, Placed>> now;
  flatten(*root_, 0, 0, true, true, now);

  auto& widgets = impl_->widgets;
  // Widgets whose node left the tree (or whose port object changed) go first.
  std::unordered_map<const View*, bool> present;
  for (const auto& [node, placed] : now) present[node.get()] = true;
  for (auto it = widgets.begin(); it != widgets.end();) {
    auto node = it->second->node.lock();
    const bool keep = node && present.count(it->first) != 0 &&
                      it->second->portObject() == NodeWidget::portObjectOf(*node);
    if (keep) {
      ++it;
    } else {
      impl_->byWidget.erase(it->second->widget);
      it = widgets.erase(it);
    }
  }

  bool moved = false;
  std::vector<GtkWidget*> order;
  order.reserve(now.size());
  for (const auto& [node, placed] : now) {
    auto& entry = widgets[node.get()];
    if (!entry) {
      entry = std::make_unique<NodeWidget>(node, NodeWidget::portWidgetOf(*node));
      impl_->byWidget[entry->widget] = entry.get();
      gtk_overlay_add_overlay(impl_->overlay, entry->widget);
      moved = true;
    }
    const bool visible = placed.visible && placed.rect.width > 0 && placed.rect.height > 0;
    const GdkRectangle& r = placed.rect;
    const GdkRectangle& old = entry->rect;
    if (r.x != old.x || r.y != old.y || r.width != old.width || r.height != old.height) {
      entry->rect = r;
      moved = true;
    }
    if (visible != entry->visible || gtk_widget_get_visible(entry->widget) != visible) {
      entry->visible = visible;
      gtk_widget_set_visible(entry->widget, visible);
    }
    entry->update(*node);
    order.push_back(entry->widget);
  }
  if (order != impl_->order) {
    // Stacking follows the tree: each widget in turn goes to the top, in the overlay's list
    // (drawing order) and as a window (the overlay gives each child a window of its own, and
    // windows stack by creation unless raised).
    for (GtkWidget* widget : order) {
      gtk_overlay_reorder_overlay(impl_->overlay, widget, -1);
      if (GdkWindow* window = gtk_widget_get_parent_window(widget)) gdk_window_raise(window);
    }
    impl_->order = order;
    moved = true;
  }
  impl_->placed.clear();
  for (auto& [node, placed] : now) impl_->placed.push_back(std::move(placed));
  if (moved) gtk_widget_queue_allocate(GTK_WIDGET(impl_->overlay));
}

GtkWidget* HostView::widgetFor(const View& node) const {
  auto it = impl_->widgets.find(&node);
  return it == impl_->widgets.end() ? nullptr : it->second->widget;
}

std::optional<std::string> HostView::drawnText(const View& node) const {
  auto it = impl_->widgets.find(&node);
  return it == impl_->widgets.end() ? std::nullopt : it->second->drawnText;
}

bool HostView::tapAt(double x, double y) {
  const Placed* hit = impl_->hitTest(x, y);
  if (hit == nullptr || hit->isWebView) return false;
  return Impl::tapChain(hit->node.lock());
}

}  // namespace tovani::gtk
