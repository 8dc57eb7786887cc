#pragma once

#include <atomic>
#include <boost/asio/basic_waitable_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>

#include "socketio/Executors.h"

namespace koriva::socketio {

using Clock = std::chrono::steady_clock;
using Timer = boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>, Executor>;

/// A timer that waits on the I/O executor and runs its task on the handle queue.
/// Both functions may be called from any thread, and take effect in call order.
class Alarm : public std::enable_shared_from_this<Alarm> {
 public:
  explicit Alarm(const Executors& executors) : executors_(executors), timer_(executors.io()) {}

  /// Replaces what was set before. With a period the task is repeated until it is replaced or
  /// cancelled, but for turns that come before it could run; else it is destroyed once it has run.
  void set(Clock::time_point when, std::function<void()> task, Clock::duration period = {});
  void cancel();

 private:
  void wait(Clock::time_point when, std::function<void()> task, Clock::duration period);

  const Executors& executors_;
  Timer timer_;
  std::atomic<bool> isDue_ = false;  ///< a repeated task waits to be run
};

}  // namespace koriva::socketio
