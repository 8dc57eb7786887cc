#include "socketio/SystemClock.h"

namespace koriva::socketio {
namespace {

class Waiting final : public Timer, public std::enable_shared_from_this<Waiting> {
 public:
  explicit Waiting(const Executor& io) : timer_(io) {}

  void set(TimePoint when, std::function<void()> task) override {
    timer_.expires_at(when);
    timer_.async_wait([weak = weak_from_this(), turn = ++turn_,
                       task = std::move(task)](boost::system::error_code error) {
      const auto self = weak.lock();
      // Without an error it may still have been replaced or cancelled, just after it was due.
      if (!error && self && self->turn_ == turn) task();
    });
  }

  void cancel() override {
    ++turn_;
    timer_.cancel();
  }

 private:
  SystemTimer timer_;
  std::uint64_t turn_ = 0;
};

}  // namespace

std::shared_ptr<Timer> SystemClock::makeTimer() { return std::make_shared<Waiting>(io_); }

}  // namespace koriva::socketio
