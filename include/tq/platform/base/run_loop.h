// RunLoop: a thread's event loop, on GLib's GMainContext.
//
// tqkit starts no thread and has no loop of its own: its event sources (store connections, timers)
// are attached to the GMainContext of the thread that creates them, and run when that context
// iterates. A GTK or Qt application (both iterate GLib's default context on their main thread)
// therefore receives tqkit's events with no glue. A host without a loop calls run() or runUntil().
//
// RunLoop is a cheap handle (it holds a reference to its context); copies designate the same loop.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

typedef struct _GMainContext GMainContext;
typedef struct _GSource GSource;

namespace tq {

// A source of events for a run loop (a GSource). Made by the objects that deliver events (a store
// connection makes one); the host adds it to a loop and removes it again. A source can be in one
// loop at a time and, once removed, not be added again.
class RunLoopSource {
 public:
  // Takes over one reference to the GSource.
  explicit RunLoopSource(GSource* source) noexcept : source_(source) {}
  ~RunLoopSource();
  RunLoopSource(const RunLoopSource&) = delete;
  RunLoopSource& operator=(const RunLoopSource&) = delete;

  GSource* gsource() const noexcept { return source_; }
  // Whether the source is in a loop now.
  bool isScheduled() const noexcept;

 private:
  GSource* source_;
};

class RunLoop {
 public:
  // The calling thread's loop: its thread-default GMainContext (g_main_context_ref_thread_default),
  // which on the main thread, and on any thread that pushed none, is GLib's global default context.
  static RunLoop current();
  // GLib's global default context (the main thread's).
  static RunLoop main();
  // The loop of a given context (takes a reference).
  explicit RunLoop(GMainContext* context);

  GMainContext* context() const noexcept { return context_.get(); }
  friend bool operator==(const RunLoop& a, const RunLoop& b) noexcept { return a.context() == b.context(); }

  // Attaches the source to this loop. Adding a source already in this loop does nothing.
  void addSource(const std::shared_ptr<RunLoopSource>& source);
  // Detaches the source if it is in this loop; a source in another loop (or none) is left alone.
  void removeSource(const std::shared_ptr<RunLoopSource>& source);

  // Runs the loop until stop() is called (from a callback or another thread).
  void run();
  // Runs the loop until stop() or the deadline, whichever comes first. Returns true when stopped by
  // stop(), false at the deadline.
  bool runUntil(std::chrono::steady_clock::time_point deadline);
  bool runFor(std::chrono::milliseconds duration) {
    return runUntil(std::chrono::steady_clock::now() + duration);
  }
  // One iteration: dispatches what is ready, waiting for something first when mayBlock is true.
  // Returns whether anything was dispatched.
  bool runOnce(bool mayBlock = false);
  // Makes the innermost run() or runUntil() of this loop return. Any thread.
  void stop();

  // Calls `callback` once, on this loop, after the delay. Returns the GLib source id.
  unsigned addTimer(std::chrono::milliseconds delay, std::function<void()> callback);

 private:
  struct ContextRef {
    void operator()(GMainContext* c) const noexcept;
  };
  std::shared_ptr<GMainContext> context_;
};

}  // namespace tq
