#include "socketio/Packet.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <charconv>

namespace koriva::socketio {
namespace {

namespace json = boost::json;

constexpr bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// The value of a JSON text; null for any other text.
json::value parseJson(std::string_view text) {
  json::parse_options options;
  options.max_depth = 64;
  boost::system::error_code error;
  return json::parse(text, error, {}, options);
}

void skipSpace(std::string_view& text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
}

/// Takes a decimal number off the front; nothing when there is none or it overflows.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

/// Takes a JSON string off the front and returns its value.
std::optional<std::string> takeString(std::string_view& text) {
  if (text.empty() || text.front() != '"') return std::nullopt;
  std::size_t end = 1;
  bool escaped = false;
  while (end < text.size() && text[end] != '"') {
    if (text[end] == '\\') {
      escaped = true;
      ++end;
    }
    ++end;
  }
  if (end >= text.size()) return std::nullopt;
  const auto literal = text.substr(0, end + 1);
  text.remove_prefix(literal.size());
  if (!escaped) return std::string(literal.substr(1, literal.size() - 2));

  const auto value = parseJson(literal);
  if (!value.is_string()) return std::nullopt;
  return std::string(value.get_string());
}

/// Splits `["name",items]` or `[items]`.
bool readArray(std::string_view text, Packet& packet, bool named) {
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') return false;
  text = text.substr(1, text.size() - 2);
  skipSpace(text);
  if (named) {
    auto event = takeString(text);
    if (!event) return false;
    packet.event = *std::move(event);
    skipSpace(text);
    if (!text.empty()) {
      if (text.front() != ',') return false;
      text.remove_prefix(1);
      skipSpace(text);
      if (text.empty()) return false;
    }
  }
  packet.payload = text;
  return true;
}

enum class Binary { none, some, invalid };

Binary findBinary(const json::value& value, std::size_t attachments) {
  auto found = Binary::none;
  const auto visit = [&](const json::value& element) {
    if (found == Binary::invalid) return;
    found = std::max(found, findBinary(element, attachments));
  };
  if (const auto* array = value.if_array()) {
    for (const auto& element : *array) visit(element);
  } else if (const auto* object = value.if_object()) {
    const auto* mark = object->if_contains("_placeholder");
    if (mark != nullptr && mark->is_bool() && mark->get_bool()) {
      const auto* number = object->if_contains("num");
      boost::system::error_code error;
      const auto index = number != nullptr ? number->to_number<std::uint64_t>(error) : attachments;
      return !error && index < attachments ? Binary::some : Binary::invalid;
    }
    for (const auto& member : *object) visit(member.value());
  }
  return found;
}

std::string withNamespace(std::string_view type, std::string_view nsp, std::size_t more = 0) {
  std::string frame;
  frame.reserve(type.size() + nsp.size() + 1 + more);
  frame += type;
  if (nsp != "/") frame.append(nsp) += ',';
  return frame;
}

void appendQuoted(std::string& out, std::string_view text) {
  const bool isPlain = std::all_of(text.begin(), text.end(), [](char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
  });
  if (isPlain) {
    out.append(1, '"').append(text) += '"';
  } else {
    out += json::serialize(json::string(text));
  }
}

}  // namespace

std::optional<Packet> parsePacket(std::string_view text) {
  if (text.empty() || text.front() < '0' || text.front() > '6') return std::nullopt;
  Packet packet;
  packet.type = static_cast<PacketType>(text.front());
  text.remove_prefix(1);

  const bool binary =
      packet.type == PacketType::binaryEvent || packet.type == PacketType::binaryAck;
  if (binary) {
    const auto count = takeNumber(text);
    if (!count || *count > maxAttachments || text.empty() || text.front() != '-') {
      return std::nullopt;
    }
    packet.attachments = static_cast<std::size_t>(*count);
    text.remove_prefix(1);
  }

  packet.nsp = "/";
  if (!text.empty() && text.front() == '/') {
    const auto end = std::min(text.find(','), text.size());
    packet.nsp = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
  }

  if (!text.empty() && text.front() >= '0' && text.front() <= '9') {
    packet.id = takeNumber(text);
    if (!packet.id) return std::nullopt;
  }

  switch (packet.type) {
    case PacketType::event:
    case PacketType::binaryEvent:
      return readArray(text, packet, true) ? std::optional(std::move(packet)) : std::nullopt;
    case PacketType::ack:
    case PacketType::binaryAck:
      if (!packet.id || !readArray(text, packet, false)) return std::nullopt;
      return packet;
    default:
      packet.payload = text;
      return packet;
  }
}

std::optional<bool> firstItemHoldsBinary(std::string_view items, std::size_t attachments) {
  const auto value = parseJson("[" + std::string(items) + "]");
  const auto* array = value.if_array();
  if (!array || findBinary(value, attachments) == Binary::invalid) return std::nullopt;
  return !array->empty() && findBinary(array->front(), attachments) == Binary::some;
}

std::string encodeEvent(std::string_view nsp, std::optional<std::uint64_t> id,
                        std::string_view event, std::string_view items) {
  constexpr std::size_t idAndPunctuation = 32;
  auto frame = withNamespace("42", nsp, event.size() + items.size() + idAndPunctuation);
  if (id) frame += std::to_string(*id);
  frame += '[';
  appendQuoted(frame, event);
  if (!items.empty()) (frame += ',') += items;
  frame += ']';
  return frame;
}

std::string encodeConnect(std::string_view nsp) { return withNamespace("40", nsp); }

std::string encodeDisconnect(std::string_view nsp) { return withNamespace("41", nsp); }

std::optional<Handshake> parseHandshake(std::string_view text) {
  const auto value = parseJson(text);
  if (!value.is_object()) return std::nullopt;
  const auto& object = value.get_object();

  const auto milliseconds = [&](std::string_view key) -> std::optional<std::int64_t> {
    const auto* number = object.if_contains(key);
    if (number == nullptr || !number->is_number()) return std::nullopt;
    // Not std::clamp, which would pass on the NaN that the parser makes of 0e999.
    const double atLeast = std::max(1'000.0, number->to_number<double>());
    return static_cast<std::int64_t>(std::min(atLeast, 300'000.0));
  };
  const auto interval = milliseconds("pingInterval");
  const auto timeout = milliseconds("pingTimeout");
  if (!interval || !timeout) return std::nullopt;

  boost::system::error_code error;
  const auto* limit = object.if_contains("maxPayload");
  const auto maxPayload = limit != nullptr ? limit->to_number<std::uint64_t>(error) : 0;
  return Handshake{*interval, *timeout, error ? 0 : maxPayload};
}

std::string refusalText(std::string_view text) {
  const auto value = parseJson(text);
  const json::value* message = &value;
  if (const auto* object = value.if_object()) message = object->if_contains("message");
  if (message == nullptr || !message->is_string()) return "no reason given";
  return std::string(message->get_string());
}

std::string quoted(std::string_view text) {
  std::string literal;
  appendQuoted(literal, text);
  return literal;
}

}  // namespace koriva::socketio
