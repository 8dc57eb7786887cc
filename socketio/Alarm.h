#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "socketio/Environment.h"

namespace koriva::socketio {

/// A timer that waits on the I/O executor and runs its task on the handle queue.
/// Both functions may be called from any thread, and take effect in call order.
class Alarm : public std::enable_shared_from_this<Alarm> {
 public:
  explicit Alarm(const Environment& environment)
      : environment_(environment), clock_(environment.clock()), timer_(clock_->makeTimer()) {}

  /// Replaces what was set before. With a period the task is repeated until it is replaced or
  /// cancelled, but for turns that come before it could run; else it is destroyed once it has run.
  void set(TimePoint when, std::function<void()> task, Duration period = {});
  void cancel();

 private:
  void wait(unsigned turn, TimePoint when, const std::function<void()>& task, Duration period);

  const Environment& environment_;
  const std::shared_ptr<Clock> clock_;
  const std::shared_ptr<Timer> timer_;
  std::atomic<unsigned> turn_ = 0;   ///< of the last call
  std::atomic<bool> isDue_ = false;  ///< a repeated task waits to be run
};

}  // namespace koriva::socketio
