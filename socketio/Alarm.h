#pragma once

#include <atomic>
#include <boost/asio/dispatch.hpp>

#include "socketio/Environment.h"

namespace koriva::socketio {

/// Runs a task on the handle queue once a period, unless the time before is still to come. Its
/// functions may be called from any thread.
class Alarm : public std::enable_shared_from_this<Alarm> {
 public:
  Alarm(const Environment& environment, Duration period, std::function<void()> task)
      : environment_(environment), period_(period), task_(std::move(task)) {}

  /// `first` is how long the first period is.
  void start(Duration first) {
    next_ = clock_->now() + first;
    boost::asio::dispatch(environment_.io(),
                          [self = shared_from_this()] { self->wait(self->next_); });
  }

  /// When the task is to run next.
  [[nodiscard]] TimePoint next() const { return next_; }

  // Also when it overtakes the start, or what is due already.
  void cancel() {
    isCancelled_ = true;
    boost::asio::dispatch(environment_.io(),
                          [self = shared_from_this()] { self->timer_->cancel(); });
  }

 private:
  // Repeats itself here, not from its task, which would wake the I/O thread once more each time.
  void wait(TimePoint when) {
    if (isCancelled_) return;
    next_ = when;
    timer_->set(when, [self = shared_from_this()] {
      self->wait(self->clock_->now() + self->period_);
      if (self->isDue_.exchange(true)) return;
      self->environment_.dispatchHandler([self] {
        self->isDue_ = false;
        if (!self->isCancelled_) self->task_();
      });
    });
  }

  const Environment& environment_;
  const Duration period_;
  const std::function<void()> task_;
  const std::shared_ptr<Clock> clock_ = environment_.clock();
  const std::shared_ptr<Timer> timer_ = clock_->makeTimer();
  std::atomic<TimePoint> next_ = TimePoint();
  std::atomic<bool> isCancelled_ = false;
  std::atomic<bool> isDue_ = false;
};

}  // namespace koriva::socketio
