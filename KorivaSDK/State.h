#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KorivaSDK/KorivaSDK.h"
#include "KorivaSDK/RequestChannel.h"
#include "KorivaSDK/RunLoopInternals.h"
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

inline const socketio::Environment& environment() {
  return KRRunLoop::main().internals().environment();
}

}  // namespace koriva

struct KRConnectionState::Members {
  Phase phase = Phase::idle;
  koriva::socketio::Ending why;
  std::int64_t attempt = 0;
  std::optional<std::chrono::steady_clock::time_point> nextAttempt = std::nullopt;
};

struct KRConnectionOptions::Members {
  std::string proxy;
  koriva::socketio::TrustOptions trust;
  std::optional<std::chrono::milliseconds> connectTimeout;
  std::optional<std::chrono::milliseconds> answerTimeout;
  std::optional<std::chrono::milliseconds> interval;
  std::optional<std::chrono::milliseconds> maxInterval;
  double factor = 1;
  double jitter = 0;

  [[nodiscard]] koriva::socketio::Limits limits() const;
  [[nodiscard]] std::chrono::milliseconds firstInterval() const;
  /// Before chance takes something away from it.
  [[nodiscard]] std::chrono::milliseconds intervalAfter(std::int64_t failures) const;
  [[nodiscard]] bool isIntervalVaried() const { return factor > 1 || jitter > 0; }
  [[nodiscard]] bool areTimesPossible() const;
  /// Nothing where something cannot be.
  [[nodiscard]] std::optional<koriva::socketio::TransportOptions> transport() const;
};

struct KRPrivate {
  static const std::string_view socketUrl;  ///< used unless setBaseUrl() is called
};

struct KorivaSDK::State {
  static constexpr auto replyLimit = std::chrono::seconds(20);
  static constexpr auto probeLimit = std::chrono::seconds(3);

  using Delegates = std::vector<std::shared_ptr<KorivaDelegate>>;

  explicit State(KorivaSDK& owner)
      : client(owner), channel(owner), baseURL(koriva::parseDefaultUrl(KRPrivate::socketUrl)) {}

  // Session.cpp
  void connect();
  void failWithoutTimers();
  void startReconnectTimer();

  void end(const koriva::socketio::Ending& why);

  // Token.cpp
  void reconnect();  ///< with the token of the provider, if there is one
  void askForToken();
  void onToken(const std::string& newToken);  ///< empty: there is no new one
  bool stopAsking();                          ///< false when nobody was asked

  // ConnectionState.cpp
  [[nodiscard]] std::string withoutToken(std::string text) const;  ///< of the session
  void moveTo(KRConnectionState::Members next);
  void moveToConnecting();
  void moveToConnected();
  void tellChange();
  void onEnded(const koriva::socketio::Ending& why);  ///< as delegates hear it

  // Events.cpp
  koriva::socketio::Handlers makeHandlers();

  template <class Call>
  void forEachDelegate(const Call& call) const {
    const auto snapshot = delegates;
    for (const auto& delegate : *snapshot) {
      if (delegate) koriva::guarded([&] { call(*delegate); });
    }
  }

  KorivaSDK& client;
  koriva::RequestChannel channel;
  koriva::socketio::Endpoint baseURL;
  KRConnectionOptions options;
  koriva::socketio::TransportOptions transportOptions;  ///< made of the options
  const koriva::socketio::Handlers handlers = makeHandlers();
  std::shared_ptr<koriva::socketio::Connection> lastConnection;  ///< kept after a logout
  std::shared_ptr<const Delegates> delegates = std::make_shared<const Delegates>();
  /// Read and written as the connection of the channel is; null: idle.
  std::shared_ptr<const KRConnectionState::Members> connectionState;
  bool isChangeUntold = false;
  std::vector<std::function<void(bool)>> listTasks;
  bool isNew = false;
  bool isReady = false;
  bool isLoggingOut = false;
  bool isStranded = false;  ///< not even a socket could be made for a login
  std::int64_t uin = 0;
  std::string token;
  std::string deviceId;
  std::shared_ptr<koriva::socketio::Alarm> reconnectTimer;
  KRTokenProvider tokenProvider;
  std::shared_ptr<std::atomic<bool>> question;  ///< whether it has had its reply; null: none
  std::shared_ptr<koriva::socketio::Alarm> questionTimer;
};
