#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <future>
#include <optional>
#include <thread>

#include "socketio/Connection.h"

namespace koriva {

/// Has `run` run what waits in the context. A task of the library's that throws, for want of
/// memory, costs the connections of the environment and nothing else.
template <class Run>
std::size_t runSurviving(const socketio::Environment& environment, boost::asio::io_context& context,
                         Run run) {
  context.restart();
  try {
    return run(context);
  } catch (...) {
    try {
      boost::asio::post(environment.io(), [&environment] {
        socketio::Connection::endAll(environment, "out of memory");
      });
    } catch (...) {
      // The heartbeat tells what does not work any more.
    }
    return 1;
  }
}

/// Drives the network while the main thread does not. Belongs to the main thread.
class NetworkThread {
 public:
  using Clock = std::chrono::steady_clock;

  NetworkThread(boost::asio::io_context& io, const socketio::Environment& environment)
      : io_(io), environment_(environment) {}

  /// Throws a system_error when the system has no thread left.
  void start() {
    deadline_.reset();
    std::packaged_task<void()> task([this] { run(); });
    ended_ = task.get_future();
    thread_ = std::thread(std::move(task));
  }

  /// Ends the thread, if there is one: as soon as closing connections have sent what was sent
  /// before, and at the deadline.
  void end(Clock::time_point deadline) {
    if (!thread_.joinable()) return;
    askToEnd(deadline);
    thread_.join();
  }

  /// The same at the end of the process, from any thread. Waits until the deadline at most.
  void endAtExit(Clock::time_point deadline) {
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) return thread_.detach();
    askToEnd(deadline);
    const bool hasEnded = ended_.wait_until(deadline) == std::future_status::ready;
    hasEnded ? thread_.join() : thread_.detach();
  }

 private:
  void run() {
    while (!deadline_) runSurviving(environment_, io_, [](auto& io) { return io.run(); });
    const auto runOne = [this](auto& io) { return io.run_one_until(*deadline_); };
    while (environment_.isClosing() && runSurviving(environment_, io_, runOne) != 0) {
    }
  }

  void askToEnd(Clock::time_point deadline) {
    boost::asio::post(io_, [this, deadline] {
      deadline_ = deadline;
      io_.stop();
    });
  }

  boost::asio::io_context& io_;
  const socketio::Environment& environment_;
  std::thread thread_;
  std::future<void> ended_;
  std::optional<Clock::time_point> deadline_;  ///< the thread's own, once it has to end
};

}  // namespace koriva
