#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "extensions/KRExport.h"
#include "socketio/KRConnectionCause.h"

/// What is known of a client's connection at one moment. A value, to be copied and read on any
/// thread.
class KR_EXPORT KRConnectionState {
 public:
  /// What there is of a connection.
  enum class Phase : std::int64_t {
    idle,        ///< no session: before `login`, after `logout`
    connecting,  ///< an attempt is under way
    connected,   ///< the server has accepted the session
    waiting,     ///< for the next attempt
  };

  /// Idle, and nothing has ended.
  KRConnectionState() = default;

  /// Whether there is a connection, and whether one is to come.
  [[nodiscard]] Phase phase() const;

  /// Why the connection before has ended, or the last attempt has failed, until one stands.
  [[nodiscard]] KRConnectionCause cause() const;

  /// The same in words, for people: in English, with what the system, or a server that refuses the
  /// session, has said; never with the session token. Empty when nothing has ended.
  [[nodiscard]] const std::string& reason() const;

  /// The number of the attempt that is under way or was the last: 1 is the first since `login`, or
  /// since the last connection that stood. 0 while there was none.
  [[nodiscard]] std::int64_t attempt() const;

  /// When the client attempts to connect again, while it waits, unless it is asked to before.
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> nextAttempt() const;

 private:
  friend class KorivaSDK;
  struct Members;

  explicit KRConnectionState(std::shared_ptr<const Members> members)
      : members_(std::move(members)) {}
  const Members& members() const;

  std::shared_ptr<const Members> members_;  ///< null: idle
};
