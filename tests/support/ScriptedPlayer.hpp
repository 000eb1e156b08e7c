#pragma once
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/VirtualMainQueue.hpp"
#include "tovani/platform/MediaPlayer.hpp"

namespace tovani::test {

// A player on virtual time. While playing, time advances with the queue; periodic
// observers fire when playback starts and then every interval of play; at the end the
// position stays on the last frame and the item-ended handler runs once.
class ScriptedPlayer : public MediaPlayer, public std::enable_shared_from_this<ScriptedPlayer> {
 public:
  ScriptedPlayer(std::shared_ptr<VirtualMainQueue> queue, std::string path, double duration)
      : queue_(std::move(queue)), path_(std::move(path)), duration_(duration) {}

  void play() override;
  void pause() override;
  void seek(double seconds) override;
  double currentTime() const override { return time_; }
  double duration() const override { return duration_; }
  bool hasCurrentItem() const override { return hasItem_; }
  TimeObserverToken addPeriodicTimeObserver(double intervalSeconds,
                                            std::function<void(double)> tick) override;
  bool removeTimeObserver(TimeObserverToken token) override;
  void setHoldsLastFrameAtEnd(bool hold) override { holdsLastFrame_ = hold; }
  void setItemEndedHandler(std::function<void()> handler) override { ended_ = std::move(handler); }

  // Test controls and readings.
  const std::string& path() const { return path_; }
  bool isPlaying() const { return playing_; }
  bool holdsLastFrame() const { return holdsLastFrame_; }
  size_t observerCount() const { return observers_.size(); }
  // Every call in order: "play", "pause", "seek:<seconds>", "addObserver", "removeObserver".
  const std::vector<std::string>& calls() const { return calls_; }

 private:
  void scheduleStep(uint64_t generation);
  void fireObservers();

  std::shared_ptr<VirtualMainQueue> queue_;
  std::string path_;
  double duration_;
  double time_ = 0;
  bool hasItem_ = true;
  bool playing_ = false;
  bool holdsLastFrame_ = false;
  uint64_t generation_ = 0;
  TimeObserverToken nextToken_ = 1;
  std::map<TimeObserverToken, std::function<void(double)>> observers_;
  std::function<void()> ended_;
  std::vector<std::string> calls_;
};

class ScriptedPlayerFactory : public MediaPlayerFactory {
 public:
  explicit ScriptedPlayerFactory(std::shared_ptr<VirtualMainQueue> queue)
      : queue_(std::move(queue)) {}
  std::shared_ptr<MediaPlayer> createPlayer(const std::string& localFilePath) override;

  double defaultDuration = 30;
  // Duration by file name (last path component), overriding the default.
  std::map<std::string, double> durationByFileName;
  std::vector<std::shared_ptr<ScriptedPlayer>> created;
  std::shared_ptr<ScriptedPlayer> last() const {
    return created.empty() ? nullptr : created.back();
  }

 private:
  std::shared_ptr<VirtualMainQueue> queue_;
};

}  // namespace tovani::test
