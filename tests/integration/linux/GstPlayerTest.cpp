#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tovani/linux/GstPlayer.hpp"
#include "tovani/linux/LinuxDevice.hpp"

namespace tovani::linux {
namespace {

using Steady = std::chrono::steady_clock;

struct Tick {
  double media, wall;
};

class GstPlayerTest : public ::testing::Test {
 protected:
  // A two-second H.264/AAC clip, encoded the way the project's videos are.
  static void SetUpTestSuite() {
    char folder[] = "/tmp/tovani-player-XXXXXX";
    folder_ = mkdtemp(folder);
    const std::string command =
        "gst-launch-1.0 -q videotestsrc num-buffers=40 ! video/x-raw,width=160,height=120,"
        "framerate=20/1 ! x264enc speed-preset=ultrafast tune=zerolatency ! mp4mux name=mux ! "
        "filesink location=" +
        folder_ + "/clip.mp4 audiotestsrc num-buffers=86 ! audioconvert ! avenc_aac ! mux.";
    ASSERT_EQ(std::system(command.c_str()), 0) << "gst-launch-1.0 could not encode the test clip";
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(folder_); }

  std::shared_ptr<MediaPlayer> open(const std::string& name, double rate = 1.0) {
    auto player = GstPlayerFactory(loop_, log_, {rate}).createPlayer(folder_ + "/" + name);
    player->setItemEndedHandler([this] { ++ended_; });
    player->addPeriodicTimeObserver(0.3, [this](double t) {
      EXPECT_TRUE(loop_->isLoopThread());
      ticks_.push_back({t, wall()});
    });
    return player;
  }
  double wall() const { return std::chrono::duration<double>(Steady::now() - start_).count(); }

  static inline std::string folder_;
  std::shared_ptr<MainLoop> loop_ = std::make_shared<MainLoop>(MainContextChoice::Private);
  std::vector<std::string> logLines_;
  std::shared_ptr<LinuxLog> log_ =
      std::make_shared<LinuxLog>([this](const std::string& line) { logLines_.push_back(line); });
  std::vector<Tick> ticks_;
  int ended_ = 0;
  Steady::time_point start_ = Steady::now();
};

TEST_F(GstPlayerTest, PlaysInRealTimeWithTicksPauseSeekAndOneEndPerPlayThrough) {
  auto player = open("clip.mp4");
  ASSERT_TRUE(loop_->runUntil([&] { return !std::isnan(player->duration()); }, 5));
  EXPECT_NEAR(player->duration(), 2.0, 0.1);
  loop_->runFor(0.4);
  EXPECT_TRUE(ticks_.empty()) << "ticks before play";

  player->play();
  loop_->runFor(1.05);
  ASSERT_TRUE(ticks_.size() >= 2 && ticks_.size() <= 4) << ticks_.size();
  for (size_t i = 1; i < ticks_.size(); ++i) {
    EXPECT_NEAR(ticks_[i].media - ticks_[i - 1].media, 0.3, 0.1);
  }
  player->pause();
  const size_t ticksAtPause = ticks_.size();
  const double pausedAt = player->currentTime();
  EXPECT_GT(pausedAt, 0.7);
  loop_->runFor(0.6);
  EXPECT_TRUE(ticks_.size() == ticksAtPause && std::abs(player->currentTime() - pausedAt) < 0.05);

  player->seek(0);
  ASSERT_TRUE(loop_->runUntil([&] { return player->currentTime() < 0.05; }, 2));
  const double replayStart = wall();
  player->play();
  ASSERT_TRUE(loop_->runUntil([&] { return ended_ > 0; }, 5));
  EXPECT_NEAR(wall() - replayStart, 2.0, 0.35);  // real time, not as fast as possible
  const size_t ticksAtEnd = ticks_.size();
  loop_->runFor(0.5);
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(ticks_.size(), ticksAtEnd) << "ticks after the end";
  EXPECT_NEAR(player->currentTime(), player->duration(), 0.05);  // the last frame stays
  EXPECT_TRUE(logLines_.empty()) << logLines_.front();
}

TEST_F(GstPlayerTest, ARateRunsMediaTimeFasterAndBrokenOrDroppedPlayersAreHarmless) {
  std::ofstream(folder_ + "/garbage.mp4") << "this is not a video";
  auto player = open("clip.mp4", 4.0), broken = open("garbage.mp4");
  const double started = wall();
  player->play();
  broken->play();  // never progresses: no tick, no end
  ASSERT_TRUE(loop_->runUntil([&] { return ended_ == 1; }, 5));
  EXPECT_LT(wall() - started, 1.2);
  EXPECT_NEAR(player->currentTime(), 2.0, 0.1);
  ASSERT_GE(ticks_.size(), 4u);
  for (size_t i = 1; i < ticks_.size(); ++i) {
    EXPECT_NEAR(ticks_[i].media - ticks_[i - 1].media, 0.3, 0.12) << "tick " << i;
    EXPECT_NEAR(ticks_[i].wall - ticks_[i - 1].wall, 0.075, 0.05);
  }
  EXPECT_TRUE(std::isnan(broken->duration()) && broken->currentTime() == 0.0);
  EXPECT_FALSE(logLines_.empty());
  // Rewinding a finished item plays it again, as the end card's replay does; the host closes
  // the ad from the second end, and another one from a tick.
  player->setItemEndedHandler([&] { player.reset(); });
  auto ticking = open("clip.mp4", 4.0);
  ticking->addPeriodicTimeObserver(0.3, [&](double) { ticking.reset(); });
  player->seek(0);
  player->play();
  ticking->play();
  ASSERT_TRUE(loop_->runUntil([&] { return !player && !ticking; }, 5));
}

}  // namespace
}  // namespace tovani::linux
