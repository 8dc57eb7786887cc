#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <exception>
#include <memory>

#include "KorivaSDK/KRRunLoop.h"
#include "KorivaSDK/Stage.h"
#include "socketio/Environment.h"
#include "socketio/Platform.h"

namespace koriva {
class NetworkThread;
}

/// Belongs to the main thread, but for what says otherwise.
struct KRRunLoop::Internals {
  using TimePoint = koriva::socketio::TimePoint;
  using Duration = koriva::socketio::Duration;
  using WorkGuard = boost::asio::executor_work_guard<boost::asio::io_context::executor_type>;

  Internals();

  /// The environment of every connection.
  [[nodiscard]] const koriva::socketio::Environment& environment() const { return environment_; }

  /// Makes what timers wait with, unless it is there. False while no descriptors are left for it.
  bool prepareToWait();

  /// Keeps an exception, to be rethrown by the call that drives the loop.
  void keepException(std::exception_ptr exception);
  void interrupt();

  [[nodiscard]] bool canDrive() const;
  template <class Go>
  void drive(Go go);
  void runFor(Duration duration);
  bool runOneUntil(TimePoint end);
  void runOnStage(Duration duration);
  void finishClosing();
  void runReady(bool endsWhenStopped);
  template <class Run>
  std::size_t runOne(Run run);
  [[nodiscard]] bool isOver() const {
    return kept || stopRequested || koriva::platform::isForkedChild();
  }

  /// Leaves the network to another thread, on which `wakeUp` is called; takes it back without one.
  void divide(std::function<void()> wakeUp);
  /// Has the other thread close all connections, and wake nobody any more.
  void leave();
  /// Takes the network back, and delivers what was left.
  void unite();

  void onHandlerPosted();  ///< from any thread
  void wake();             ///< from both
  void takeTurn();         ///< on the I/O executor, as what follows
  void callWakeUp();

  boost::asio::io_context io;     ///< the network, driven by the main thread unless attached
  boost::asio::io_context ready;  ///< what the main thread has to do
  const WorkGuard ioWork{io.get_executor()};
  const WorkGuard readyWork{ready.get_executor()};
  koriva::socketio::Environment environment_{io.get_executor(), ready.get_executor(),
                                             [this] { onHandlerPosted(); }};
  std::shared_ptr<koriva::testing::Stage> stage;  ///< null unless a test is on
  const std::unique_ptr<koriva::NetworkThread> networkThread;

  int depth = 0;            ///< calls that drive the loop, each within a callback of the one before
  std::exception_ptr kept;  ///< of the innermost
  int marks = 0;  ///< in `ready`: for the tasks in front of them no turn is to come in `io`
  // From any thread.
  std::atomic<int> runs = 0;  ///< those that can be stopped
  std::atomic<bool> stopRequested = false;
  std::atomic<bool> isAttached = false;
  std::atomic<bool> isWoken = false;  ///< and has not polled since

  std::function<void()> wakeUp_;
  std::shared_ptr<koriva::socketio::Timer> retry;  ///< of a `wakeUp` that has thrown
  std::atomic<bool> hasWakeUpThrown = false;       ///< and nobody has been told
};

namespace koriva {

/// Runs application code. What it throws goes to the call that drives the run loop.
template <class Code>
void guarded(Code&& code) {
  auto& loop = KRRunLoop::main().internals();
  try {
    std::forward<Code>(code)();
  } catch (...) {
    loop.keepException(std::current_exception());
  }
  if (loop.isOver()) loop.interrupt();
}

}  // namespace koriva
