#include "models/KRMessage.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <optional>
#include <string_view>

#include "extensions/JSONFields.h"
#include "extensions/StringRewriters.h"

using koriva::json::Coding;
using koriva::json::Field;
using koriva::json::lenient;
using koriva::json::ReadOnly;
using koriva::json::Room;

namespace {

using Kind = KRMessageKind;

/// A case that holds the attachments, or what `part` takes from them.
template <class Case, class Document, class Part = std::identity>
KRMessageKind readAttachments(const KRMessage& message, Room& room, Part part = {}) {
  auto document = koriva::json::decodeWithin<Document>(room, message.attachments);
  if (!document) return Kind::Unknown{};
  return Case{std::invoke(part, *std::move(document))};
}

KRMessageKind readImagesAtUrls(const KRMessage& message, Room& room) {
  auto document = koriva::json::decodeWithin<KRImageURLsResponse>(room, message.attachments);
  if (!document || !room.take(document->urls.size() * sizeof(KRImage))) return Kind::Unknown{};
  Kind::Images kind;
  kind.images.reserve(document->urls.size());
  for (auto& url : document->urls) kind.images.push_back({std::move(url), {}, {}, {}});
  return kind;
}

// The decoder refuses documents quoted in one another too deeply.
template <class Case>
KRMessageKind readQuote(const KRMessage& message, Room& room) {
  auto quoted = koriva::json::decodeWithin<KRMessage>(room, message.attachments);
  if (!quoted || !room.take(sizeof *quoted + message.message.size())) return Kind::Unknown{};
  return Case{message.message, *std::move(quoted)};
}

KRMessageKind readKind(const KRMessage& message, Room& room) {
  switch (message.messageType()) {
    case KRMessageType::call:
      return readAttachments<Kind::Call, KRCall>(message, room);
    case KRMessageType::images:
      if (message.version == 0) return readImagesAtUrls(message, room);
      return readAttachments<Kind::Images, KRImageResponse>(message, room,
                                                            &KRImageResponse::images);
    case KRMessageType::audio:
      return readAttachments<Kind::Audio, KRAudioResponse>(message, room, &KRAudioResponse::audio);
    case KRMessageType::video:
      return readAttachments<Kind::Video, KRVideoResponse>(message, room, &KRVideoResponse::video);
    case KRMessageType::firstMessage:
      return Kind::FirstMessage{};
    case KRMessageType::groupUpdate:
      return readAttachments<Kind::GroupUpdate, KRGroupUpdateType>(message, room);
    case KRMessageType::leaveGroup:
      return Kind::LeaveGroup{message.senderUin};
    case KRMessageType::reply:
      return readQuote<Kind::Reply>(message, room);
    case KRMessageType::forward:
      return readQuote<Kind::Forward>(message, room);
    case KRMessageType::sticker:
      return readAttachments<Kind::Sticker, KRSticker>(message, room);
    case KRMessageType::file:
      return readAttachments<Kind::File, KRFileResponse>(message, room, &KRFileResponse::file);
    case KRMessageType::screenshot:
      return Kind::Screenshot{};
    case KRMessageType::text:
      break;
  }
  return Kind::Text{koriva::unescapeString(message.message)};
}

/// The whole text as a decimal number.
std::optional<double> parseDecimal(std::string_view text) {
  if (text.find_first_not_of("+-.0123456789eE") != text.npos) return std::nullopt;
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Positional and as short as reads back equal, with a fraction in any case.
std::string positionalText(double number) {
  char buffer[400];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::fixed);
  std::string text(buffer, end);
  if (text.find('.') == text.npos) text += ".0";
  return text;
}

/// Whether the text is a whole number of more than ten digits, as that of nearly every message.
bool isLongInteger(std::string_view text) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  return text.size() > 10 && text.front() != '0' && std::all_of(text.begin(), text.end(), isDigit);
}

/// Servers send seconds or microseconds; what is below ten digits are seconds.
void normaliseCreationTime(std::string& createdAt) {
  if (isLongInteger(createdAt)) return;
  const auto time = parseDecimal(createdAt);
  if (!time || *time / 1e10 >= 1) return;
  const double microseconds = *time * 1e6;
  if (std::isfinite(microseconds)) createdAt = positionalText(microseconds);
}

bool appendMembers(std::string& out) {
  out += '}';
  return true;
}

/// Appends keys and values, and the end of the object.
template <class T, class... Rest>
bool appendMembers(std::string& out, std::string_view key, const T& value, const Rest&... rest) {
  out.append(",\"").append(key).append("\":");
  return koriva::json::appendValue(out, value) && appendMembers(out, rest...);
}

/// Appends an object of the type's name and further keys and values.
template <class... Members>
bool appendKind(std::string& out, std::string_view type, const Members&... members) {
  out.append("{\"type\":\"").append(type).append("\"");
  return appendMembers(out, members...);
}

bool writeKind(const KRMessageKind& kind, std::string& out) {
  const auto append = [&out](KRMessageType type, const auto&... members) {
    return appendKind(out, koriva::typeName(type), members...);
  };
  return std::visit(
      koriva::Overloaded{
          [&](const Kind::Text& it) { return append(KRMessageType::text, "text", it.text); },
          [&](const Kind::Images& it) {
            return append(KRMessageType::images, "images", it.images);
          },
          [&](const Kind::Video& it) { return append(KRMessageType::video, "video", it.video); },
          [&](const Kind::Call& it) { return append(KRMessageType::call, "call", it.call); },
          [&](const Kind::Audio& it) { return append(KRMessageType::audio, "audio", it.audio); },
          [&](const Kind::Reply& it) {
            return append(KRMessageType::reply, "message", it.text, "reply", *it.message);
          },
          [&](const Kind::GroupUpdate& it) {
            return append(KRMessageType::groupUpdate, "group_update", it.groupUpdate);
          },
          [&](const Kind::LeaveGroup& it) {
            return append(KRMessageType::leaveGroup, "sender_uin", it.uin);
          },
          [&](const Kind::Forward& it) {
            return append(KRMessageType::forward, "message", it.text, "forward", *it.message);
          },
          [&](const Kind::File& it) { return append(KRMessageType::file, "file", it.file); },
          [&](const Kind::Sticker& it) {
            return append(KRMessageType::sticker, "sticker", it.sticker);
          },
          [&](const Kind::Unknown&) { return appendKind(out, "unknown"); },
          [&](const Kind::FirstMessage&) { return append(KRMessageType::firstMessage); },
          [&](const Kind::Screenshot&) { return append(KRMessageType::screenshot); },
      },
      kind.value);
}

bool takeKind(KRMessage& message, KRMessageKind& kind) {
  kind = std::move(message.kind);
  return !kind.as<Kind::Unknown>();
}

void finish(KRMessage& message, Room& room) {
  if (!room.take(message.message.size())) return;
  message.kind = readKind(message, room);
  normaliseCreationTime(message.createdAt);
}

}  // namespace

constinit const Coding KRMessageKind::coding = koriva::json::convertedBy<&takeKind, &writeKind>;

constinit const Coding KRMessage::coding = koriva::json::finishedBy<
    &finish,
    lenient<
        Field<"group_avatar", &KRMessage::groupAvatar>,
        Field<"sender_name", &KRMessage::senderName>,
        Field<"sender_avatar", &KRMessage::senderAvatar>, Field<"group_id", &KRMessage::groupID>,
        Field<"status", &KRMessage::status>, Field<"seen_uins", &KRMessage::seenUins>,
        Field<"received_uins", &KRMessage::receivedUins>,
        Field<"message_id", &KRMessage::messageID>, Field<"created_at", &KRMessage::createdAt>,
        Field<"sender_uin", &KRMessage::senderUin>, Field<"message", &KRMessage::message>,
        Field<"recipient_uins", &KRMessage::recipientUins>,
        Field<"deleted_uins", &KRMessage::deletedUins>, Field<"group_name", &KRMessage::groupName>,
        Field<"type", &KRMessage::type>, Field<"attachments", &KRMessage::attachments>,
        Field<"version", &KRMessage::version>, Field<"is_encrypted", &KRMessage::isEncrypted>,
        ReadOnly<"send_uin", &KRMessage::send_uin>, ReadOnly<"recv_uin", &KRMessage::recv_uin>,
        ReadOnly<"updated_at", &KRMessage::updatedAt>>>;

constinit const Coding KRMessageList::coding =
    lenient<Field<"group_id", &KRMessageList::groupID>, Field<"result", &KRMessageList::result>,
            Field<"psize", &KRMessageList::pageSize>, Field<"pindex", &KRMessageList::page>,
            Field<"last_message_id", &KRMessageList::lastMessageID>,
            Field<"messages", &KRMessageList::messages>>;

constinit const Coding KRMessageResponse::coding =
    lenient<Field<"result", &KRMessageResponse::result>,
            Field<"message", &KRMessageResponse::message>>;

std::string koriva::typeName(KRMessageType type) {
  static constexpr const char* names[] = {
      "text",        "call",  "image",   "audio",   "video", "first_message", "group_update",
      "leave_group", "reply", "forward", "sticker", "text",  "file",          "screenshot"};
  const auto number = static_cast<std::size_t>(type);
  return names[number < std::size(names) ? number : 0];
}

KRMessage::KRMessage(std::string id, std::string group, std::string text, std::string name,
                     std::string avatar, std::string uin, bool encrypted)
    : senderName(std::move(name)),
      senderAvatar(std::move(avatar)),
      groupID(std::move(group)),
      messageID(std::move(id)),
      senderUin(std::move(uin)),
      message(std::move(text)),
      isEncrypted(encrypted) {}

KRMessageType KRMessage::messageType() const {
  return koriva::fromRawValue<KRMessageType>(type).value_or(KRMessageType::text);
}

std::string KRMessage::toString() const { return KRJSONEncoder{}.encode(*this); }
