#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "extensions/JSONFields.h"
#include "extensions/KRExport.h"
#include "models/KRDefines.h"
#include "models/KRGroupUpdate.h"
#include "models/KRMessage.h"
#include "models/KRSecretChat.h"

/// \file
/// Conversations, and the pages and answers that hold them.

/// The message that a member was last active with. Every key is read leniently.
struct KRLastActiveMessage {
  std::string uin;        ///< the member
  std::string messageId;  ///< the message

  bool operator==(const KRLastActiveMessage&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::lenient<&R::uin>("uin"), koriva::json::lenient<&R::messageId>("message_id"));
};

/// How far a member has come in a group's messages. Every key is read leniently.
struct KRGroupMessageStatus {
  std::string uin;        ///< the member
  std::string messageID;  ///< the message

  bool operator==(const KRGroupMessageStatus&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::lenient<&R::uin>("uin"), koriva::json::lenient<&R::messageID>("message_id"));
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

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::lenient<&R::occupantsUins>("occupants_uins"),
      koriva::json::lenient<&R::blockedUins>("blocked_uins"),
      koriva::json::lenient<&R::mutedUins>("muted_uins"),
      koriva::json::lenient<&R::receivedList>("received_list"),
      koriva::json::lenient<&R::seenList>("seen_list"),
      koriva::json::lenient<&R::groupID>("group_id"),
      koriva::json::lenient<&R::createdAt>("created_at"),
      koriva::json::lenient<&R::lastMessageID>("last_message_id"),
      koriva::json::lenient<&R::avatarUrl>("avatar_url"), koriva::json::lenient<&R::type>("type"),
      koriva::json::lenient<&R::updatedAt>("updated_at"), koriva::json::lenient<&R::name>("name"),
      koriva::json::lenient<&R::ownerUin>("owner_uin"),
      koriva::json::lenient<&R::creatorUin>("creator_uin"),
      koriva::json::lenient<&R::removedUins>("removed_uins"),
      koriva::json::lenient<&R::lastMessage>("last_message"),
      koriva::json::lenient<&R::statusList>("status_list"),
      koriva::json::lenient<&R::pinnedUins>("pinned_uins"),
      koriva::json::lenient<&R::secrets>("secrets"),
      koriva::json::lenient<&R::lastActiveMessages>("last_active_messages"));
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

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::lenient<&R::result>("result"), koriva::json::lenient<&R::pageSize>("psize"),
      koriva::json::lenient<&R::page>("pindex"),
      koriva::json::lenient<&R::conversations>("groups"));
};

/// The acknowledgement of the requests that yield a conversation. Every key is read leniently.
struct KRConversationResponse {
  std::int64_t result = 0;                     ///< the server's result code
  std::optional<KRConversation> conversation;  ///< the conversation, under "group"

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRConversationResponse&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields =
      koriva::json::fields(koriva::json::lenient<&R::result>("result"),
                           koriva::json::lenient<&R::conversation>("group"));
};

/// The acknowledgement of "start_secret_chat". All keys are required.
struct KRSecretChatResponse {
  std::int64_t result = 0;  ///< the server's result code
  KRConversation group;     ///< the new secret conversation

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRSecretChatResponse&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(koriva::json::required<&R::result>("result"),
                                                      koriva::json::required<&R::group>("group"));
};

/// The acknowledgement of "list_message": one page of history. Every key is read leniently.
struct KRMessageList {
  std::string groupID;              ///< the conversation
  std::int64_t result = 0;          ///< the server's result code
  std::int64_t pageSize = 0;        ///< how many make a page
  std::int64_t page = 0;            ///< which page this is
  std::string lastMessageID;        ///< the id that the page was counted from
  std::vector<KRMessage> messages;  ///< the page

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRMessageList&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::lenient<&R::groupID>("group_id"), koriva::json::lenient<&R::result>("result"),
      koriva::json::lenient<&R::pageSize>("psize"), koriva::json::lenient<&R::page>("pindex"),
      koriva::json::lenient<&R::lastMessageID>("last_message_id"),
      koriva::json::lenient<&R::messages>("messages"));
};

/// The acknowledgement of a message sent or updated. Every key is read leniently.
struct KRMessageResponse {
  std::int64_t result = 0;           ///< the server's result code
  std::optional<KRMessage> message;  ///< the server's copy of the message

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  /// Whether the server holds the message already.
  bool duplicateCode() const { return result == 13; }

  bool operator==(const KRMessageResponse&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::lenient<&R::result>("result"), koriva::json::lenient<&R::message>("message"));
};
