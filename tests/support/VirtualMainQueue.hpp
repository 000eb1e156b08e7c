#pragma once
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "tovani/platform/MainQueue.hpp"

namespace tovani::test {

// A main queue on virtual time: nothing runs until the test moves time. Tasks run in
// due-time order, and in posting order among equal times. Tasks may be posted from any
// thread, as on a real queue; they run on the thread that moves time.
class VirtualMainQueue : public MainQueue {
 public:
  void post(Task task) override { postAfter(0, std::move(task)); }
  void postAfter(double seconds, Task task) override;

  double now() const { return now_; }
  // Runs every task due within the next `seconds`, moving time forward task by task.
  void advance(double seconds);
  // Runs every task due now, including those they post for now.
  void runUntilIdle() { advance(0); }
  // The thread is held (a blocking call): time passes and nothing runs meanwhile.
  void block(double seconds) { now_ += seconds > 0 ? seconds : 0; }

 private:
  std::mutex mutex_;
  double now_ = 0;
  uint64_t nextSeq_ = 0;
  std::map<std::pair<double, uint64_t>, Task> tasks_;
};

class VirtualClock : public Clock {
 public:
  explicit VirtualClock(const VirtualMainQueue& queue) : queue_(queue) {}
  double now() const override { return epoch_ + queue_.now(); }
  // Seconds since 1970 at virtual time zero.
  void setEpoch(double epoch) { epoch_ = epoch; }

 private:
  const VirtualMainQueue& queue_;
  double epoch_ = 1795262400;  // 2026-11-21 12:00:00 UTC
};

}  // namespace tovani::test
