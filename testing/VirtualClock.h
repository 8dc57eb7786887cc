#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "socketio/Clock.h"

namespace koriva::testing {

/// Time that stands still until it is moved on.
class VirtualClock final : public socketio::Clock,
                           public std::enable_shared_from_this<VirtualClock> {
 public:
  using TimePoint = socketio::TimePoint;
  using Task = std::function<void()>;
  /// Runs a task on the I/O executor, later.
  using Post = std::function<void(Task task)>;

  VirtualClock(TimePoint start, Post post) : now_(start), post_(std::move(post)) {}

  [[nodiscard]] TimePoint now() const override;
  [[nodiscard]] std::shared_ptr<socketio::Timer> makeTimer() override;

  /// Moves time on to the next timer and posts its task; when there is none before the end, to the
  /// end: false.
  bool advance(TimePoint end);

  /// Time passes from now on, as that of the other clock does.
  void release(std::shared_ptr<Clock> system);

 private:
  class VirtualTimer;
  using Queue = std::multimap<TimePoint, std::pair<VirtualTimer*, Task>>;

  TimePoint now_;
  Post post_;
  Queue queue_;
  std::shared_ptr<Clock> system_;  ///< null while time stands still
  socketio::Duration ahead_{};     ///< of the system's clock
};

}  // namespace koriva::testing
