#include "socketio/Environment.h"

#include <exception>
#include <random>

#include "socketio/WebSocket.h"

namespace koriva::socketio {
namespace {

class WaitingTimer final : public Timer, public std::enable_shared_from_this<WaitingTimer> {
 public:
  explicit WaitingTimer(const Executor& io) : timer_(io) {}

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

class SystemClock final : public Clock {
 public:
  explicit SystemClock(const Executor& io) : io_(io) {}

  [[nodiscard]] TimePoint now() const override { return std::chrono::steady_clock::now(); }
  [[nodiscard]] std::shared_ptr<Timer> makeTimer() override {
    return std::make_shared<WaitingTimer>(io_);
  }

 private:
  const Executor io_;
};

double draw() {
  try {
    std::random_device device;
    return std::generate_canonical<double, 32>(device);
  } catch (const std::exception&) {
    return 0.5;  // no descriptors are left to read the system's with
  }
}

}  // namespace

Environment::Environment(const Executor& io, const Executor& handlers,
                         std::function<void()> handlerPosted)
    : io_(io),
      handlers_(handlers),
      handlerPosted_(std::move(handlerPosted)),
      world_(systemWorld()) {}

void Environment::add(std::weak_ptr<Connection> connection) const {
  std::erase_if(connections_, [](const auto& each) { return each.expired(); });
  connections_.push_back(std::move(connection));
}

World Environment::systemWorld() const {
  return {std::make_shared<SystemClock>(io_), [this] { return makeWebSocket(*this); }, draw};
}

}  // namespace koriva::socketio
