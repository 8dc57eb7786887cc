#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "extensions/JSONFields.h"
#include "extensions/RawValue.h"

/// The scope of the small enumerations of the chat protocol. Records and payloads carry their
/// integers; `koriva::fromRawValue<E>(n)` and `koriva::rawValue(e)` convert.
struct KRDefines {
  /// A user's presence.
  enum class OnlineStatus : std::int64_t {
    unknown = 0,
    online = 1,
    offline = 2,
    idle = 3,
    invisible = 4,
    away = 5,
    busy = 6,
  };

  /// The kind of a conversation.
  enum class GroupType : std::int64_t {
    unknown = 0,
    privateGroup = 1,
    group = 2,
    publicGroup = 3,
  };

  /// A yes-or-no answer with failure states.
  enum class Answer : std::int64_t {
    unknown = 0,
    yes = 1,
    no = 2,
    failed = 3,
    unrecognized = -1,
  };

  /// An ignore action.
  enum class IgnoreType : std::int64_t {
    unknown = 0,
    ignore = 1,
    unignore = 2,
    get = 3,
    unrecognized = -1,
  };

  /// How far a message has been delivered.
  enum class MessageStatus : std::int64_t {
    unknown = 0,
    sent = 1,
    received = 2,
    seen = 3,
    deleted = 4,
    unrecognized = -1,
  };

  /// The kind of a push-notification token; 3 is unused.
  enum class TokenType : std::int64_t {
    unknown = 0,
    fcm = 1,
    apns = 2,
    pushkit = 4,
  };

  /// The order in which a conversation list is asked for.
  enum class GroupSortType : std::int64_t {
    random = 0,
    byLastMessage = 1,
    byCreatedAt = 2,
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

  /// The JSON keys.
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&KRUserStatus::uin>("uin"),
                           koriva::json::required<&KRUserStatus::onlineStatus>("online_status"),
                           koriva::json::required<&KRUserStatus::messageStatus>("message_status"));
};

/// What the server pushes as "user_status".
struct KRUserStatusResponse {
  KRUserStatus userStatus;  ///< the user's status

  bool operator==(const KRUserStatusResponse&) const = default;

  /// The JSON keys.
  static constexpr auto fields = koriva::json::fields(
      koriva::json::required<&KRUserStatusResponse::userStatus>("user_status"));
};
