#include "support/VirtualMainQueue.hpp"

#include <algorithm>

namespace tovani::test {

void VirtualMainQueue::postAfter(double seconds, Task task) {
  tasks_.emplace(std::make_pair(now_ + std::max(0.0, seconds), nextSeq_++), std::move(task));
}

void VirtualMainQueue::advance(double seconds) {
  // A small tolerance keeps tasks scheduled at sums of 0.3 s from slipping past the end.
  const double end = now_ + seconds + 1e-9;
  while (!tasks_.empty() && tasks_.begin()->first.first <= end) {
    auto node = tasks_.extract(tasks_.begin());
    now_ = std::max(now_, node.key().first);
    node.mapped()();
  }
  now_ = std::max(now_, end - 1e-9);
}

}  // namespace tovani::test
