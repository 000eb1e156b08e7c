#include "NodeWidget.hpp"

#include "tovani/gtk/WidgetBacked.hpp"
#include "tovani/platform/MediaPlayer.hpp"
#include "tovani/platform/WebView.hpp"

namespace tovani::gtk {

namespace {

// A label without a font of its own uses the system font at this size (points are logical
// pixels, as on the platforms the layout was made for).
constexpr double kDefaultFontSize = 17.0;

WidgetBacked* backedOf(const View& node) {
  if (node.kind == View::Kind::VideoLayer && node.player) {
    return dynamic_cast<WidgetBacked*>(node.player.get());
  }
  if (node.kind == View::Kind::WebView && node.webView) {
    return dynamic_cast<WidgetBacked*>(node.webView.get());
  }
  return nullptr;
}

// The loader is picked from the image's signature, not by content sniffing, which needs the
// MIME database and may be missing on a kiosk or in a container.
GdkPixbufLoader* loaderFor(const std::string& bytes) {
  const char* type = nullptr;
  if (bytes.rfind("\x89PNG", 0) == 0) type = "png";
  if (bytes.rfind("\xff\xd8\xff", 0) == 0) type = "jpeg";
  if (bytes.rfind("GIF8", 0) == 0) type = "gif";
  GdkPixbufLoader* loader = type ? gdk_pixbuf_loader_new_with_type(type, nullptr) : nullptr;
  return loader != nullptr ? loader : gdk_pixbuf_loader_new();
}

GdkPixbuf* decode(const std::string& bytes) {
  GdkPixbufLoader* loader = loaderFor(bytes);
  GdkPixbuf* pixbuf = nullptr;
  if (gdk_pixbuf_loader_write(loader, reinterpret_cast<const guchar*>(bytes.data()), bytes.size(),
                              nullptr) &&
      gdk_pixbuf_loader_close(loader, nullptr)) {
    pixbuf = gdk_pixbuf_loader_get_pixbuf(loader);
    if (pixbuf != nullptr) g_object_ref(pixbuf);
  } else {
    gdk_pixbuf_loader_close(loader, nullptr);
  }
  g_object_unref(loader);
  return pixbuf;
}

void drawText(GtkWidget* widget, cairo_t* cr, const View& node, int width, int height) {
  PangoLayout* layout = gtk_widget_create_pango_layout(widget, node.text.c_str());
  // The widget's font is the desktop's system font; only family, size and weight change.
  PangoFontDescription* font = pango_font_description_copy(
      pango_context_get_font_description(pango_layout_get_context(layout)));
  if (!node.font.family.empty()) pango_font_description_set_family(font, node.font.family.c_str());
  const double size = node.font.size > 0 ? node.font.size : kDefaultFontSize;
  pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
  pango_font_description_set_weight(font, node.font.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_width(layout, width * PANGO_SCALE);
  pango_layout_set_alignment(layout,
                             node.textAlignment == TextAlignment::Center  ? PANGO_ALIGN_CENTER
                             : node.textAlignment == TextAlignment::Right ? PANGO_ALIGN_RIGHT
                                                                          : PANGO_ALIGN_LEFT);
  int textWidth = 0, textHeight = 0;
  pango_layout_get_pixel_size(layout, &textWidth, &textHeight);
  const Color c = node.textColor.a > 0 ? node.textColor : Color::black();
  cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a);
  // Labels centre their text vertically.
  cairo_move_to(cr, 0, (height - textHeight) / 2.0);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
}

gboolean onDraw(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* self = static_cast<NodeWidget*>(data);
  auto node = self->node.lock();
  if (!node) return FALSE;
  const int width = gtk_widget_get_allocated_width(widget);
  const int height = gtk_widget_get_allocated_height(widget);
  const Color& bg = node->backgroundColor;
  if (bg.a > 0) {
    cairo_set_source_rgba(cr, bg.r, bg.g, bg.b, bg.a);
    cairo_paint(cr);
  }
  if (node->image && self->decodedImage != node->image) {
    if (self->pixbuf != nullptr) g_object_unref(self->pixbuf);
    self->pixbuf = decode(node->image->bytes);
    self->decodedImage = node->image;
  }
  if (node->image && self->pixbuf != nullptr && width > 0 && height > 0) {
    // Image views stretch the image over their frame.
    const int pw = gdk_pixbuf_get_width(self->pixbuf);
    const int ph = gdk_pixbuf_get_height(self->pixbuf);
    cairo_save(cr);
    cairo_scale(cr, static_cast<double>(width) / pw, static_cast<double>(height) / ph);
    gdk_cairo_set_source_pixbuf(cr, self->pixbuf, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint(cr);
    cairo_restore(cr);
  }
  if (node->kind == View::Kind::Label) {
    drawText(widget, cr, *node, width, height);
    self->drawnText = node->text;
  }
  return FALSE;
}

}  // namespace

const void* NodeWidget::portObjectOf(const View& node) {
  return backedOf(node);
}

GtkWidget* NodeWidget::portWidgetOf(const View& node) {
  WidgetBacked* backed = backedOf(node);
  return backed != nullptr ? backed->widget() : nullptr;
}

NodeWidget::NodeWidget(const std::shared_ptr<View>& n, GtkWidget* portWidget) : node(n) {
  if (portWidget != nullptr) {
    portObject_ = backedOf(*n);
    widget = GTK_WIDGET(g_object_ref(portWidget));
    // A port widget still shown by an earlier host view moves here.
    if (GtkWidget* parent = gtk_widget_get_parent(widget)) {
      gtk_container_remove(GTK_CONTAINER(parent), widget);
    }
  } else {
    widget = GTK_WIDGET(g_object_ref_sink(gtk_drawing_area_new()));
    g_signal_connect(widget, "draw", G_CALLBACK(onDraw), this);
  }
}

NodeWidget::~NodeWidget() {
  g_signal_handlers_disconnect_by_data(widget, this);
  if (GtkWidget* parent = gtk_widget_get_parent(widget)) {
    gtk_container_remove(GTK_CONTAINER(parent), widget);
  }
  g_object_unref(widget);
  if (pixbuf != nullptr) g_object_unref(pixbuf);
}

void NodeWidget::update(const View& n) {
  Look now{n.backgroundColor, n.textColor,   n.text, n.textAlignment, n.font,
           n.image.get(),     n.videoGravity};
  if (look_ && *look_ == now) return;
  look_ = now;
  if (portObject_ != nullptr) {
    // The video sink's widget letterboxes when asked to keep the aspect ratio.
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(widget), "force-aspect-ratio")) {
      g_object_set(widget, "force-aspect-ratio",
                   n.videoGravity == VideoGravity::ResizeAspect ? TRUE : FALSE, nullptr);
    }
    return;
  }
  gtk_widget_queue_draw(widget);
}

}  // namespace tovani::gtk
