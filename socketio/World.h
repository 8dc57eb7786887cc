#pragma once

#include <functional>
#include <memory>

#include "socketio/Clock.h"
#include "socketio/Transport.h"

namespace koriva::socketio {

/// What lies outside of the library, and can be replaced: time, and the way to a server.
struct World {
  std::shared_ptr<Clock> clock;
  std::function<std::shared_ptr<Transport>()> makeTransport;
};

}  // namespace koriva::socketio
