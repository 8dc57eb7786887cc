#pragma once

#include <functional>
#include <memory>

#include "simulation/Model.h"

namespace koriva::simulation {

/// Becomes a completion of any type.
struct Completion {
  /// Lives as long as the completion does.
  struct Ticket {
    Ticket(std::function<void(bool isSuccess)> called, std::function<void()> destroyed)
        : onCall(std::move(called)), onEnd(std::move(destroyed)) {}
    ~Ticket() { onEnd(); }
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;

    std::function<void(bool isSuccess)> onCall;
    std::function<void()> onEnd;
  };

  template <class T>
  operator KRCompletion<T>() const {
    if (!ticket) return {};
    return [ticket = ticket](const KRResult<T>& result) { ticket->onCall(result.isSuccess()); };
  }

  std::shared_ptr<Ticket> ticket;
};

}  // namespace koriva::simulation
