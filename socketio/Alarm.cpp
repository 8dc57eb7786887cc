#include "socketio/Alarm.h"

#include <boost/asio/dispatch.hpp>

namespace koriva::socketio {

void Alarm::start() {
  boost::asio::dispatch(
      environment_.io(),
      [self = shared_from_this(), first = clock_->now() + period_] { self->wait(first); });
}

// Also when it overtakes the start, or what is due already.
void Alarm::cancel() {
  isCancelled_ = true;
  boost::asio::dispatch(environment_.io(), [self = shared_from_this()] { self->timer_->cancel(); });
}

// Repeats itself here, not from its task, which would wake the I/O thread once more each time.
void Alarm::wait(TimePoint when) {
  if (isCancelled_) return;
  timer_->set(when, [self = shared_from_this()] {
    self->wait(self->clock_->now() + self->period_);
    if (self->isDue_.exchange(true)) return;
    self->environment_.dispatchHandler([self] {
      self->isDue_ = false;
      if (!self->isCancelled_) self->task_();
    });
  });
}

}  // namespace koriva::socketio
