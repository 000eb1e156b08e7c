#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tovani/View.hpp"

typedef struct _GtkWidget GtkWidget;
typedef struct _GtkOverlay GtkOverlay;
typedef struct _GtkWindow GtkWindow;

namespace tovani::gtk {

// Where a host shows the SDK's views: a GtkOverlay in the host's window, over the host's own
// content. The host hands rootView() to TovaniSDK::tovaniShow; every node below it appears as
// a widget of the overlay at its frame, in z order (zPosition, then subview order), and a
// pointer or touch press-and-release on a node that takes touches runs its recognisers
// through View::tap(). The tree is reconciled once per frame on the overlay's frame clock, so
// what the core changes on the main thread shows on the next frame. Main thread only.
class HostView {
 public:
  // Uses `overlay` as it is; its main child stays the host's content.
  explicit HostView(GtkOverlay* overlay);
  // Puts a new overlay between `window` and its child (the child becomes the overlay's main
  // child, or an empty area when the window has none).
  static std::shared_ptr<HostView> forWindow(GtkWindow* window);
  ~HostView();
  HostView(const HostView&) = delete;
  HostView& operator=(const HostView&) = delete;

  // The node the host hands to tovaniShow. Its frame follows the overlay's allocation.
  std::shared_ptr<View> rootView() const { return root_; }
  GtkOverlay* overlay() const { return overlay_; }
  // The overlay's allocated size (0 × 0 before it is shown).
  Size size() const;
  // Called on the main thread when the allocated size changes.
  void setSizeChangedHandler(std::function<void(Size)> handler);

  // Brings the widgets in line with the tree now (the frame clock does this every frame).
  void reconcile();
  // The widget that shows `node`, or nullptr when it is not on screen. For hosts and tests.
  GtkWidget* widgetFor(const View& node) const;
  // The text the label's widget last drew, or none when it has not drawn.
  std::optional<std::string> drawnText(const View& node) const;
  // Runs what a tap at `(x, y)` in overlay coordinates does; false when no node took it.
  // The real pointer path ends here too.
  bool tapAt(double x, double y);

  struct Impl;

 private:
  GtkOverlay* overlay_;
  std::shared_ptr<View> root_;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tovani::gtk
