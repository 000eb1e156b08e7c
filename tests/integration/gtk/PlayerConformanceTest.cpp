// One contract for every media player the SDK can be given: the test platform's scripted
// player, the headless GStreamer player and the player that draws into the window. A fake that
// drifted from the real ones would fail here.
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gui/DesktopSession.hpp"
#include "support/ScriptedPlayer.hpp"
#include "tovani/gtk/GtkVideoPlayer.hpp"
#include "tovani/linux/GstPlayer.hpp"
#include "tovani/linux/LinuxDevice.hpp"

namespace tovani::test {
namespace {

constexpr double kClipSeconds = 2.0;

// A player under test and the main thread it reports on.
class PlayerRig {
 public:
  virtual ~PlayerRig() = default;
  virtual std::shared_ptr<MediaPlayer> open(const std::string& path) = 0;
  // Lets `seconds` of time pass on the main thread.
  virtual void run(double seconds) = 0;
  virtual bool onMainThread() const = 0;
  bool runUntil(const std::function<bool()>& done, double seconds) {
    for (double t = 0; t < seconds; t += 0.02) {
      if (done()) return true;
      run(0.02);
    }
    return done();
  }
};

class ScriptedRig final : public PlayerRig {
 public:
  std::shared_ptr<MediaPlayer> open(const std::string& path) override {
    factory_.defaultDuration = kClipSeconds;
    return factory_.createPlayer(path);
  }
  void run(double seconds) override { queue_->advance(seconds); }
  bool onMainThread() const override { return true; }

 private:
  std::shared_ptr<VirtualMainQueue> queue_ = std::make_shared<VirtualMainQueue>();
  ScriptedPlayerFactory factory_{queue_};
};

class GstRig final : public PlayerRig {
 public:
  explicit GstRig(bool inWindow)
      : loop_(std::make_shared<linux::MainLoop>(inWindow ? linux::MainContextChoice::Default
                                                         : linux::MainContextChoice::Private)),
        inWindow_(inWindow) {}
  std::shared_ptr<MediaPlayer> open(const std::string& path) override {
    auto log = std::make_shared<linux::LinuxLog>([](const std::string&) {});
    if (inWindow_) return gtk::GtkVideoPlayerFactory(loop_, log, {}).createPlayer(path);
    return linux::GstPlayerFactory(loop_, log, {}).createPlayer(path);
  }
  void run(double seconds) override { loop_->runFor(seconds); }
  bool onMainThread() const override { return loop_->isLoopThread(); }

 private:
  std::shared_ptr<linux::MainLoop> loop_;
  bool inWindow_;
};

struct RigKind {
  const char* name;
  std::function<std::unique_ptr<PlayerRig>()> make;
  bool needsDisplay;
};

class PlayerConformance : public ::testing::TestWithParam<RigKind> {
 protected:
  static void SetUpTestSuite() {
    char folder[] = "/tmp/tovani-conformance-XXXXXX";
    folder_ = mkdtemp(folder);
    const std::string command =
        "gst-launch-1.0 -q videotestsrc num-buffers=40 ! video/x-raw,width=160,height=120,"
        "framerate=20/1 ! x264enc speed-preset=ultrafast ! mp4mux ! filesink location=" +
        folder_ + "/clip.mp4";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(folder_); }
  void SetUp() override {
    if (GetParam().needsDisplay) {
      if (!demo::displayAvailable()) GTEST_SKIP() << "no display: run under xvfb-run";
      setenv("NO_AT_BRIDGE", "1", 1);
      gtk_init(nullptr, nullptr);
    }
    rig_ = GetParam().make();
  }
  static inline std::string folder_;
  std::unique_ptr<PlayerRig> rig_;
};

TEST_P(PlayerConformance, TicksInMediaTimeOnTheMainThreadPauseSeekAndOneEndOnTheLastFrame) {
  auto player = rig_->open(folder_ + "/clip.mp4");
  ASSERT_TRUE(player->hasCurrentItem());
  std::vector<double> ticks;
  bool offThread = false;
  int ended = 0;
  player->setHoldsLastFrameAtEnd(true);
  player->setItemEndedHandler([&] { ++ended; });
  const auto token = player->addPeriodicTimeObserver(0.3, [&](double t) {
    offThread |= !rig_->onMainThread();
    ticks.push_back(t);
  });
  ASSERT_TRUE(rig_->runUntil([&] { return !std::isnan(player->duration()); }, 5));
  EXPECT_NEAR(player->duration(), kClipSeconds, 0.1);
  EXPECT_TRUE(ticks.empty()) << "no ticks before play";

  player->play();
  ASSERT_TRUE(rig_->runUntil([&] { return ticks.size() >= 3; }, 3));
  player->pause();
  const size_t atPause = ticks.size();
  const double pausedAt = player->currentTime();
  rig_->run(0.7);
  EXPECT_EQ(ticks.size(), atPause) << "no ticks while paused";
  EXPECT_NEAR(player->currentTime(), pausedAt, 0.05);
  for (size_t i = 1; i < ticks.size(); ++i) EXPECT_NEAR(ticks[i] - ticks[i - 1], 0.3, 0.12);

  player->seek(1.4);
  rig_->run(0.3);
  EXPECT_NEAR(player->currentTime(), 1.4, 0.1);
  player->play();
  ASSERT_TRUE(rig_->runUntil([&] { return ended > 0; }, 3));
  rig_->run(0.5);
  EXPECT_EQ(ended, 1);
  EXPECT_NEAR(player->currentTime(), kClipSeconds, 0.1) << "the last frame stays";
  EXPECT_FALSE(offThread);
  EXPECT_TRUE(player->removeTimeObserver(token));
  EXPECT_FALSE(player->removeTimeObserver(token));
}

INSTANTIATE_TEST_SUITE_P(
    Players, PlayerConformance,
    ::testing::Values(RigKind{"scripted", [] { return std::make_unique<ScriptedRig>(); }, false},
                      RigKind{"headless", [] { return std::make_unique<GstRig>(false); }, false},
                      RigKind{"window", [] { return std::make_unique<GstRig>(true); }, true}),
    [](const auto& rig) { return std::string(rig.param.name); });

}  // namespace
}  // namespace tovani::test
