#include "tq/platform/base/run_loop.h"

#include <glib.h>

#include <mutex>
#include <unordered_map>
#include <vector>

namespace tq {

RunLoopSource::~RunLoopSource() {
  if (source_) {
    if (!g_source_is_destroyed(source_) && g_source_get_context(source_)) g_source_destroy(source_);
    g_source_unref(source_);
  }
}

bool RunLoopSource::isScheduled() const noexcept {
  // A destroyed source may have lost its context; ask whether it is destroyed first.
  return source_ && !g_source_is_destroyed(source_) && g_source_get_context(source_);
}

void RunLoop::ContextRef::operator()(GMainContext* c) const noexcept {
  if (c) g_main_context_unref(c);
}

RunLoop::RunLoop(GMainContext* context)
    : context_(g_main_context_ref(context ? context : g_main_context_default()), ContextRef{}) {}

RunLoop RunLoop::current() {
  GMainContext* c = g_main_context_ref_thread_default();
  RunLoop loop(c);
  g_main_context_unref(c);
  return loop;
}

RunLoop RunLoop::main() { return RunLoop(g_main_context_default()); }

void RunLoop::addSource(const std::shared_ptr<RunLoopSource>& source) {
  if (!source || !source->gsource()) return;
  GSource* s = source->gsource();
  if (g_source_is_destroyed(s) || g_source_get_context(s)) return;
  g_source_attach(s, context());
}

void RunLoop::removeSource(const std::shared_ptr<RunLoopSource>& source) {
  if (!source || !source->gsource()) return;
  GSource* s = source->gsource();
  if (!g_source_is_destroyed(s) && g_source_get_context(s) == context()) g_source_destroy(s);
}

namespace {

// The GMainLoops currently running per context, innermost last, so that stop() can quit the
// innermost one from any thread.
std::mutex gLoopsMutex;
std::unordered_map<GMainContext*, std::vector<GMainLoop*>>& runningLoops() {
  static std::unordered_map<GMainContext*, std::vector<GMainLoop*>> loops;
  return loops;
}

struct RunningLoop {
  GMainContext* context;
  GMainLoop* loop;
  explicit RunningLoop(GMainContext* c) : context(c), loop(g_main_loop_new(c, FALSE)) {
    std::lock_guard<std::mutex> lock(gLoopsMutex);
    runningLoops()[context].push_back(loop);
  }
  ~RunningLoop() {
    {
      std::lock_guard<std::mutex> lock(gLoopsMutex);
      auto& v = runningLoops()[context];
      std::erase(v, loop);
      if (v.empty()) runningLoops().erase(context);
    }
    g_main_loop_unref(loop);
  }
};

// Runs the loop with this context pushed as the thread default, so that sources created by the
// callbacks land in it.
void runPushed(GMainContext* c, GMainLoop* loop) {
  bool acquired = g_main_context_acquire(c);
  g_main_context_push_thread_default(c);
  g_main_loop_run(loop);
  g_main_context_pop_thread_default(c);
  if (acquired) g_main_context_release(c);
}

}  // namespace

void RunLoop::run() {
  RunningLoop running(context());
  runPushed(context(), running.loop);
}

bool RunLoop::runUntil(std::chrono::steady_clock::time_point deadline) {
  using namespace std::chrono;
  auto remaining = duration_cast<milliseconds>(deadline - steady_clock::now());
  if (remaining.count() <= 0) {
    while (runOnce(false)) {
    }
    return false;
  }
  RunningLoop running(context());
  struct TimeoutState {
    GMainLoop* loop;
    bool fired = false;
  } state{running.loop};
  GSource* timeout = g_timeout_source_new(static_cast<guint>(remaining.count()));
  g_source_set_callback(
      timeout,
      [](gpointer data) -> gboolean {
        auto* st = static_cast<TimeoutState*>(data);
        st->fired = true;
        g_main_loop_quit(st->loop);
        return G_SOURCE_REMOVE;
      },
      &state, nullptr);
  g_source_attach(timeout, context());
  runPushed(context(), running.loop);
  g_source_destroy(timeout);
  g_source_unref(timeout);
  return !state.fired;
}

bool RunLoop::runOnce(bool mayBlock) { return g_main_context_iteration(context(), mayBlock); }

void RunLoop::stop() {
  std::lock_guard<std::mutex> lock(gLoopsMutex);
  auto it = runningLoops().find(context());
  if (it != runningLoops().end() && !it->second.empty()) g_main_loop_quit(it->second.back());
  g_main_context_wakeup(context());
}

unsigned RunLoop::addTimer(std::chrono::milliseconds delay, std::function<void()> callback) {
  GSource* timer = g_timeout_source_new(static_cast<guint>(delay.count() < 0 ? 0 : delay.count()));
  auto* fn = new std::function<void()>(std::move(callback));
  g_source_set_callback(
      timer,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      fn, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
  unsigned id = g_source_attach(timer, context());
  g_source_unref(timer);
  return id;
}

}  // namespace tq
