#include "support/VirtualMainQueue.hpp"

#include <algorithm>

namespace tovani::test {

void VirtualMainQueue::postAfter(double seconds, Task task) {
  std::lock_guard lock(mutex_);
  tasks_.emplace(std::make_pair(now_ + std::max(0.0, seconds), nextSeq_++), std::move(task));
}

void VirtualMainQueue::advance(double seconds) {
  std::unique_lock lock(mutex_);
  // A small tolerance keeps tasks scheduled at sums of 0.3 s from slipping past the end.
  const double end = now_ + seconds + 1e-9;
  while (!tasks_.empty() && tasks_.begin()->first.first <= end) {
    auto node = tasks_.extract(tasks_.begin());
    now_ = std::max(now_, node.key().first);
    lock.unlock();  // the task may post more
    node.mapped()();
    lock.lock();
  }
  now_ = std::max(now_, end - 1e-9);
}

}  // namespace tovani::test
