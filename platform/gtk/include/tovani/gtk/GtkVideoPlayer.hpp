#pragma once
#include <functional>
#include <memory>
#include <string>

#include "tovani/linux/GstPlayer.hpp"
#include "tovani/linux/MainLoop.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/MediaPlayer.hpp"

namespace tovani::gtk {

struct VideoOptions {
  double playbackRate = 1.0;  // media seconds per wall-clock second
  bool audioOutput = true;    // the default audio device (discarded in real time when none)
  // Called on the main thread when the sink's widget has drawn the first frame of a player,
  // with the monotonic time (g_get_monotonic_time, microseconds) of that draw.
  std::function<void(int64_t)> firstFrameDrawn = nullptr;
};

// Players on GStreamer's playbin whose pictures go to a `gtksink` widget. Each player is a
// tovani::gtk::WidgetBacked: the host view places its widget at the video layer's frame, with
// the layer's gravity. Timing, ticks, the end of the item and pause/seek are those of the
// headless GStreamer player (the same code, with this sink), so both keep one contract.
// Create players on the main thread (the sink makes its widget there).
class GtkVideoPlayerFactory final : public MediaPlayerFactory {
 public:
  GtkVideoPlayerFactory(std::shared_ptr<linux::MainLoop> loop, std::shared_ptr<Log> log,
                        VideoOptions options = {});
  std::shared_ptr<MediaPlayer> createPlayer(const std::string& localFilePath) override;
  void setOptions(VideoOptions options) { options_ = std::move(options); }
  const VideoOptions& options() const { return options_; }

 private:
  std::shared_ptr<linux::MainLoop> loop_;
  std::shared_ptr<Log> log_;
  VideoOptions options_;
};

}  // namespace tovani::gtk
