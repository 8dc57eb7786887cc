#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KorivaSDK/AtomicSharedPtr.h"
#include "KorivaSDK/KorivaSDK.h"
#include "socketio/Alarm.h"
#include "socketio/Connection.h"

namespace koriva {

/// The client's constants, which tests shorten.
struct Timing {
  std::chrono::milliseconds reconnectInterval = std::chrono::seconds(10);
  socketio::Limits limits;
};

Timing& timing();

/// Reads the URL that the library was built with; without a usable one the process ends.
socketio::Endpoint parseDefaultUrl(std::string_view url);

}  // namespace koriva

struct KRPrivate {
  static const std::string_view socketUrl;  ///< used unless setBaseUrl() is called
};

struct KorivaSDK::State {
  using Delegates = std::vector<std::shared_ptr<KorivaDelegate>>;
  struct Stranded {};

  explicit State(const koriva::socketio::Endpoint& url) : baseURL(url) {}

  koriva::socketio::Endpoint baseURL;
  std::shared_ptr<const koriva::socketio::Handlers> handlers;
  koriva::AtomicSharedPtr<koriva::socketio::Connection> connection;
  std::shared_ptr<koriva::socketio::Connection> lastConnection;  ///< kept after a logout
  std::shared_ptr<const Delegates> delegates = std::make_shared<const Delegates>();
  std::vector<std::function<void(bool)>> listTasks;
  bool isNew = false;
  bool isReady = false;
  bool isLoggingOut = false;
  std::shared_ptr<Stranded> stranded;  ///< present when not even a socket could be made for a login
  std::int64_t uin = 0;
  std::string token;
  std::string deviceId;
  std::shared_ptr<koriva::socketio::Alarm> reconnectTimer;
};
