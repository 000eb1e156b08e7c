#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include "tovani/Export.hpp"

namespace tovani {

using TimeObserverToken = uint64_t;

// One player for one local file. All calls and callbacks on the main thread.
class TOVANI_EXPORT MediaPlayer {
 public:
  virtual ~MediaPlayer() = default;
  virtual void play() = 0;
  virtual void pause() = 0;
  virtual void seek(double seconds) = 0;
  virtual double currentTime() const = 0;  // seconds
  virtual double duration() const = 0;     // seconds; NaN while unknown
  virtual bool hasCurrentItem() const = 0;
  // Calls `tick(currentTime)` every `intervalSeconds` of play on the main queue.
  virtual TimeObserverToken addPeriodicTimeObserver(double intervalSeconds,
                                                    std::function<void(double)> tick) = 0;
  // Returns false when the token is not (or no longer) registered with this player.
  virtual bool removeTimeObserver(TimeObserverToken token) = 0;
  // Keep the last frame when the item ends (the player does not advance or loop).
  virtual void setHoldsLastFrameAtEnd(bool hold) = 0;
  // Called once on the main queue when the item plays to its end.
  virtual void setItemEndedHandler(std::function<void()> handler) = 0;
};

class TOVANI_EXPORT MediaPlayerFactory {
 public:
  virtual ~MediaPlayerFactory() = default;
  virtual std::shared_ptr<MediaPlayer> createPlayer(const std::string& localFilePath) = 0;
};

}  // namespace tovani
