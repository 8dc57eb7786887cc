#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "extensions/KRExport.h"

/// The loop on which the library calls the application: every completion, delegate call, queued
/// task and timer tick runs on the thread that drives it, one at a time and in order. That thread
/// is the *main thread* of the documentation.
///
/// Programs without a main loop of their own call `run()`: it drives everything, the network
/// included, on the calling thread. A callback that blocks for longer than the server's ping
/// time-out (some 20 seconds) then costs the connection.
///
/// Applications that own a main loop (a desktop toolkit's, a mobile platform's) call `attach()`
/// and from then on `poll()` whenever they are woken; the network then runs on one thread of the
/// library's, until `detach()` or the end of the process. At `exit()` a connection that is being
/// left has up to a second to send what was sent before.
///
/// An exception that escapes an application callback does not unwind through the library: what
/// else the event brings still runs, then the first exception is rethrown from the call that
/// drives the loop, which can be called again.
///
/// A callback may drive the loop, too. When eight such calls are under way, each within a callback
/// of the one before, a further one returns at once. In a process that was forked off, every call
/// returns at once and does nothing.
///
/// Functions belong to the main thread unless they say otherwise.
class KR_EXPORT KRRunLoop {
 public:
  /// The one loop. It is never destroyed. From any thread.
  static KRRunLoop& main();

  /// Drives the loop until `stop()`, also while there is nothing to do.
  void run();

  /// Drives the loop for this long, or until `stop()`.
  void runFor(std::chrono::steady_clock::duration duration);

  /// Runs what is ready, and returns.
  void poll();

  /// Makes every `run()` and `runFor()` under way return; with none under way, the next one. When
  /// the outermost ends with an exception instead, the next one returns at once. What waits to be
  /// run is left to the next call, but a connection that is being left gets up to a second to send
  /// what was sent before, in which callbacks may still come. From any thread.
  void stop();

  /// Runs `task` on the main thread, after what was posted before, never before this call returns.
  /// From any thread.
  void post(std::function<void()> task);

  /// Moves the network to a thread of the library's. From then on `wakeUp` is called, on that
  /// thread, whenever `poll()` has become worth calling on the main thread; once until the next
  /// `poll()`. It should only pass the word on to the application's loop. When it throws, the next
  /// call that drives the loop rethrows that, and `wakeUp` is called again. An idle connection
  /// wakes nobody but for heartbeats and the client's 10-second timer.
  ///
  /// Returns false, and changes nothing, within a callback, when it was done before, when `wakeUp`
  /// is empty, while a test server lives, or when the system has no thread or descriptors left.
  bool attach(std::function<void()> wakeUp);

  /// Undoes `attach`: `run()`, `runFor()` and `poll()` drive everything again, and `attach` may be
  /// called again. Closes the connections, which have up to a second to send what was sent before;
  /// delegates hear `didDisconnect`, and whatever else has not been told, before this returns, and
  /// clients connect again when their time has come, unless they are logged out. `wakeUp` is never
  /// called again and is destroyed. May be called within a callback. Does nothing unless attached.
  ///
  /// Waits for a `wakeUp` that is under way, which must not wait for the main thread then.
  /// Exceptions of callbacks are thrown as `poll()` throws them, once everything is undone.
  void detach();

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
