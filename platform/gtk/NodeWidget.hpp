#pragma once
#include <gtk/gtk.h>

#include <memory>
#include <optional>
#include <string>

#include "tovani/View.hpp"

namespace tovani::gtk {

// One node of the view tree on screen. Plain views, labels, buttons and image views are drawn
// by a widget of our own; a video layer or web view whose port object draws into a widget of
// its own is shown by that widget.
struct NodeWidget {
  NodeWidget(const std::shared_ptr<View>& node, GtkWidget* portWidget);
  ~NodeWidget();
  NodeWidget(const NodeWidget&) = delete;
  NodeWidget& operator=(const NodeWidget&) = delete;

  // The port object behind the node, whose widget this is (nullptr for our own widgets).
  const void* portObject() const { return portObject_; }
  // Applies the node's look (and the video gravity) to the widget; redraws when it changed.
  void update(const View& node);

  std::weak_ptr<View> node;
  GtkWidget* widget = nullptr;  // one reference held here
  GdkRectangle rect{};          // in overlay coordinates
  bool visible = false;
  std::optional<std::string> drawnText;
  GdkPixbuf* pixbuf = nullptr;  // decoded image, kept while the node keeps the same image
  std::shared_ptr<Image> decodedImage;

  static const void* portObjectOf(const View& node);
  static GtkWidget* portWidgetOf(const View& node);

 private:
  struct Look {
    Color background, textColor;
    std::string text;
    TextAlignment alignment = TextAlignment::Left;
    Font font;
    const Image* image = nullptr;
    VideoGravity gravity = VideoGravity::Resize;
    bool operator==(const Look&) const = default;
  };
  std::optional<Look> look_;
  const void* portObject_ = nullptr;
};

}  // namespace tovani::gtk
