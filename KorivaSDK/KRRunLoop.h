#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "extensions/KRExport.h"

/// \file
/// The loop on which the library calls the application.

/// The loop on which the library calls the application: every completion, delegate call, queued
/// task and timer tick runs on the thread that drives it, one at a time and in order. That thread
/// is the *main thread* of the documentation.
///
/// Programs without a main loop of their own call `run()`: it drives everything, the network
/// included, on the calling thread. A callback that blocks for longer than the server's ping
/// time-out (some 20 seconds) then costs the connection.
///
/// Applications that own a main loop (a desktop toolkit's, a mobile platform's) call `attach()`
/// once at the start and `poll()` whenever they are woken; the network then runs on one thread of
/// the library's.
///
/// An exception that escapes an application callback does not unwind through the library: what
/// else the event brings still runs, then the first exception is rethrown from the call that
/// drives the loop, which can be called again.
class KR_EXPORT KRRunLoop {
 public:
  /// The one loop. It is never destroyed.
  static KRRunLoop& main();

  /// Drives the loop until `stop()`, also while there is nothing to do.
  void run();

  /// Drives the loop for this long, or until `stop()`.
  void runFor(std::chrono::steady_clock::duration duration);

  /// Runs what is ready, and returns.
  void poll();

  /// Makes the current `run()` or `runFor()` return; with none under way, the next. A connection
  /// that is being left gets up to a second to send what was sent before. From any thread.
  void stop();

  /// Runs `task` on the main thread, after what was posted before, never before this call returns.
  /// From any thread.
  void post(std::function<void()> task);

  /// Moves the network to a thread of the library's. From then on `wakeUp` is called, on that
  /// thread, whenever `poll()` has become worth calling on the main thread; once until the next
  /// `poll()`. It should only pass the word on to the application's loop. An idle connection
  /// wakes nobody but for heartbeats and the client's 10-second timer.
  ///
  /// Call it before the first `login`. Returns false, and changes nothing, when it is too late,
  /// was done before, `wakeUp` is empty, or the system has no thread or descriptors left for it.
  bool attach(std::function<void()> wakeUp);

  KRRunLoop(const KRRunLoop&) = delete;
  KRRunLoop& operator=(const KRRunLoop&) = delete;

  struct Internals;
  /// Not for applications: what the client runs on.
  Internals& internals() { return *internals_; }

 private:
  KRRunLoop();
  ~KRRunLoop();

  std::unique_ptr<Internals> internals_;
};
