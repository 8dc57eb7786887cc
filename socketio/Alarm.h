#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "socketio/Environment.h"

namespace koriva::socketio {

/// Runs a task on the handle queue once a period, unless the time before is still to come. Both
/// functions may be called from any thread.
class Alarm : public std::enable_shared_from_this<Alarm> {
 public:
  Alarm(const Environment& environment, Duration period, std::function<void()> task)
      : environment_(environment), period_(period), task_(std::move(task)) {}

  void start();
  void cancel();

 private:
  void wait(TimePoint when);

  const Environment& environment_;
  const Duration period_;
  const std::function<void()> task_;
  const std::shared_ptr<Clock> clock_ = environment_.clock();
  const std::shared_ptr<Timer> timer_ = clock_->makeTimer();
  std::atomic<bool> isCancelled_ = false;
  std::atomic<bool> isDue_ = false;
};

}  // namespace koriva::socketio
