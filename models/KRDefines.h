#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "extensions/RawValue.h"

/// \file
/// The small enumerations of the chat protocol, and presence.

/// The scope of the small enumerations of the chat protocol. Records and payloads carry their
/// integers; `koriva::fromRawValue<E>(n)` and `koriva::rawValue(e)` convert.
struct KRDefines {
  /// A user's presence.
  enum class OnlineStatus : std::int64_t {
    unknown = 0,    ///< not known
    online = 1,     ///< there
    offline = 2,    ///< not connected
    idle = 3,       ///< connected, but not active
    invisible = 4,  ///< connected, and not shown
    away = 5,       ///< not at the device
    busy = 6,       ///< not to be disturbed
  };

  /// The kind of a conversation.
  enum class GroupType : std::int64_t {
    unknown = 0,       ///< not known
    privateGroup = 1,  ///< two users
    group = 2,         ///< several users, by invitation
    publicGroup = 3,   ///< open to everybody
  };

  /// A yes-or-no answer with failure states.
  enum class Answer : std::int64_t {
    unknown = 0,        ///< not known
    yes = 1,            ///< yes
    no = 2,             ///< no
    failed = 3,         ///< there was no answer
    unrecognized = -1,  ///< a value that has no case
  };

  /// An ignore action.
  enum class IgnoreType : std::int64_t {
    unknown = 0,        ///< not known
    ignore = 1,         ///< ignore from now on
    unignore = 2,       ///< ignore no longer
    get = 3,            ///< ask whether it is ignored
    unrecognized = -1,  ///< a value that has no case
  };

  /// How far a message has been delivered.
  enum class MessageStatus : std::int64_t {
    unknown = 0,        ///< not known
    sent = 1,           ///< the server has it
    received = 2,       ///< it has arrived at a recipient
    seen = 3,           ///< a recipient has seen it
    deleted = 4,        ///< it was deleted
    unrecognized = -1,  ///< a value that has no case
  };

  /// The kind of a push-notification token; 3 is unused.
  enum class TokenType : std::int64_t {
    unknown = 0,  ///< not known
    fcm = 1,      ///< a token for messages of the FCM service
    apns = 2,     ///< a token for notifications of the APNs service
    pushkit = 4,  ///< a token for call notifications of the APNs service
  };

  /// The order in which a conversation list is asked for.
  enum class GroupSortType : std::int64_t {
    random = 0,         ///< in no order
    byLastMessage = 1,  ///< the one with the newest message first
    byCreatedAt = 2,    ///< by age
  };
};

template <>
inline constexpr auto koriva::cases<KRDefines::OnlineStatus> =
    std::array{KRDefines::OnlineStatus::unknown,   KRDefines::OnlineStatus::online,
               KRDefines::OnlineStatus::offline,   KRDefines::OnlineStatus::idle,
               KRDefines::OnlineStatus::invisible, KRDefines::OnlineStatus::away,
               KRDefines::OnlineStatus::busy};
template <>
inline constexpr auto koriva::cases<KRDefines::GroupType> =
    std::array{KRDefines::GroupType::unknown, KRDefines::GroupType::privateGroup,
               KRDefines::GroupType::group, KRDefines::GroupType::publicGroup};
template <>
inline constexpr auto koriva::cases<KRDefines::Answer> =
    std::array{KRDefines::Answer::unknown, KRDefines::Answer::yes, KRDefines::Answer::no,
               KRDefines::Answer::failed, KRDefines::Answer::unrecognized};
template <>
inline constexpr auto koriva::cases<KRDefines::IgnoreType> = std::array{
    KRDefines::IgnoreType::unknown, KRDefines::IgnoreType::ignore, KRDefines::IgnoreType::unignore,
    KRDefines::IgnoreType::get, KRDefines::IgnoreType::unrecognized};
template <>
inline constexpr auto koriva::cases<KRDefines::MessageStatus> =
    std::array{KRDefines::MessageStatus::unknown,  KRDefines::MessageStatus::sent,
               KRDefines::MessageStatus::received, KRDefines::MessageStatus::seen,
               KRDefines::MessageStatus::deleted,  KRDefines::MessageStatus::unrecognized};
template <>
inline constexpr auto koriva::cases<KRDefines::TokenType> =
    std::array{KRDefines::TokenType::unknown, KRDefines::TokenType::fcm, KRDefines::TokenType::apns,
               KRDefines::TokenType::pushkit};
template <>
inline constexpr auto koriva::cases<KRDefines::GroupSortType> =
    std::array{KRDefines::GroupSortType::random, KRDefines::GroupSortType::byLastMessage,
               KRDefines::GroupSortType::byCreatedAt};

/// A user's presence and message state, as the server reports them. All keys are required.
struct KRUserStatus {
  std::string uin;                ///< the user
  std::int64_t onlineStatus = 0;  ///< a `KRDefines::OnlineStatus` value, kept as received
  std::string messageStatus;      ///< carried as received

  /// The presence; `offline` when the integer names none.
  KRDefines::OnlineStatus status() const {
    return koriva::fromRawValue<KRDefines::OnlineStatus>(onlineStatus)
        .value_or(KRDefines::OnlineStatus::offline);
  }

  bool operator==(const KRUserStatus&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// What the server pushes as "user_status".
struct KRUserStatusResponse {
  KRUserStatus userStatus;  ///< the user's status

  bool operator==(const KRUserStatusResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
