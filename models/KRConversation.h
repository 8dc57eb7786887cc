#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "models/KRDefines.h"
#include "models/KRGroupUpdate.h"
#include "models/KRMessage.h"
#include "models/KRSecretChat.h"

/// The message that a member was last active with. Every key is read leniently.
struct KRLastActiveMessage {
  std::string uin;        ///< the member
  std::string messageId;  ///< the message

  bool operator==(const KRLastActiveMessage&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// How far a member has come in a group's messages. Every key is read leniently.
struct KRGroupMessageStatus {
  std::string uin;        ///< the member
  std::string messageID;  ///< the message

  bool operator==(const KRGroupMessageStatus&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One conversation. Every key is read leniently.
struct KR_EXPORT KRConversation {
  std::vector<std::string> occupantsUins;               ///< the members
  std::vector<std::string> blockedUins;                 ///< members who are blocked
  std::vector<std::string> mutedUins;                   ///< members who have muted it
  std::map<std::string, std::string> receivedList;      ///< member to last message received
  std::map<std::string, std::string> seenList;          ///< member to last message seen
  std::string groupID;                                  ///< the conversation's id
  std::string createdAt;                                ///< a time as the server writes it
  std::string lastMessageID;                            ///< the last message's id
  std::string avatarUrl;                                ///< where its picture is
  std::int64_t type = 0;                                ///< a `KRDefines::GroupType` value
  std::string updatedAt;                                ///< a time as the server writes it
  std::string name;                                     ///< its name
  std::string ownerUin;                                 ///< its owner
  std::string creatorUin;                               ///< who made it
  std::vector<std::string> addedUins;                   ///< who was added; from an update only
  std::vector<std::string> removedUins;                 ///< who was removed
  std::vector<std::string> unblockedUins;               ///< who was unblocked; from an update only
  std::optional<KRMessage> lastMessage;                 ///< the last message, when there is one
  std::vector<KRUserStatus> statusList;                 ///< the members' presence
  std::vector<std::string> pinnedUins;                  ///< members who have pinned it
  std::vector<KRSecretChat> secrets;                    ///< the key bundles of a secret chat
  std::vector<KRLastActiveMessage> lastActiveMessages;  ///< the members' last activity

  KRConversation() = default;

  /// A conversation that holds just what the update tells.
  explicit KRConversation(const KRGroupUpdate& groupUpdate);

  bool operator==(const KRConversation&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The acknowledgement of "list_group". Every key is read leniently.
struct KRConversationList {
  std::int64_t result = 0;                    ///< the server's result code
  std::optional<std::int64_t> pageSize;       ///< how many make a page
  std::optional<std::int64_t> page;           ///< which page this is
  std::vector<KRConversation> conversations;  ///< the page, under "groups"

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRConversationList&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The acknowledgement of the requests that yield a conversation. Every key is read leniently.
struct KRConversationResponse {
  std::int64_t result = 0;                     ///< the server's result code
  std::optional<KRConversation> conversation;  ///< the conversation, under "group"

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRConversationResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The acknowledgement of "start_secret_chat". All keys are required.
struct KRSecretChatResponse {
  std::int64_t result = 0;  ///< the server's result code
  KRConversation group;     ///< the new secret conversation

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRSecretChatResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
