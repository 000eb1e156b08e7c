#include "tovani/linux/GstPlayer.hpp"

#include <gst/gst.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>

namespace tovani::linux {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

double toSeconds(gint64 nanoseconds) {
  return static_cast<double>(nanoseconds) / GST_SECOND;
}

bool initialiseGStreamer(std::string* error) {
  static std::once_flag once;
  static bool ready = false;
  static std::string failure;
  std::call_once(once, [] {
    GError* err = nullptr;
    ready = gst_init_check(nullptr, nullptr, &err) != FALSE;
    if (!ready) failure = err != nullptr ? err->message : "GStreamer cannot be initialised";
    if (err != nullptr) g_error_free(err);
  });
  *error = failure;
  return ready;
}

bool displayAvailable() {
  const char* x11 = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (x11 != nullptr && *x11 != '\0') || (wayland != nullptr && *wayland != '\0');
}

GstElement* makeSink(const char* realFactory, bool real) {
  GstElement* sink = real ? gst_element_factory_make(realFactory, nullptr) : nullptr;
  if (sink == nullptr) {
    sink = gst_element_factory_make("fakesink", nullptr);
    // Synchronised to the clock, so a headless player still takes the media's real time.
    if (sink != nullptr) g_object_set(sink, "sync", TRUE, nullptr);
  }
  return sink;
}

struct Observer {
  double interval = 0.3;
  std::function<void(double)> tick;
  GSource* timer = nullptr;
};

// All player state. GLib callbacks hold it weakly, so a player destroyed from inside one of
// its own callbacks is torn down at once and freed when that callback returns.
class PlayerState : public std::enable_shared_from_this<PlayerState> {
 public:
  PlayerState(std::shared_ptr<MainLoop> loop, std::shared_ptr<Log> log, PlayerOptions options)
      : loop_(std::move(loop)), log_(std::move(log)), options_(options) {
    if (!(options_.playbackRate > 0)) options_.playbackRate = 1.0;
  }

  void open(const std::string& path);
  void shutdown();

  void play();
  void pause();
  void seek(double seconds);
  double currentTime();
  double duration();
  bool hasItem() const { return pipeline_ != nullptr; }
  TimeObserverToken addObserver(double interval, std::function<void(double)> tick);
  bool removeObserver(TimeObserverToken token);
  void setHoldsLastFrame(bool hold) { holdLastFrame_ = hold; }
  void setEndedHandler(std::function<void()> handler) { endedHandler_ = std::move(handler); }

  void onMessage(GstMessage* message);
  void onTimer(TimeObserverToken token);

 private:
  void fail(const std::string& what);
  void applySeek(double seconds);
  void queryDuration();
  void updateTimers();
  void startTimer(TimeObserverToken token, Observer& observer);

  std::shared_ptr<MainLoop> loop_;
  std::shared_ptr<Log> log_;
  PlayerOptions options_;
  GstElement* pipeline_ = nullptr;
  GSource* busWatch_ = nullptr;
  GstState state_ = GST_STATE_NULL;  // the pipeline's last reported state
  bool wantsPlay_ = false;           // between play() and pause()
  bool prerolled_ = false;
  bool rateApplied_ = false;
  bool ended_ = false;
  bool failed_ = false;
  bool holdLastFrame_ = true;
  std::optional<double> pendingSeek_;
  double duration_ = kNaN;
  double lastPosition_ = 0;
  std::map<TimeObserverToken, Observer> observers_;
  TimeObserverToken nextToken_ = 1;
  std::function<void()> endedHandler_;
};

using WeakState = std::weak_ptr<PlayerState>;

void freeWeak(gpointer data) {
  delete static_cast<WeakState*>(data);
}

gboolean onBus(GstBus*, GstMessage* message, gpointer data) {
  if (auto state = static_cast<WeakState*>(data)->lock()) state->onMessage(message);
  return G_SOURCE_CONTINUE;
}

struct TimerData {
  WeakState state;
  TimeObserverToken token;
};

gboolean onTick(gpointer data) {
  auto* timer = static_cast<TimerData*>(data);
  if (auto state = timer->state.lock()) state->onTimer(timer->token);
  return G_SOURCE_CONTINUE;
}

void freeTimer(gpointer data) {
  delete static_cast<TimerData*>(data);
}

void PlayerState::open(const std::string& path) {
  std::string error;
  if (!initialiseGStreamer(&error)) return fail(error);
  GError* uriError = nullptr;
  gchar* uri = gst_filename_to_uri(path.c_str(), &uriError);
  if (uri == nullptr) {
    fail(std::string("no URI for ") + path + ": " + (uriError ? uriError->message : "?"));
    if (uriError != nullptr) g_error_free(uriError);
    return;
  }
  pipeline_ = gst_element_factory_make("playbin", nullptr);
  if (pipeline_ == nullptr) {
    g_free(uri);
    return fail("the playbin element is not installed");
  }
  gst_object_ref_sink(pipeline_);
  const bool window = options_.videoOutput == VideoOutput::Window && displayAvailable();
  GstElement* videoSink = options_.makeVideoSink ? options_.makeVideoSink() : nullptr;
  if (videoSink == nullptr) videoSink = makeSink("autovideosink", window);
  g_object_set(pipeline_, "uri", uri, "video-sink", videoSink, "audio-sink",
               makeSink("autoaudiosink", options_.audioOutput), nullptr);
  g_free(uri);

  GstBus* bus = gst_element_get_bus(pipeline_);
  busWatch_ = gst_bus_create_watch(bus);
  gst_object_unref(bus);
  // The bus source calls a GstBusFunc through the generic source callback slot.
  g_source_set_callback(busWatch_,
                        reinterpret_cast<GSourceFunc>(reinterpret_cast<void (*)()>(onBus)),
                        new WeakState(weak_from_this()), freeWeak);
  g_source_attach(busWatch_, static_cast<GMainContext*>(loop_->nativeContext()));
  // Prerolling now makes the duration known before playback starts, as a loaded item's is.
  if (gst_element_set_state(pipeline_, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
    fail("cannot open " + path);
  }
}

void PlayerState::shutdown() {
  for (auto& [token, observer] : observers_) {
    if (observer.timer != nullptr) g_source_destroy(observer.timer);
  }
  for (auto& [token, observer] : observers_) {
    if (observer.timer != nullptr) g_source_unref(observer.timer);
  }
  observers_.clear();
  if (busWatch_ != nullptr) {
    g_source_destroy(busWatch_);
    g_source_unref(busWatch_);
    busWatch_ = nullptr;
  }
  if (pipeline_ != nullptr) {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
    pipeline_ = nullptr;
  }
  endedHandler_ = nullptr;
}

void PlayerState::fail(const std::string& what) {
  failed_ = true;
  if (log_) log_->write("player: " + what);
  updateTimers();
}

void PlayerState::play() {
  if (pipeline_ == nullptr || failed_) return;
  wantsPlay_ = true;
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
}

void PlayerState::pause() {
  if (pipeline_ == nullptr || failed_) return;
  lastPosition_ = currentTime();
  wantsPlay_ = false;
  gst_element_set_state(pipeline_, GST_STATE_PAUSED);
  // Ticks stop now, not when the pipeline reports the change a moment later.
  updateTimers();
}

void PlayerState::seek(double seconds) {
  if (pipeline_ == nullptr || failed_) return;
  seconds = std::max(0.0, seconds);
  ended_ = false;
  lastPosition_ = seconds;
  if (!prerolled_) {
    pendingSeek_ = seconds;
    return;
  }
  applySeek(seconds);
  updateTimers();
}

void PlayerState::applySeek(double seconds) {
  const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
  const auto position = static_cast<gint64>(std::llround(seconds * GST_SECOND));
  if (!gst_element_seek(pipeline_, options_.playbackRate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET,
                        position, GST_SEEK_TYPE_NONE, GST_CLOCK_TIME_NONE)) {
    if (log_) log_->write("player: seek refused");
  }
}

double PlayerState::currentTime() {
  // At the end the position is the item's end, whatever the sinks report after draining.
  if (ended_) return std::isnan(duration_) ? lastPosition_ : duration_;
  gint64 position = 0;
  if (pipeline_ != nullptr && prerolled_ &&
      gst_element_query_position(pipeline_, GST_FORMAT_TIME, &position) && position >= 0) {
    lastPosition_ = toSeconds(position);
  }
  return lastPosition_;
}

double PlayerState::duration() {
  if (std::isnan(duration_)) queryDuration();
  return duration_;
}

void PlayerState::queryDuration() {
  gint64 length = 0;
  if (pipeline_ != nullptr && prerolled_ &&
      gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &length) && length > 0) {
    duration_ = toSeconds(length);
  }
}

TimeObserverToken PlayerState::addObserver(double interval, std::function<void(double)> tick) {
  const TimeObserverToken token = nextToken_++;
  auto& observer = observers_[token];
  observer.interval = interval > 0.001 ? interval : 0.001;
  observer.tick = std::move(tick);
  updateTimers();
  return token;
}

bool PlayerState::removeObserver(TimeObserverToken token) {
  auto it = observers_.find(token);
  if (it == observers_.end()) return false;
  if (it->second.timer != nullptr) {
    g_source_destroy(it->second.timer);
    g_source_unref(it->second.timer);
  }
  observers_.erase(it);
  return true;
}

void PlayerState::startTimer(TimeObserverToken token, Observer& observer) {
  // Wall-clock period of one interval of media time at the configured rate.
  const double ms = observer.interval / options_.playbackRate * 1000.0;
  observer.timer = g_timeout_source_new(static_cast<guint>(std::max(1.0, std::round(ms))));
  g_source_set_callback(observer.timer, onTick, new TimerData{weak_from_this(), token}, freeTimer);
  g_source_attach(observer.timer, static_cast<GMainContext*>(loop_->nativeContext()));
}

void PlayerState::updateTimers() {
  // A late report of an earlier change to playing must not restart ticks after pause().
  const bool ticking =
      pipeline_ != nullptr && wantsPlay_ && state_ == GST_STATE_PLAYING && !ended_ && !failed_;
  for (auto& [token, observer] : observers_) {
    if (ticking && observer.timer == nullptr) {
      startTimer(token, observer);
    } else if (!ticking && observer.timer != nullptr) {
      g_source_destroy(observer.timer);
      g_source_unref(observer.timer);
      observer.timer = nullptr;
    }
  }
}

void PlayerState::onTimer(TimeObserverToken token) {
  auto it = observers_.find(token);
  if (it == observers_.end()) return;
  // A copy: the tick may remove its observer or drop the player.
  auto tick = it->second.tick;
  if (tick) tick(currentTime());
}

void PlayerState::onMessage(GstMessage* message) {
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ASYNC_DONE:
      prerolled_ = true;
      queryDuration();
      if (!rateApplied_ || pendingSeek_) {
        rateApplied_ = true;
        const double target = pendingSeek_.value_or(0.0);
        pendingSeek_.reset();
        // The first seek also sets the rate; a rate of 1 from the start needs no seek.
        if (options_.playbackRate != 1.0 || target != 0.0) applySeek(target);
      }
      break;
    case GST_MESSAGE_DURATION_CHANGED:
      queryDuration();
      break;
    case GST_MESSAGE_STATE_CHANGED:
      if (GST_MESSAGE_SRC(message) == GST_OBJECT(pipeline_)) {
        GstState previous, current, pending;
        gst_message_parse_state_changed(message, &previous, &current, &pending);
        state_ = current;
        updateTimers();
      }
      break;
    case GST_MESSAGE_EOS:
      if (!ended_) {
        queryDuration();
        ended_ = true;
        updateTimers();
        // The pipeline is left as it is, so the last frame stays shown whatever
        // holdLastFrame_ says: this player has one item and nothing to advance to.
        loop_->post([weak = weak_from_this()] {
          auto state = weak.lock();
          if (!state) return;
          auto handler = state->endedHandler_;
          if (handler) handler();
        });
      }
      break;
    case GST_MESSAGE_ERROR: {
      GError* error = nullptr;
      gchar* debug = nullptr;
      gst_message_parse_error(message, &error, &debug);
      fail(std::string(error != nullptr ? error->message : "playback error"));
      if (error != nullptr) g_error_free(error);
      g_free(debug);
      break;
    }
    default:
      break;
  }
}

class GstMediaPlayer final : public MediaPlayer {
 public:
  explicit GstMediaPlayer(std::shared_ptr<PlayerState> state) : state_(std::move(state)) {}
  ~GstMediaPlayer() override { state_->shutdown(); }
  GstMediaPlayer(const GstMediaPlayer&) = delete;
  GstMediaPlayer& operator=(const GstMediaPlayer&) = delete;

  void play() override { state_->play(); }
  void pause() override { state_->pause(); }
  void seek(double seconds) override { state_->seek(seconds); }
  double currentTime() const override { return state_->currentTime(); }
  double duration() const override { return state_->duration(); }
  bool hasCurrentItem() const override { return state_->hasItem(); }
  TimeObserverToken addPeriodicTimeObserver(double intervalSeconds,
                                            std::function<void(double)> tick) override {
    return state_->addObserver(intervalSeconds, std::move(tick));
  }
  bool removeTimeObserver(TimeObserverToken token) override {
    return state_->removeObserver(token);
  }
  void setHoldsLastFrameAtEnd(bool hold) override { state_->setHoldsLastFrame(hold); }
  void setItemEndedHandler(std::function<void()> handler) override {
    state_->setEndedHandler(std::move(handler));
  }

 private:
  std::shared_ptr<PlayerState> state_;
};

}  // namespace

GstPlayerFactory::GstPlayerFactory(std::shared_ptr<MainLoop> loop, std::shared_ptr<Log> log,
                                   PlayerOptions options)
    : loop_(std::move(loop)), log_(std::move(log)), options_(options) {
  // GStreamer reads its plugin registry once per process; done here, with the platform, it
  // does not hold the host's thread in the middle of the first showing. A failure is
  // reported by the first player.
  std::string ignored;
  initialiseGStreamer(&ignored);
}

std::shared_ptr<MediaPlayer> GstPlayerFactory::createPlayer(const std::string& localFilePath) {
  auto state = std::make_shared<PlayerState>(loop_, log_, options_);
  state->open(localFilePath);
  return std::make_shared<GstMediaPlayer>(std::move(state));
}

}  // namespace tovani::linux
