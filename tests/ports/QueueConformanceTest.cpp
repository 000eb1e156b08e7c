#include <chrono>
#include <thread>

#include "ports/Rigs.hpp"
#include "support/VirtualMainQueue.hpp"
#include "tovani/linux/MainLoop.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::ports {
namespace {

TEST_P(QueueConformance, PostedTasksRunLaterInPostingOrder) {
  std::vector<int> ran;
  for (int i = 0; i < 3; ++i) rig->queue().post([&ran, i] { ran.push_back(i); });
  EXPECT_TRUE(ran.empty()) << "never inside post";
  ASSERT_TRUE(rig->runUntil([&] { return ran.size() == 3; }, 2));
  EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
}

TEST_P(QueueConformance, DelayedTasksRunByDueTimeAndNotBefore) {
  std::vector<std::string> ran;
  double slowAt = -1;
  const double start = rig->now();
  rig->queue().postAfter(0.2, [&] {
    ran.push_back("slow");
    slowAt = rig->now();
  });
  rig->queue().postAfter(0.05, [&] { ran.push_back("fast"); });
  rig->queue().post([&] { ran.push_back("now"); });
  ASSERT_TRUE(rig->runUntil([&] { return ran.size() == 3; }, 3));
  EXPECT_EQ(ran, (std::vector<std::string>{"now", "fast", "slow"}));
  EXPECT_GE(slowAt - start, 0.2 - 1e-6);
}

TEST_P(QueueConformance, TasksPostedFromAnotherThreadRunOnTheQueuesThreadInOrder) {
  std::vector<int> ran;
  std::vector<std::thread::id> threads;
  std::thread poster([&] {
    for (int i = 0; i < 100; ++i) {
      rig->queue().post([&, i] {
        ran.push_back(i);
        threads.push_back(std::this_thread::get_id());
      });
    }
  });
  poster.join();
  ASSERT_TRUE(rig->runUntil([&] { return ran.size() == 100; }, 3));
  for (int i = 0; i < 100; ++i) ASSERT_EQ(ran[i], i);
  for (const auto& id : threads) ASSERT_EQ(id, std::this_thread::get_id());
}

struct VirtualQueueRig : QueueRig {
  MainQueue& queue() override { return queue_; }
  double now() const override { return queue_.now(); }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    for (double t = 0; t < seconds && !done(); t += 0.01) queue_.advance(0.01);
    return done();
  }
  test::VirtualMainQueue queue_;
};

struct GlibQueueRig : QueueRig {
  MainQueue& queue() override { return loop_; }
  double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    return loop_.runUntil(done, seconds);
  }
  linux::MainLoop loop_{linux::MainContextChoice::Private};
};

INSTANTIATE_TEST_SUITE_P(
    Ports, QueueConformance,
    ::testing::Values(
        RigMaker<QueueRig>{"VirtualMainQueue", [] { return std::make_unique<VirtualQueueRig>(); }},
        RigMaker<QueueRig>{"LinuxMainLoop", [] { return std::make_unique<GlibQueueRig>(); }}),
    rigName<QueueRig>);

}  // namespace
}  // namespace tovani::ports

#pragma pop_macro("linux")
