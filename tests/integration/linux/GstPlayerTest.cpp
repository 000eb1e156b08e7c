#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "tovani/linux/GstPlayer.hpp"
#include "tovani/linux/LinuxDevice.hpp"

extern char** environ;

namespace tovani::linux {
namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr double kClipSeconds = 2.0;

// A two-second H.264/AAC clip made with the GStreamer command-line tool, the way the project's
// videos are encoded.
bool encodeClip(const std::string& path) {
  const std::string location = "location=" + path;
  std::vector<std::string> args = {"gst-launch-1.0",
                                   "-q",
                                   "videotestsrc",
                                   "num-buffers=40",
                                   "!",
                                   "video/x-raw,width=160,height=120,framerate=20/1",
                                   "!",
                                   "x264enc",
                                   "speed-preset=ultrafast",
                                   "tune=zerolatency",
                                   "!",
                                   "mp4mux",
                                   "name=mux",
                                   "!",
                                   "filesink",
                                   location,
                                   "audiotestsrc",
                                   "num-buffers=86",
                                   "!",
                                   "audioconvert",
                                   "!",
                                   "avenc_aac",
                                   "!",
                                   "mux."};
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 && fs::file_size(path) > 0;
}

struct Tick {
  double media;
  double wall;
  bool onLoopThread;
};

class GstPlayerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char folder[] = "/tmp/tovani-player-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    clip_ = folder_ + "/clip.mp4";
    ASSERT_TRUE(encodeClip(clip_)) << "gst-launch-1.0 could not encode the test clip";
  }
  static void TearDownTestSuite() { fs::remove_all(folder_); }

  void SetUp() override {
    log_ =
        std::make_shared<LinuxLog>([this](const std::string& line) { logLines_.push_back(line); });
    start_ = Steady::now();
  }

  std::shared_ptr<MediaPlayer> open(const std::string& path, PlayerOptions options = {}) {
    GstPlayerFactory factory(loop_, log_, options);
    return factory.createPlayer(path);
  }

  TimeObserverToken observe(MediaPlayer& player) {
    return player.addPeriodicTimeObserver(0.3, [this](double t) {
      ticks_.push_back({t, wall(), loop_->isLoopThread()});
    });
  }

  double wall() const { return std::chrono::duration<double>(Steady::now() - start_).count(); }

  static inline std::string folder_;
  static inline std::string clip_;
  std::shared_ptr<MainLoop> loop_ = std::make_shared<MainLoop>(MainContextChoice::Private);
  std::shared_ptr<LinuxLog> log_;
  std::vector<std::string> logLines_;
  std::vector<Tick> ticks_;
  Steady::time_point start_;
};

TEST_F(GstPlayerTest, PlaysInRealTimeWithTicksPauseSeekAndOneEndPerPlayThrough) {
  auto player = open(clip_);
  int ended = 0;
  player->setHoldsLastFrameAtEnd(true);
  player->setItemEndedHandler([&] { ++ended; });
  EXPECT_TRUE(player->hasCurrentItem());
  ASSERT_TRUE(loop_->runUntil([&] { return !std::isnan(player->duration()); }, 5));
  EXPECT_NEAR(player->duration(), kClipSeconds, 0.1);
  EXPECT_NEAR(player->currentTime(), 0.0, 0.01);

  const auto token = observe(*player);
  loop_->runFor(0.4);
  EXPECT_TRUE(ticks_.empty()) << "ticks before play";

  player->play();
  loop_->runFor(1.05);
  ASSERT_GE(ticks_.size(), 2u);
  EXPECT_LE(ticks_.size(), 4u);
  for (size_t i = 1; i < ticks_.size(); ++i) {
    EXPECT_NEAR(ticks_[i].media - ticks_[i - 1].media, 0.3, 0.1);
    EXPECT_TRUE(ticks_[i].onLoopThread);
  }

  player->pause();
  const size_t ticksAtPause = ticks_.size();
  const double pausedAt = player->currentTime();
  EXPECT_GT(pausedAt, 0.7);
  loop_->runFor(0.6);
  EXPECT_EQ(ticks_.size(), ticksAtPause);
  EXPECT_NEAR(player->currentTime(), pausedAt, 0.05);

  player->seek(0);
  ASSERT_TRUE(loop_->runUntil([&] { return player->currentTime() < 0.05; }, 2));
  const double replayStart = wall();
  player->play();
  ASSERT_TRUE(loop_->runUntil([&] { return ended > 0; }, 5));
  EXPECT_NEAR(wall() - replayStart, kClipSeconds, 0.35);  // real time, not as fast as possible
  EXPECT_NEAR(player->currentTime(), player->duration(), 0.05);

  const size_t ticksAtEnd = ticks_.size();
  loop_->runFor(0.5);
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(ticks_.size(), ticksAtEnd) << "ticks after the end";
  EXPECT_NEAR(player->currentTime(), player->duration(), 0.05);

  EXPECT_TRUE(player->removeTimeObserver(token));
  EXPECT_FALSE(player->removeTimeObserver(token));
  EXPECT_FALSE(player->removeTimeObserver(token + 100));
  EXPECT_TRUE(logLines_.empty()) << logLines_.front();
}

TEST_F(GstPlayerTest, PlaybackRateRunsMediaTimeFasterAndASeekReplaysToASecondEnd) {
  PlayerOptions options;
  options.playbackRate = 4.0;
  auto player = open(clip_, options);
  int ended = 0;
  player->setItemEndedHandler([&] { ++ended; });
  observe(*player);
  const double started = wall();
  player->play();
  ASSERT_TRUE(loop_->runUntil([&] { return ended == 1; }, 5));
  EXPECT_LT(wall() - started, 1.2);
  EXPECT_NEAR(player->currentTime(), kClipSeconds, 0.1);
  ASSERT_GE(ticks_.size(), 4u);
  for (size_t i = 1; i < ticks_.size(); ++i) {
    EXPECT_NEAR(ticks_[i].media - ticks_[i - 1].media, 0.3, 0.12) << "tick " << i;
    EXPECT_NEAR(ticks_[i].wall - ticks_[i - 1].wall, 0.075, 0.05);
  }

  // Rewinding a finished item plays it again, as the end card's replay does.
  player->seek(0);
  player->play();
  ASSERT_TRUE(loop_->runUntil([&] { return ended == 2; }, 5));
  loop_->runFor(0.2);
  EXPECT_EQ(ended, 2);
}

TEST_F(GstPlayerTest, AnUnplayableFileGivesAPlayerThatNeverProgresses) {
  const std::string garbage = folder_ + "/garbage.mp4";
  std::ofstream(garbage) << "this is not a video";
  for (const std::string& path : {folder_ + "/missing.mp4", garbage}) {
    auto player = open(path);
    int ended = 0;
    player->setItemEndedHandler([&] { ++ended; });
    observe(*player);
    player->play();
    loop_->runFor(0.5);
    EXPECT_TRUE(std::isnan(player->duration())) << path;
    EXPECT_EQ(player->currentTime(), 0.0);
    EXPECT_EQ(ended, 0);
  }
  EXPECT_TRUE(ticks_.empty());
  EXPECT_GE(logLines_.size(), 2u);
}

TEST_F(GstPlayerTest, TheOwnerMayDropThePlayerFromInsideItsOwnCallbacks) {
  PlayerOptions options;
  options.playbackRate = 4.0;
  auto player = open(clip_, options);
  int calls = 0;
  player->addPeriodicTimeObserver(0.3, [&](double) {
    ++calls;
    player.reset();  // closing the ad from a tick
  });
  player->play();
  ASSERT_TRUE(loop_->runUntil([&] { return player == nullptr; }, 5));
  loop_->runFor(0.3);
  EXPECT_EQ(calls, 1);

  auto second = open(clip_, options);
  second->setItemEndedHandler([&] { second.reset(); });
  second->play();
  EXPECT_TRUE(loop_->runUntil([&] { return second == nullptr; }, 5));
}

}  // namespace
}  // namespace tovani::linux
