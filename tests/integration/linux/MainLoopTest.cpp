#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tovani/linux/MainLoop.hpp"

namespace tovani::linux {
namespace {

using Steady = std::chrono::steady_clock;

double secondsSince(Steady::time_point start) {
  return std::chrono::duration<double>(Steady::now() - start).count();
}

TEST(MainLoop, TasksFromManyThreadsRunOnTheLoopThreadInPostingOrder) {
  MainLoop loop(MainContextChoice::Private);
  const auto loopThread = std::this_thread::get_id();
  constexpr int kThreads = 4;
  constexpr int kPerThread = 300;
  std::map<int, std::vector<int>> seen;  // touched on the loop thread only
  int offLoop = 0;
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        loop.post([&, t, i] {
          if (std::this_thread::get_id() != loopThread || !loop.isLoopThread()) ++offLoop;
          seen[t].push_back(i);
        });
      }
    });
  }
  for (auto& poster : posters) poster.join();
  ASSERT_TRUE(loop.runUntil(
      [&] {
        size_t total = 0;
        for (auto& [t, list] : seen) total += list.size();
        return total == kThreads * kPerThread;
      },
      5.0));
  EXPECT_EQ(offLoop, 0);
  for (auto& [t, list] : seen) {
    for (int i = 0; i < kPerThread; ++i) ASSERT_EQ(list[i], i) << "poster " << t;
  }
  EXPECT_FALSE(loop.isLoopThread());  // only while the loop runs
}

TEST(MainLoop, APostedTaskNeverRunsInsideThePostingCall) {
  MainLoop loop(MainContextChoice::Private);
  std::vector<std::string> order;
  loop.post([&] {
    order.push_back("outer begins");
    loop.post([&] { order.push_back("inner"); });
    order.push_back("outer ends");
  });
  EXPECT_TRUE(order.empty());
  loop.runUntil([&] { return order.size() == 3; }, 2.0);
  EXPECT_EQ(order, (std::vector<std::string>{"outer begins", "outer ends", "inner"}));
}

TEST(MainLoop, DelayedTasksWaitTheirTimeAndPendingOnesDieWithTheLoop) {
  auto sentinel = std::make_shared<int>(0);
  {
    MainLoop loop(MainContextChoice::Private);
    const auto start = Steady::now();
    double ranAfter = -1;
    bool ranOnLoop = false;
    std::thread([&] {
      loop.postAfter(0.25, [&] {
        ranAfter = secondsSince(start);
        ranOnLoop = loop.isLoopThread();
      });
    }).join();
    loop.postAfter(30.0, [sentinel] { ++*sentinel; });
    EXPECT_TRUE(loop.runUntil([&] { return ranAfter >= 0; }, 3.0));
    EXPECT_GE(ranAfter, 0.24);
    EXPECT_LT(ranAfter, 0.6);
    EXPECT_TRUE(ranOnLoop);

    const auto waitStart = Steady::now();
    EXPECT_FALSE(loop.runUntil([] { return false; }, 0.2));
    EXPECT_NEAR(secondsSince(waitStart), 0.2, 0.1);
    EXPECT_EQ(sentinel.use_count(), 2);
  }
  // The 30-second task was released without running when its loop went away.
  EXPECT_EQ(sentinel.use_count(), 1);
  EXPECT_EQ(*sentinel, 0);
}

TEST(MainLoop, AThrowingTaskIsReportedAndTheLoopCarriesOn) {
  MainLoop loop(MainContextChoice::Private);
  std::vector<std::string> reports;
  loop.setErrorReporter([&](const std::string& line) { reports.push_back(line); });
  bool after = false;
  loop.post([] { throw std::runtime_error("boom"); });
  loop.post([&] { after = true; });
  EXPECT_TRUE(loop.runUntil([&] { return after; }, 2.0));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_NE(reports[0].find("boom"), std::string::npos);
}

TEST(MainLoop, QuitFromAnotherThreadEndsRun) {
  MainLoop loop(MainContextChoice::Private);
  std::atomic<int> ticks = 0;
  loop.post([&] { ++ticks; });
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    loop.quit();
  });
  const auto start = Steady::now();
  loop.run();
  stopper.join();
  EXPECT_EQ(ticks, 1);
  EXPECT_LT(secondsSince(start), 2.0);
}

}  // namespace
}  // namespace tovani::linux
