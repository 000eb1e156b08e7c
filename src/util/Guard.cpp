#include "util/Guard.hpp"

#include <exception>
#include <string>

namespace tovani {

void runGuarded(Log* log, const std::function<void()>& work) noexcept {
  try {
    work();
  } catch (const std::exception& e) {
    if (log) log->write(std::string("tovani: contained error on the main queue: ") + e.what());
  } catch (...) {
    if (log) log->write("tovani: contained unknown error on the main queue");
  }
}

Task guarded(std::shared_ptr<Log> log, Task work) {
  return [log = std::move(log), work = std::move(work)]() { runGuarded(log.get(), work); };
}

}  // namespace tovani
