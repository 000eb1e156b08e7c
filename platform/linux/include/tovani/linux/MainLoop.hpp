#pragma once
#include <functional>
#include <memory>
#include <string>

#include "tovani/Export.hpp"
#include "tovani/platform/MainQueue.hpp"

// Hosts built with GNU extensions see `linux` as a predefined macro; keep it away from the
// namespace name while this header is read.
#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

enum class MainContextChoice {
  // The process-wide default GLib context: the one a GTK or GStreamer host already runs.
  Default,
  // A context of its own, for a host that gives the SDK a thread of its own, and for tests.
  Private,
};

// The SDK's main queue on a GLib main context. post and postAfter may be called from any
// thread; tasks run on whichever thread runs the loop (run, runFor, runUntil), which thereby
// is the SDK's main thread. Destroy it on that thread, when the loop is not running: tasks
// still pending are dropped, never run.
class TOVANI_EXPORT MainLoop final : public MainQueue {
 public:
  explicit MainLoop(MainContextChoice context = MainContextChoice::Default);
  ~MainLoop() override;
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  void post(Task task) override;
  void postAfter(double seconds, Task task) override;

  // Runs the loop on the calling thread until quit().
  void run();
  // Ends run(), runFor() or runUntil() soon; safe from any thread.
  void quit();
  // Runs the loop for `seconds` (or until quit()).
  void runFor(double seconds);
  // Runs the loop until `done()` holds, checked after every dispatch and every 10 ms; false on
  // time-out or quit().
  bool runUntil(const std::function<bool()>& done, double timeoutSeconds);

  // True on the thread that is currently running this loop.
  bool isLoopThread() const;
  // Where a task that throws is reported (the exception stops at the loop); stderr by default.
  void setErrorReporter(std::function<void(const std::string&)> reporter);
  // The longest time one posted task has taken since creation or the last reset, in seconds:
  // how long the main thread was held at once. Any thread.
  double longestTaskSeconds() const;
  // The same in processor time of the loop thread: the task's own work, whatever else the
  // machine runs, without the time it spent waiting.
  double longestTaskCpuSeconds() const;
  void resetLongestTask();
  // The GMainContext*, for hosts that attach their own sources.
  void* nativeContext() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Wall-clock time from the system clock.
class TOVANI_EXPORT SystemClock final : public Clock {
 public:
  double now() const override;
};

}  // namespace tovani::linux

#pragma pop_macro("linux")
