#include "socketio/Alarm.h"

#include <boost/asio/dispatch.hpp>

namespace koriva::socketio {

// Only the last call counts: one from a task on the executor comes before what was posted there
// earlier, and a task that is due may still wait for its turn on the handle queue.
void Alarm::set(TimePoint when, std::function<void()> task, Duration period) {
  boost::asio::dispatch(environment_.io(), [self = shared_from_this(), turn = ++turn_, when,
                                            task = std::move(task), period] {
    if (self->turn_ == turn) self->wait(turn, when, task, period);
  });
}

void Alarm::cancel() {
  boost::asio::dispatch(environment_.io(), [self = shared_from_this(), turn = ++turn_] {
    if (self->turn_ == turn) self->timer_->cancel();
  });
}

// Repeats itself here, not from its task, which would wake the I/O thread once more each time.
void Alarm::wait(unsigned turn, TimePoint when, const std::function<void()>& task,
                 Duration period) {
  timer_->set(when, [self = shared_from_this(), turn, task, period] {
    if (period != period.zero()) {
      self->wait(turn, self->clock_->now() + period, task, period);
      if (self->isDue_.exchange(true)) return;
    }
    self->environment_.dispatchHandler([self, turn, task] {
      self->isDue_ = false;
      if (self->turn_ == turn) task();
    });
  });
}

}  // namespace koriva::socketio
