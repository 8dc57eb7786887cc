#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "KorivaSDK/KRRunLoop.h"
#include "KorivaSDK/Stage.h"
#include "socketio/Environment.h"

struct KRRunLoop::Internals {
  using WorkGuard = boost::asio::executor_work_guard<boost::asio::io_context::executor_type>;

  /// The environment of every connection. The first call settles whether there is a network thread.
  const koriva::socketio::Environment& environment();

  /// Makes what timers wait with, unless it is there. False while no descriptors are left for it.
  bool prepareToWait();

  /// Keeps the exception that is being handled, to be rethrown by the call that drives the loop.
  void keepException(std::exception_ptr exception);
  void rethrowKept();
  void wake();
  /// Whether connections are being closed that still have something to send.
  bool isSayingFarewell();
  /// Gives the network a context of its own, which somebody else runs.
  void divide(std::function<void()> wakeMain);
  void runReady();
  void runOnStage(std::chrono::steady_clock::duration duration);
  void finishFarewells();
  void endNetwork();

  boost::asio::io_context context;  ///< the main thread's, and the network's unless attached
  WorkGuard work{context.get_executor()};
  std::exception_ptr kept;
  std::atomic<bool> stopRequested = false;
  std::atomic<bool> running = false;

  /// Holds as many descriptors as a context needs that waits, for the first login: they may have
  /// run out by then, and only then is it known which context does.
  std::unique_ptr<boost::asio::io_context> reserve = std::make_unique<boost::asio::io_context>();

  std::mutex setUpMutex;
  std::optional<koriva::socketio::Environment> environment_;
  std::shared_ptr<koriva::testing::Stage> stage;  ///< null unless a test is on
  boost::asio::io_context network;
  WorkGuard networkWork{network.get_executor()};
  std::thread networkThread;
  std::function<void()> wakeUp;  ///< empty unless attached
  std::atomic<bool> attached = false;
  std::atomic<bool> woken = false;
};

namespace koriva {

/// Runs application code. What it throws goes to the call that drives the run loop.
template <class Code>
void guarded(Code&& code) {
  try {
    std::forward<Code>(code)();
  } catch (...) {
    KRRunLoop::main().internals().keepException(std::current_exception());
  }
}

}  // namespace koriva
