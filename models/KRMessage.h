#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "extensions/RawValue.h"
#include "models/KRAttachments.h"
#include "models/KRCall.h"
#include "models/KRGroupUpdate.h"
#include "models/TaggedVariant.h"

struct KRMessage;

/// What a message carries, as the server numbers it; 11 is unused.
enum class KRMessageType : std::int64_t {
  text = 0,          ///< plain text
  call = 1,          ///< a note about a call
  images = 2,        ///< pictures
  audio = 3,         ///< an audio clip
  video = 4,         ///< a video
  firstMessage = 5,  ///< the first message of a conversation
  groupUpdate = 6,   ///< a change of the group
  leaveGroup = 7,    ///< a member has left
  reply = 8,         ///< an answer to a message
  forward = 9,       ///< a message passed on
  sticker = 10,      ///< a sticker
  file = 12,         ///< a file
  screenshot = 13,   ///< somebody has taken a screenshot
};

template <>
inline constexpr auto koriva::cases<KRMessageType> =
    std::array{KRMessageType::text,        KRMessageType::call,       KRMessageType::images,
               KRMessageType::audio,       KRMessageType::video,      KRMessageType::firstMessage,
               KRMessageType::groupUpdate, KRMessageType::leaveGroup, KRMessageType::reply,
               KRMessageType::forward,     KRMessageType::sticker,    KRMessageType::file,
               KRMessageType::screenshot};

namespace koriva {
/// The type's name, such as "group_update".
KR_EXPORT std::string typeName(KRMessageType type);
}  // namespace koriva

/// The contents of a message, read from its type, text and attachments.
struct KR_EXPORT KRMessageKind : koriva::TaggedVariant<KRMessageKind> {
  /// Plain text. Show `KRMessage::message` instead, the text as the server has it: in this one a
  /// path like `C:\new` is broken in two. This one is for servers that hand texts out with the
  /// escapes that `KorivaSDK::sendMessage` adds.
  struct Text {
    std::string text;  ///< `KRMessage::message`, unescaped once more by koriva::unescapeString()
    bool operator==(const Text&) const = default;
  };
  /// Pictures.
  struct Images {
    std::vector<KRImage> images;  ///< the pictures
    bool operator==(const Images&) const = default;
  };
  /// A video.
  struct Video {
    KRVideo video;  ///< the video
    bool operator==(const Video&) const = default;
  };
  /// A note about a call.
  struct Call {
    KRCall call;  ///< the call
    bool operator==(const Call&) const = default;
  };
  /// An audio clip.
  struct Audio {
    KRAudio audio;  ///< the clip
    bool operator==(const Audio&) const = default;
  };
  /// An answer to another message.
  struct Reply {
    std::string text;                ///< the answer, as received
    koriva::Box<KRMessage> message;  ///< the message answered
    bool operator==(const Reply&) const = default;
  };
  /// A change of the group.
  struct GroupUpdate {
    KRGroupUpdateType groupUpdate;  ///< what has changed
    bool operator==(const GroupUpdate&) const = default;
  };
  /// A member has left the group.
  struct LeaveGroup {
    std::string uin;  ///< who left
    bool operator==(const LeaveGroup&) const = default;
  };
  /// A message passed on.
  struct Forward {
    std::string text;                ///< the words that go with it, as received
    koriva::Box<KRMessage> message;  ///< the message passed on
    bool operator==(const Forward&) const = default;
  };
  /// A file.
  struct File {
    KRFile file;  ///< the file
    bool operator==(const File&) const = default;
  };
  /// A sticker.
  struct Sticker {
    KRSticker sticker;  ///< the sticker
    bool operator==(const Sticker&) const = default;
  };
  /// Contents that cannot be read, or a message that was not decoded.
  struct Unknown {
    bool operator==(const Unknown&) const = default;
  };
  /// The first message of a conversation.
  struct FirstMessage {
    bool operator==(const FirstMessage&) const = default;
  };
  /// Somebody has taken a screenshot.
  struct Screenshot {
    bool operator==(const Screenshot&) const = default;
  };
  /// The cases.
  using Cases = std::variant<Text, Images, Video, Call, Audio, Reply, GroupUpdate, LeaveGroup,
                             Forward, File, Sticker, Unknown, FirstMessage, Screenshot>;

  Cases value = Unknown{};  ///< the case held

  KRMessageKind() = default;

  /// Holds one of the cases.
  template <koriva::CaseOf<Cases> Case>
  KRMessageKind(Case chosen) : value(std::move(chosen)) {}

  bool operator==(const KRMessageKind&) const = default;

  /// How it travels as JSON: it is read from a whole message, and cannot be when that message's
  /// contents cannot.
  static const koriva::json::Coding coding;
};

/// One chat message. Every key is read leniently.
///
/// To send one, fill in the fields that `KorivaSDK::sendMessage` names; a type other than text
/// takes its contents from `attachments`, not from `kind`.
struct KR_EXPORT KRMessage {
  double send_uin = 0;                     ///< read, never written
  double recv_uin = 0;                     ///< read, never written
  std::string groupAvatar;                 ///< where the conversation's picture is
  std::string senderName;                  ///< the sender's name
  std::string senderAvatar;                ///< where the sender's picture is
  std::string groupID;                     ///< the conversation
  std::int64_t status = 1;                 ///< a `KRDefines::MessageStatus` value
  std::vector<std::string> seenUins;       ///< who has seen it
  std::vector<std::string> receivedUins;   ///< who has received it
  std::string messageID;                   ///< the message's id
  std::string createdAt;                   ///< microseconds since 1970, a decimal text
  std::string senderUin;                   ///< who sent it
  std::string message;                     ///< the text
  std::vector<std::string> recipientUins;  ///< whom it is for
  std::uint64_t updatedAt = 0;             ///< read, never written
  std::vector<std::string> deletedUins;    ///< who has deleted it
  std::string groupName;                   ///< the conversation's name
  std::int64_t type = 0;                   ///< a `KRMessageType` value
  std::string attachments;                 ///< a JSON document as text
  std::int64_t version = 0;                ///< the version of the attachments' format
  bool isEncrypted = false;                ///< whether the text is encrypted
  KRMessageKind kind;                      ///< the contents, made when the message is decoded

  KRMessage() = default;

  /// A new text message, ready for `KorivaSDK::sendMessage`. `messageID` is the sender's own id, by
  /// which the server recognises a message sent twice. It travels as "nonce", which no record
  /// reads, and so does not come back: the server's copy has an id of the server's.
  KRMessage(std::string messageID, std::string groupID, std::string message, std::string senderName,
            std::string senderAvatar, std::string senderUin, bool isEncrypted);

  /// The type; `text` when the integer names none.
  KRMessageType messageType() const;

  /// The record as JSON text; empty when it cannot be written.
  std::string toString() const;

  bool operator==(const KRMessage&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
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
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
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
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
