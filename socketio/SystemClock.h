#pragma once

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <cstdint>

#include "socketio/Clock.h"

namespace koriva::socketio {

using Executor = boost::asio::io_context::executor_type;

/// A timer of the system's, of which a few take descriptors when there is none yet.
using SystemTimer = boost::asio::basic_waitable_timer<
    std::chrono::steady_clock, boost::asio::wait_traits<std::chrono::steady_clock>, Executor>;

/// The time that passes.
class SystemClock final : public Clock {
 public:
  explicit SystemClock(Executor io) : io_(std::move(io)) {}

  [[nodiscard]] TimePoint now() const override { return std::chrono::steady_clock::now(); }
  [[nodiscard]] std::shared_ptr<Timer> makeTimer() override;

 private:
  Executor io_;
};

}  // namespace koriva::socketio
