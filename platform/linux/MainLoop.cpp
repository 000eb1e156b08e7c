#include "tovani/linux/MainLoop.hpp"

#include <glib.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <deque>
#include <exception>
#include <mutex>
#include <set>

namespace tovani::linux {

namespace {

guint toMilliseconds(double seconds) {
  if (!(seconds > 0)) return 0;
  const double ms = std::ceil(seconds * 1000.0);
  return ms >= 4.0e9 ? 4000000000u : static_cast<guint>(ms);
}

struct LoopState {
  GMainContext* context = nullptr;
  GMainLoop* loop = nullptr;
  GSource* taskSource = nullptr;
  std::mutex mutex;
  std::deque<Task> tasks;
  std::set<GSource*> timers;  // postAfter sources not yet fired; each holds one ref of ours
  std::function<void(const std::string&)> reporter;
  std::atomic<bool> quitRequested{false};
  std::atomic<std::int64_t> longestTaskNs{0};
  std::atomic<std::int64_t> longestTaskCpuNs{0};

  bool hasTasks() {
    std::lock_guard lock(mutex);
    return !tasks.empty();
  }

  static std::int64_t threadCpuNs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
  }

  static void keepLongest(std::atomic<std::int64_t>& longest, std::int64_t ns) {
    std::int64_t seen = longest.load();
    while (ns > seen && !longest.compare_exchange_weak(seen, ns)) {
    }
  }

  void runGuarded(Task& task) {
    const auto start = std::chrono::steady_clock::now();
    const std::int64_t cpuStart = threadCpuNs();
    runCaught(task);
    keepLongest(longestTaskCpuNs, threadCpuNs() - cpuStart);
    keepLongest(longestTaskNs, std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::steady_clock::now() - start)
                                   .count());
  }

  void runCaught(Task& task) {
    try {
      task();
    } catch (const std::exception& e) {
      report(std::string("main queue task failed: ") + e.what());
    } catch (...) {
      report("main queue task failed with an unknown exception");
    }
  }

  void report(const std::string& text) {
    try {
      if (reporter) {
        reporter(text);
        return;
      }
    } catch (...) {
      // A failing reporter must not unwind through GLib either; stderr still gets the line.
    }
    std::fprintf(stderr, "[tovani] %s\n", text.c_str());
  }

  void drain() {
    std::deque<Task> batch;
    {
      std::lock_guard lock(mutex);
      batch.swap(tasks);
    }
    // Tasks posted while this batch runs wait for the next dispatch, so a task that posts
    // itself again cannot starve the other sources of the context.
    for (auto& task : batch) runGuarded(task);
  }
};

// A custom source that is ready whenever tasks are queued: one source for the whole queue,
// drained in posting order, rather than a source created and attached for every task.
struct TaskSource {
  GSource base;
  LoopState* state;
};

LoopState* implOf(GSource* source) {
  return reinterpret_cast<TaskSource*>(source)->state;
}

gboolean taskPrepare(GSource* source, gint* timeout) {
  *timeout = -1;
  return implOf(source)->hasTasks() ? TRUE : FALSE;
}

gboolean taskCheck(GSource* source) {
  return implOf(source)->hasTasks() ? TRUE : FALSE;
}

gboolean taskDispatch(GSource* source, GSourceFunc, gpointer) {
  implOf(source)->drain();
  return G_SOURCE_CONTINUE;
}

GSourceFuncs taskSourceFuncs = {taskPrepare, taskCheck, taskDispatch, nullptr, nullptr, nullptr};

struct DelayedTask {
  LoopState* impl;
  GSource* source;
  Task task;
};

gboolean runDelayed(gpointer data) {
  auto* delayed = static_cast<DelayedTask*>(data);
  auto* impl = delayed->impl;
  bool owned = false;
  {
    std::lock_guard lock(impl->mutex);
    owned = impl->timers.erase(delayed->source) > 0;
  }
  // The context keeps its own reference while dispatching, so ours can go first.
  if (owned) g_source_unref(delayed->source);
  impl->runGuarded(delayed->task);
  return G_SOURCE_REMOVE;
}

void freeDelayed(gpointer data) {
  delete static_cast<DelayedTask*>(data);
}

gboolean wakeOnly(gpointer) {
  return G_SOURCE_REMOVE;
}
gboolean keepWaking(gpointer) {
  return G_SOURCE_CONTINUE;
}
constexpr guint kConditionPollMs = 10;

}  // namespace

struct MainLoop::Impl : LoopState {};

MainLoop::MainLoop(MainContextChoice choice) : impl_(std::make_unique<Impl>()) {
  impl_->context = choice == MainContextChoice::Default
                       ? g_main_context_ref(g_main_context_default())
                       : g_main_context_new();
  impl_->loop = g_main_loop_new(impl_->context, FALSE);
  impl_->taskSource = g_source_new(&taskSourceFuncs, sizeof(TaskSource));
  // The source finds the queue through this pointer; the state outlives the source.
  reinterpret_cast<TaskSource*>(impl_->taskSource)->state = impl_.get();
  g_source_set_name(impl_->taskSource, "tovani main queue");
  g_source_attach(impl_->taskSource, impl_->context);
}

MainLoop::~MainLoop() {
  std::set<GSource*> timers;
  std::deque<Task> dropped;
  {
    std::lock_guard lock(impl_->mutex);
    timers.swap(impl_->timers);
    dropped.swap(impl_->tasks);
  }
  // Released outside the lock: what a task captured may post from its destructor.
  dropped.clear();
  for (GSource* source : timers) {
    g_source_destroy(source);
    g_source_unref(source);
  }
  g_source_destroy(impl_->taskSource);
  g_source_unref(impl_->taskSource);
  g_main_loop_unref(impl_->loop);
  g_main_context_unref(impl_->context);
}

void MainLoop::post(Task task) {
  if (!task) return;
  {
    std::lock_guard lock(impl_->mutex);
    impl_->tasks.push_back(std::move(task));
  }
  g_main_context_wakeup(impl_->context);
}

void MainLoop::postAfter(double seconds, Task task) {
  if (!task) return;
  GSource* source = g_timeout_source_new(toMilliseconds(seconds));
  auto* delayed = new DelayedTask{impl_.get(), source, std::move(task)};
  g_source_set_callback(source, runDelayed, delayed, freeDelayed);
  {
    // Registered before it can fire, so the callback always finds it.
    std::lock_guard lock(impl_->mutex);
    impl_->timers.insert(source);
  }
  g_source_attach(source, impl_->context);
}

void MainLoop::run() {
  impl_->quitRequested = false;
  g_main_context_push_thread_default(impl_->context);
  g_main_loop_run(impl_->loop);
  g_main_context_pop_thread_default(impl_->context);
}

double MainLoop::longestTaskSeconds() const {
  return static_cast<double>(impl_->longestTaskNs.load()) / 1e9;
}

double MainLoop::longestTaskCpuSeconds() const {
  return static_cast<double>(impl_->longestTaskCpuNs.load()) / 1e9;
}

void MainLoop::resetLongestTask() {
  impl_->longestTaskNs = 0;
  impl_->longestTaskCpuNs = 0;
}

void MainLoop::quit() {
  impl_->quitRequested = true;
  g_main_loop_quit(impl_->loop);
  g_main_context_wakeup(impl_->context);
}

void MainLoop::runFor(double seconds) {
  runUntil([] { return false; }, seconds);
}

bool MainLoop::runUntil(const std::function<bool()>& done, double timeoutSeconds) {
  using Steady = std::chrono::steady_clock;
  impl_->quitRequested = false;
  const auto deadline =
      Steady::now() + std::chrono::duration_cast<Steady::duration>(
                          std::chrono::duration<double>(std::max(0.0, timeoutSeconds)));
  // Wakes the blocking iteration at the deadline, and every few milliseconds so that a
  // condition changed by another thread is seen without any event on this context.
  GSource* wake = g_timeout_source_new(toMilliseconds(timeoutSeconds));
  g_source_set_callback(wake, wakeOnly, nullptr, nullptr);
  g_source_attach(wake, impl_->context);
  GSource* poll = g_timeout_source_new(kConditionPollMs);
  g_source_set_callback(poll, keepWaking, nullptr, nullptr);
  g_source_attach(poll, impl_->context);
  g_main_context_push_thread_default(impl_->context);
  bool reached = done();
  while (!reached && !impl_->quitRequested && Steady::now() < deadline) {
    g_main_context_iteration(impl_->context, TRUE);
    reached = done();
  }
  g_main_context_pop_thread_default(impl_->context);
  for (GSource* source : {wake, poll}) {
    g_source_destroy(source);
    g_source_unref(source);
  }
  return reached;
}

bool MainLoop::isLoopThread() const {
  return g_main_context_is_owner(impl_->context) != FALSE;
}

void MainLoop::setErrorReporter(std::function<void(const std::string&)> reporter) {
  impl_->reporter = std::move(reporter);
}

void* MainLoop::nativeContext() const {
  return impl_->context;
}

double SystemClock::now() const {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace tovani::linux
