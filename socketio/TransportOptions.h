#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "socketio/Proxy.h"
#include "socketio/Trust.h"

namespace koriva::socketio {

/// How a transport reaches its server.
struct TransportOptions {
  std::optional<Proxy> proxy;
  std::shared_ptr<const Trust> trust = nullptr;                       ///< null: that of the system
  std::chrono::milliseconds upgradeLimit = std::chrono::seconds(10);  ///< for the WebSocket's
};

}  // namespace koriva::socketio
