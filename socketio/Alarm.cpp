#include "socketio/Alarm.h"

#include <boost/asio/dispatch.hpp>

namespace koriva::socketio {

void Alarm::set(Clock::time_point when, std::function<void()> task) {
  boost::asio::dispatch(
      executors_.io(), [self = shared_from_this(), when, task = std::move(task)]() mutable {
        self->timer_.expires_at(when);
        self->timer_.async_wait([self, task = std::move(task)](boost::system::error_code error) {
          if (!error) self->executors_.dispatchHandler(task);
        });
      });
}

void Alarm::cancel() {
  boost::asio::dispatch(executors_.io(), [self = shared_from_this()] { self->timer_.cancel(); });
}

}  // namespace koriva::socketio
