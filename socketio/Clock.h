#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace koriva::socketio {

using TimePoint = std::chrono::steady_clock::time_point;
using Duration = std::chrono::steady_clock::duration;

/// Runs a task at a time, on the I/O executor, to which it belongs. Nothing is run once it is gone.
class Timer {
 public:
  virtual ~Timer() = default;
  /// Replaces what was set before. The task is never run before this returns.
  virtual void set(TimePoint when, std::function<void()> task) = 0;
  /// Nothing is run any more, even when it was due already.
  virtual void cancel() = 0;
};

/// What time it is, and timers.
class Clock {
 public:
  virtual ~Clock() = default;
  [[nodiscard]] virtual TimePoint now() const = 0;
  [[nodiscard]] virtual std::shared_ptr<Timer> makeTimer() = 0;
};

}  // namespace koriva::socketio
