#include "tovani/gtk/GtkVideoPlayer.hpp"

#include <gst/gst.h>
#include <gtk/gtk.h>

#include <atomic>

#include "tovani/gtk/WidgetBacked.hpp"

namespace tovani::gtk {

namespace {

// Watches for the first picture: a buffer reaching the sink (a streaming thread) arms it, and
// the widget's next draw (the main thread) is the first frame on screen.
struct FirstFrame {
  std::atomic<bool> bufferSeen{false};
  bool reported = false;
  std::function<void(int64_t)> report;
};

GstPadProbeReturn onBuffer(GstPad*, GstPadProbeInfo*, gpointer data) {
  static_cast<FirstFrame*>(data)->bufferSeen = true;
  return GST_PAD_PROBE_REMOVE;
}

gboolean onDrawn(GtkWidget*, cairo_t*, gpointer data) {
  auto* first = static_cast<FirstFrame*>(data);
  if (!first->reported && first->bufferSeen) {
    first->reported = true;
    if (first->report) first->report(g_get_monotonic_time());
  }
  return FALSE;
}

class GtkVideoPlayer final : public MediaPlayer, public WidgetBacked {
 public:
  GtkVideoPlayer(GstElement* sink, GtkWidget* widget, std::function<void(int64_t)> firstFrame)
      : sink_(sink), widget_(widget), parking_(gtk_offscreen_window_new()) {
    // The sink opens a window of its own for a widget outside any window when the pipeline
    // starts. Until the host view takes the widget, it waits in an off-screen window.
    g_object_ref_sink(parking_);
    gtk_container_add(GTK_CONTAINER(parking_), widget_);
    first_.report = std::move(firstFrame);
    GstPad* pad = gst_element_get_static_pad(sink_, "sink");
    if (pad != nullptr) {
      gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onBuffer, &first_, nullptr);
      gst_object_unref(pad);
    }
    // Before the sink's own handler, which ends the emission: it is about to paint the frame.
    g_signal_connect(widget_, "draw", G_CALLBACK(onDrawn), &first_);
  }
  ~GtkVideoPlayer() override {
    // The pipeline stops first, so no streaming thread touches the probe's data afterwards.
    inner_.reset();
    g_signal_handlers_disconnect_by_data(widget_, &first_);
    if (gtk_widget_get_parent(widget_) == parking_)
      gtk_container_remove(GTK_CONTAINER(parking_), widget_);
    gtk_widget_destroy(parking_);
    g_object_unref(parking_);
    g_object_unref(widget_);
    gst_object_unref(sink_);
  }
  GtkVideoPlayer(const GtkVideoPlayer&) = delete;
  GtkVideoPlayer& operator=(const GtkVideoPlayer&) = delete;

  void setInner(std::shared_ptr<MediaPlayer> inner) { inner_ = std::move(inner); }
  GtkWidget* widget() override { return widget_; }

  void play() override { inner_->play(); }
  void pause() override { inner_->pause(); }
  void seek(double seconds) override { inner_->seek(seconds); }
  double currentTime() const override { return inner_->currentTime(); }
  double duration() const override { return inner_->duration(); }
  bool hasCurrentItem() const override { return inner_->hasCurrentItem(); }
  TimeObserverToken addPeriodicTimeObserver(double interval,
                                            std::function<void(double)> tick) override {
    return inner_->addPeriodicTimeObserver(interval, std::move(tick));
  }
  bool removeTimeObserver(TimeObserverToken token) override {
    return inner_->removeTimeObserver(token);
  }
  void setHoldsLastFrameAtEnd(bool hold) override { inner_->setHoldsLastFrameAtEnd(hold); }
  void setItemEndedHandler(std::function<void()> handler) override {
    inner_->setItemEndedHandler(std::move(handler));
  }

 private:
  GstElement* sink_;
  GtkWidget* widget_;
  GtkWidget* parking_;
  FirstFrame first_;
  std::shared_ptr<MediaPlayer> inner_;
};

}  // namespace

GtkVideoPlayerFactory::GtkVideoPlayerFactory(std::shared_ptr<linux::MainLoop> loop,
                                             std::shared_ptr<Log> log, VideoOptions options)
    : loop_(std::move(loop)), log_(std::move(log)), options_(std::move(options)) {}

std::shared_ptr<MediaPlayer> GtkVideoPlayerFactory::createPlayer(const std::string& path) {
  linux::PlayerOptions playerOptions;
  playerOptions.playbackRate = options_.playbackRate;
  playerOptions.audioOutput = options_.audioOutput;
  if (!gst_is_initialized()) gst_init(nullptr, nullptr);
  GstElement* sink = gst_element_factory_make("gtksink", nullptr);
  if (sink == nullptr) {
    // Without the GTK sink the video still plays and times the showing, unseen.
    if (log_) log_->write("player: the gtksink element is not installed; video is not shown");
    return linux::GstPlayerFactory(loop_, log_, playerOptions).createPlayer(path);
  }
  gst_object_ref_sink(sink);
  GtkWidget* widget = nullptr;
  g_object_get(sink, "widget", &widget, nullptr);  // a new reference, made on this thread
  auto player = std::make_shared<GtkVideoPlayer>(sink, widget, options_.firstFrameDrawn);
  playerOptions.makeVideoSink = [sink] { return sink; };
  player->setInner(linux::GstPlayerFactory(loop_, log_, playerOptions).createPlayer(path));
  return player;
}

}  // namespace tovani::gtk
