#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <future>
#include <optional>
#include <thread>

#include "socketio/Connection.h"

namespace koriva {

/// Drives the network while the main thread does not. Belongs to the main thread.
class NetworkThread {
 public:
  using Clock = std::chrono::steady_clock;

  NetworkThread(boost::asio::io_context& io, const socketio::Environment& environment)
      : io_(io), environment_(environment) {}

  /// Throws a system_error when the system has no thread left.
  void start();

  /// Ends the thread, if there is one: as soon as closing connections have sent what was sent
  /// before, and at the deadline.
  void end(Clock::time_point deadline);

  /// The same at the end of the process, from any thread. Waits until the deadline at most.
  void endAtExit(Clock::time_point deadline);

 private:
  void run();
  void askToEnd(Clock::time_point deadline);

  boost::asio::io_context& io_;
  const socketio::Environment& environment_;
  std::thread thread_;
  std::future<void> ended_;
  std::optional<Clock::time_point> deadline_;  ///< the thread's own, once it has to end
};

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

}  // namespace koriva
