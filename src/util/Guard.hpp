#pragma once
#include <functional>
#include <memory>

#include "tovani/platform/Device.hpp"
#include "tovani/platform/MainQueue.hpp"

namespace tovani {

// The main-queue boundary: runs `work`, and logs and swallows anything it throws, so that
// no exception ever reaches the host's run loop.
void runGuarded(Log* log, const std::function<void()>& work) noexcept;

// Wraps a task so that it runs guarded.
Task guarded(std::shared_ptr<Log> log, Task work);

}  // namespace tovani
