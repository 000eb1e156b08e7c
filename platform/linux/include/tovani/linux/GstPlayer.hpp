#pragma once
#include <functional>
#include <memory>
#include <string>

#include "tovani/Export.hpp"
#include "tovani/linux/MainLoop.hpp"
#include "tovani/platform/Device.hpp"
#include "tovani/platform/MediaPlayer.hpp"

typedef struct _GstElement GstElement;

#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

enum class VideoOutput {
  Headless,  // frames are decoded and timed, then discarded: no display needed
  Window,    // a real video window when a display exists; headless otherwise
};

struct PlayerOptions {
  // Media seconds per wall-clock second, e.g. 4.0 to run ads faster in a demo. currentTime,
  // duration and observer intervals stay in media time.
  double playbackRate = 1.0;
  VideoOutput videoOutput = VideoOutput::Headless;
  bool audioOutput = false;  // a real audio device; otherwise audio is discarded in real time
  // Makes the video sink of each new player in place of the choice above, for a host that
  // draws the video itself (a widget in its window). The player takes a reference of its own
  // (a floating element becomes the player's); nullptr falls back to the choice above.
  std::function<GstElement*()> makeVideoSink = nullptr;
};

// Players on GStreamer's playbin, driven from the MainLoop's context: bus messages, ticks and
// the item-ended event all arrive on the loop thread. A player prerolls at once, so its
// duration is known shortly after creation; it never stops or rewinds by itself at the end,
// so the last frame stays shown. A file that cannot be played gives a player that never
// progresses (the error is logged).
class TOVANI_EXPORT GstPlayerFactory final : public MediaPlayerFactory {
 public:
  GstPlayerFactory(std::shared_ptr<MainLoop> loop, std::shared_ptr<Log> log,
                   PlayerOptions options = {});
  std::shared_ptr<MediaPlayer> createPlayer(const std::string& localFilePath) override;

  // Applies to players created afterwards.
  void setOptions(const PlayerOptions& options) { options_ = options; }
  const PlayerOptions& options() const { return options_; }

 private:
  std::shared_ptr<MainLoop> loop_;
  std::shared_ptr<Log> log_;
  PlayerOptions options_;
};

}  // namespace tovani::linux

#pragma pop_macro("linux")
