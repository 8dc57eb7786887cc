#include "socketio/Alarm.h"

#include <boost/asio/dispatch.hpp>

namespace koriva::socketio {

void Alarm::set(Clock::time_point when, std::function<void()> task, Clock::duration period) {
  boost::asio::dispatch(
      executors_.io(), [self = shared_from_this(), when, task = std::move(task), period]() mutable {
        self->wait(when, std::move(task), period);
      });
}

void Alarm::cancel() {
  boost::asio::dispatch(executors_.io(), [self = shared_from_this()] {
    self->timer_.expires_at(Clock::time_point::max());
  });
}

// Repeats itself here, not from its task, which would wake the I/O thread once more each time.
void Alarm::wait(Clock::time_point when, std::function<void()> task, Clock::duration period) {
  timer_.expires_at(when);
  timer_.async_wait([self = shared_from_this(), when, task = std::move(task),
                     period](boost::system::error_code error) {
    // Without an error it may still have been replaced or cancelled, just after it was due.
    if (error || self->timer_.expiry() != when) return;
    if (period == period.zero()) return self->executors_.dispatchHandler(task);
    self->wait(Clock::now() + period, task, period);
    if (self->isDue_.exchange(true)) return;
    self->executors_.dispatchHandler([self, task] {
      self->isDue_ = false;
      task();
    });
  });
}

}  // namespace koriva::socketio
