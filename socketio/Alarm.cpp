#include "socketio/Alarm.h"

#include <boost/asio/dispatch.hpp>

namespace koriva::socketio {

void Alarm::set(TimePoint when, std::function<void()> task, Duration period) {
  boost::asio::dispatch(environment_.io(), [self = shared_from_this(), when, task = std::move(task),
                                            period] { self->wait(when, task, period); });
}

void Alarm::cancel() {
  boost::asio::dispatch(environment_.io(), [self = shared_from_this()] { self->timer_->cancel(); });
}

// Repeats itself here, not from its task, which would wake the I/O thread once more each time.
void Alarm::wait(TimePoint when, const std::function<void()>& task, Duration period) {
  timer_->set(when, [self = shared_from_this(), task, period] {
    if (period == period.zero()) return self->environment_.dispatchHandler(task);
    self->wait(self->clock_->now() + period, task, period);
    if (self->isDue_.exchange(true)) return;
    self->environment_.dispatchHandler([self, task] {
      self->isDue_ = false;
      task();
    });
  });
}

}  // namespace koriva::socketio
