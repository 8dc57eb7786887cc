#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"

/// One voice or video call. Every key is read leniently.
struct KR_EXPORT KRCall {
  static constexpr std::int64_t CALL_TYPE_UNKNOWN = 0;  ///< `type`: not known
  static constexpr std::int64_t CALL_TYPE_PRIVATE = 1;  ///< `type`: between two users
  static constexpr std::int64_t CALL_TYPE_GROUP = 2;    ///< `type`: among a group

  static constexpr std::int64_t MEIDA_TYPE_UNKNOWN = 0;  ///< `mediaType`: not known
  static constexpr std::int64_t MEDIA_TYPE_AUDIO = 1;    ///< `mediaType`: voice
  static constexpr std::int64_t MEDIA_TYPE_VIDEO = 2;    ///< `mediaType`: video

  static constexpr std::int64_t CALL_STATUS_UNKNOWN = 0;  ///< `callStatus`: not known
  static constexpr std::int64_t CALL_STATUS_ONGOING = 1;  ///< `callStatus`: going on
  static constexpr std::int64_t CALL_STATUS_TIMEOUT = 2;  ///< `callStatus`: not answered in time
  static constexpr std::int64_t CALL_STATUS_FAILED = 3;   ///< `callStatus`: failed

  std::string id;                         ///< the call's id, under "call_id"
  std::string groupID;                    ///< the conversation
  std::int64_t mediaType = 0;             ///< a MEDIA_TYPE constant
  std::int64_t callStatus = 0;            ///< a CALL_STATUS constant
  std::int64_t type = 0;                  ///< a CALL_TYPE constant, under "call_type"
  std::string callerUin;                  ///< who calls
  std::vector<std::string> calleeUins;    ///< who is called
  std::vector<std::string> acceptedUins;  ///< who has accepted
  std::string startedAt = "0";            ///< a time as the server writes it
  std::string stoppedAt = "0";            ///< a time as the server writes it
  std::string answeredAt = "0";           ///< a time as the server writes it, under "accepted_at"
  std::string connectedAt = "0";          ///< a time as the server writes it

  KRCall() = default;

  /// A new private call, ready for `KorivaSDK::createCall`.
  KRCall(std::string id, std::int64_t mediaType, std::string groupID, std::string callerUin,
         std::vector<std::string> calleeUins);

  /// The call of a push notification's user info ("Type" is "call", "Payload" a JSON text), or
  /// nothing when the notification announces no call.
  static std::optional<KRCall> fromUserInfo(const KRDictionary& userInfo);

  bool operator==(const KRCall&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The acknowledgement of "create_call". The key is required.
struct KRCallResponse {
  KRCall call;  ///< the server's view of the call

  bool operator==(const KRCallResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
