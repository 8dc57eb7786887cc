#include "testing/VirtualClock.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace koriva::testing {

class VirtualClock::VirtualTimer final : public socketio::Timer,
                                         public std::enable_shared_from_this<VirtualTimer> {
 public:
  explicit VirtualTimer(std::shared_ptr<VirtualClock> clock) : clock_(std::move(clock)) {}
  ~VirtualTimer() override { cancel(); }
  VirtualTimer(const VirtualTimer&) = delete;
  VirtualTimer& operator=(const VirtualTimer&) = delete;

  void set(TimePoint when, Task task) override {
    cancel();
    if (clock_->system_) return follow(when, std::move(task));
    place_ = clock_->queue_.emplace(when, std::pair(this, std::move(task)));
  }

  void cancel() override {
    ++turn_;
    if (system_) system_->cancel();
    // What is let go of here may be what holds this timer.
    if (place_) const auto gone = clock_->queue_.extract(*std::exchange(place_, std::nullopt));
  }

  /// Waits for the system's clock.
  void follow(TimePoint when, Task task) {
    if (!system_) system_ = clock_->system_->makeTimer();
    system_->set(when - clock_->ahead_, std::move(task));
  }

  /// What runs the task unless the timer is set anew or cancelled before.
  Task due() {
    const auto entry = clock_->queue_.extract(*std::exchange(place_, std::nullopt));
    return [weak = weak_from_this(), turn = ++turn_, task = std::move(entry.mapped().second)] {
      const auto self = weak.lock();
      if (self && self->turn_ == turn) task();
    };
  }

 private:
  const std::shared_ptr<VirtualClock> clock_;
  std::shared_ptr<Timer> system_;
  std::optional<Queue::iterator> place_;
  std::uint64_t turn_ = 0;
};

VirtualClock::TimePoint VirtualClock::now() const {
  return system_ ? system_->now() + ahead_ : now_;
}

std::shared_ptr<socketio::Timer> VirtualClock::makeTimer() {
  return std::make_shared<VirtualTimer>(shared_from_this());
}

bool VirtualClock::advance(TimePoint end) {
  if (system_) return false;
  const auto next = queue_.begin();
  if (next == queue_.end() || next->first > end) {
    now_ = std::max(now_, end);
    return false;
  }
  now_ = std::max(now_, next->first);
  post_(next->second.first->due());
  return true;
}

void VirtualClock::release(std::shared_ptr<Clock> system) {
  ahead_ = now_ - system->now();
  system_ = std::move(system);
  while (!queue_.empty()) {
    const auto [when, entry] = *queue_.begin();
    entry.first->set(when, entry.second);
  }
}

}  // namespace koriva::testing
