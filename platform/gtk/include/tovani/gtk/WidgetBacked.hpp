#pragma once

typedef struct _GtkWidget GtkWidget;

namespace tovani::gtk {

// A port object (video player, web view) that draws into a GTK widget of its own. The
// view-tree renderer finds it behind the node's `player` or `webView` and places the widget
// at the node's frame, so the port and the renderer need not know each other's types.
class WidgetBacked {
 public:
  virtual ~WidgetBacked() = default;
  // Owned by the port object; valid for its whole life. Never null.
  virtual GtkWidget* widget() = 0;
};

}  // namespace tovani::gtk
