#include "support/ScriptedPlayer.hpp"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace tovani::test {

namespace {
constexpr double kStep = 0.3;
}

void ScriptedPlayer::play() {
  calls_.push_back("play");
  if (playing_) return;
  playing_ = true;
  const uint64_t generation = ++generation_;
  std::weak_ptr<ScriptedPlayer> weak = shared_from_this();
  queue_->post([weak, generation] {
    auto self = weak.lock();
    if (!self || self->generation_ != generation || !self->playing_) return;
    self->fireObservers();
    self->scheduleStep(generation);
  });
}

void ScriptedPlayer::pause() {
  calls_.push_back("pause");
  playing_ = false;
  ++generation_;
}

void ScriptedPlayer::seek(double seconds) {
  std::ostringstream text;
  text << "seek:" << seconds;
  calls_.push_back(text.str());
  time_ = seconds;
}

void ScriptedPlayer::scheduleStep(uint64_t generation) {
  std::weak_ptr<ScriptedPlayer> weak = shared_from_this();
  queue_->postAfter(kStep, [weak, generation] {
    auto self = weak.lock();
    if (!self || self->generation_ != generation || !self->playing_) return;
    // Whole tenths keep 0.3-second sums free of drift.
    const double next = std::round((self->time_ + kStep) * 10) / 10;
    const bool ends = !std::isnan(self->duration_) && next >= self->duration_;
    self->time_ = ends ? self->duration_ : next;
    self->fireObservers();
    if (!ends) {
      self->scheduleStep(generation);
      return;
    }
    self->playing_ = false;
    self->queue_->post([weak] {
      auto player = weak.lock();
      if (player && player->ended_) {
        auto ended = player->ended_;
        ended();
      }
    });
  });
}

void ScriptedPlayer::fireObservers() {
  std::vector<TimeObserverToken> tokens;
  for (const auto& [token, tick] : observers_) tokens.push_back(token);
  for (auto token : tokens) {
    auto it = observers_.find(token);
    if (it == observers_.end()) continue;  // removed by an earlier observer in this round
    auto tick = it->second;
    tick(time_);
  }
}

TimeObserverToken ScriptedPlayer::addPeriodicTimeObserver(double /*intervalSeconds*/,
                                                          std::function<void(double)> tick) {
  calls_.push_back("addObserver");
  const auto token = nextToken_++;
  observers_[token] = std::move(tick);
  return token;
}

bool ScriptedPlayer::removeTimeObserver(TimeObserverToken token) {
  calls_.push_back("removeObserver");
  return observers_.erase(token) > 0;
}

std::shared_ptr<MediaPlayer> ScriptedPlayerFactory::createPlayer(const std::string& localFilePath) {
  const auto name = std::filesystem::path(localFilePath).filename().string();
  const auto it = durationByFileName.find(name);
  auto player = std::make_shared<ScriptedPlayer>(
      queue_, localFilePath, it == durationByFileName.end() ? defaultDuration : it->second);
  created.push_back(player);
  return player;
}

}  // namespace tovani::test
