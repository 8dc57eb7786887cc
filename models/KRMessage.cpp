#include "models/KRMessage.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

#include "extensions/JSONCoding.h"
#include "extensions/StringRewriters.h"

namespace {

using Kind = KRMessageKind;

template <class Case, class Document>
KRMessageKind readAttachments(const KRMessage& message) {
  auto document = KRJSONDecoder{}.decode<Document>(message.attachments);
  if (!document) return Kind::Unknown{};
  return Case{std::move(*document)};
}

template <class Case, class Document, class Member>
KRMessageKind readAttachments(const KRMessage& message, Member Document::*member) {
  auto document = KRJSONDecoder{}.decode<Document>(message.attachments);
  if (!document) return Kind::Unknown{};
  return Case{std::move((*document).*member)};
}

KRMessageKind readImageUrls(const KRMessage& message) {
  auto document = KRJSONDecoder{}.decode<KRImageURLsResponse>(message.attachments);
  if (!document) return Kind::Unknown{};
  Kind::Images images;
  images.images.reserve(document->urls.size());
  for (auto& url : document->urls) images.images.push_back({std::move(url), {}, {}, {}});
  return images;
}

// The decoder refuses documents quoted in one another too deeply.
template <class Case>
KRMessageKind readQuote(const KRMessage& message) {
  auto quoted = KRJSONDecoder{}.decode<KRMessage>(message.attachments);
  if (!quoted) return Kind::Unknown{};
  return Case{message.message, std::move(*quoted)};
}

KRMessageKind readKind(const KRMessage& message) {
  switch (message.messageType()) {
    case KRMessageType::call:
      return readAttachments<Kind::Call, KRCall>(message);
    case KRMessageType::images:
      if (message.version == 0) return readImageUrls(message);
      return readAttachments<Kind::Images>(message, &KRImageResponse::images);
    case KRMessageType::audio:
      return readAttachments<Kind::Audio>(message, &KRAudioResponse::audio);
    case KRMessageType::video:
      return readAttachments<Kind::Video>(message, &KRVideoResponse::video);
    case KRMessageType::firstMessage:
      return Kind::FirstMessage{};
    case KRMessageType::groupUpdate:
      return readAttachments<Kind::GroupUpdate, KRGroupUpdateType>(message);
    case KRMessageType::leaveGroup:
      return Kind::LeaveGroup{message.senderUin};
    case KRMessageType::reply:
      return readQuote<Kind::Reply>(message);
    case KRMessageType::forward:
      return readQuote<Kind::Forward>(message);
    case KRMessageType::sticker:
      return readAttachments<Kind::Sticker, KRSticker>(message);
    case KRMessageType::file:
      return readAttachments<Kind::File>(message, &KRFileResponse::file);
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

bool appendMembers(std::string&) { return true; }

template <class T, class... Rest>
bool appendMembers(std::string& out, std::string_view key, const T& value, const Rest&... rest) {
  out.append(",\"").append(key).append("\":");
  return koriva::json::append(out, value) && appendMembers(out, rest...);
}

/// Appends an object of the type's name and further keys and values.
template <class... Members>
bool appendKind(std::string& out, std::string_view type, const Members&... members) {
  out.append("{\"type\":\"").append(type).append("\"");
  if (!appendMembers(out, members...)) return false;
  out += '}';
  return true;
}

}  // namespace

std::string koriva::typeName(KRMessageType type) {
  switch (type) {
    case KRMessageType::text:
      break;
    case KRMessageType::call:
      return "call";
    case KRMessageType::images:
      return "image";
    case KRMessageType::audio:
      return "audio";
    case KRMessageType::video:
      return "video";
    case KRMessageType::firstMessage:
      return "first_message";
    case KRMessageType::groupUpdate:
      return "group_update";
    case KRMessageType::leaveGroup:
      return "leave_group";
    case KRMessageType::reply:
      return "reply";
    case KRMessageType::forward:
      return "forward";
    case KRMessageType::sticker:
      return "sticker";
    case KRMessageType::file:
      return "file";
    case KRMessageType::screenshot:
      return "screenshot";
  }
  return "text";
}

std::optional<KRMessageKind> KRMessageKind::fromDocument(const Document& message) {
  return message.kind;
}

bool KRMessageKind::writeJson(const KRMessageKind& kind, std::string& out) {
  const auto append = [&out](KRMessageType type, const auto&... members) {
    return appendKind(out, typeName(type), members...);
  };
  return std::visit(
      koriva::Overloaded{
          [&](const Text& it) { return append(KRMessageType::text, "text", it.text); },
          [&](const Images& it) { return append(KRMessageType::images, "images", it.images); },
          [&](const Video& it) { return append(KRMessageType::video, "video", it.video); },
          [&](const Call& it) { return append(KRMessageType::call, "call", it.call); },
          [&](const Audio& it) { return append(KRMessageType::audio, "audio", it.audio); },
          [&](const Reply& it) {
            return append(KRMessageType::reply, "message", it.text, "reply", *it.message);
          },
          [&](const GroupUpdate& it) {
            return append(KRMessageType::groupUpdate, "group_update", it.groupUpdate);
          },
          [&](const LeaveGroup& it) {
            return append(KRMessageType::leaveGroup, "sender_uin", it.uin);
          },
          [&](const Forward& it) {
            return append(KRMessageType::forward, "message", it.text, "forward", *it.message);
          },
          [&](const File& it) { return append(KRMessageType::file, "file", it.file); },
          [&](const Sticker& it) { return append(KRMessageType::sticker, "sticker", it.sticker); },
          [&](const Unknown&) { return appendKind(out, "unknown"); },
          [&](const FirstMessage&) { return append(KRMessageType::firstMessage); },
          [&](const Screenshot&) { return append(KRMessageType::screenshot); },
      },
      kind.value);
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

void KRMessage::afterDecoding(KRMessage& message) {
  message.kind = readKind(message);
  normaliseCreationTime(message.createdAt);
}
