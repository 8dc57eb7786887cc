#include "socketio/Packet.h"

#include <algorithm>
#include <charconv>

#include "extensions/JSONItems.h"
#include "extensions/JSONReader.h"
#include "extensions/JSONText.h"

namespace koriva::socketio {
namespace {

constexpr std::size_t maxControlText = std::size_t{64} << 10;

constexpr std::string_view space = " \t\r\n";

struct OpenPacket {
  std::optional<double> pingInterval;
  std::optional<double> pingTimeout;
  std::uint64_t maxPayload = 0;

  static const json::Coding coding;
};

constinit const json::Coding OpenPacket::coding =
    json::lenient<json::Field<"pingInterval", &OpenPacket::pingInterval>,
                  json::Field<"pingTimeout", &OpenPacket::pingTimeout>,
                  json::Field<"maxPayload", &OpenPacket::maxPayload>>;

struct Refusal {
  std::string message = "no reason given";

  static const json::Coding coding;
};

constinit const json::Coding Refusal::coding =
    json::lenient<json::Field<"message", &Refusal::message>>;

void skipSpace(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(space), text.size()));
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
  json::Reader reader(text);
  std::string value;
  if (reader.peek(text.data()) != '"') return std::nullopt;
  const char* const end = reader.text(text.data() + 1, value);
  if (!end) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return value;
}

/// Splits `["name",items]` or `[items]`.
bool readArray(std::string_view text, Packet& packet, bool named) {
  text = text.substr(0, text.find_last_not_of(space) + 1);
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

/// Looks for what stands for attachments: `{"_placeholder":true,"num":0}`.
class BinaryFinder : public json::Reader {
 public:
  BinaryFinder(std::string_view json, std::size_t attachments)
      : Reader(json), attachments_(attachments) {}

  /// Goes through a value; `found` is raised to what is in it.
  const char* value(const char* at, Binary& found) {
    if (peek(at) == '[') {
      return elements(at + 1, [&](const char* element) { return value(element, found); });
    }
    if (peek(at) != '{') return skip(at);
    auto inside = Binary::none;
    bool isPlaceholder = false;
    std::optional<json::Integer> index;
    at = members(at + 1, [&](const char* member) {
      member = colon(text(member, key_));
      if (!member) return member;
      if (key_ == "_placeholder") isPlaceholder = peek(member) == 't';
      if (key_ == "num") index = indexAt(member);
      return value(member, inside);
    });
    if (isPlaceholder) {
      const bool isThere = index && !index->isNegative && index->magnitude < attachments_;
      inside = isThere ? Binary::some : Binary::invalid;
    }
    found = std::max(found, inside);
    return at;
  }

 private:
  std::optional<json::Integer> indexAt(const char* at) {
    json::Number index;
    if (peek(at) < '0' || peek(at) > '9' || !number(at, index)) return std::nullopt;
    return index.integer();
  }

  std::size_t attachments_;
  std::string key_;
};

std::string withNamespace(std::string_view type, std::string_view nsp) {
  std::string frame(type);
  if (nsp != "/") frame.append(nsp) += ',';
  return frame;
}

}  // namespace

bool isText(std::string_view message) { return json::isUtf8(message); }

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
  if (items.empty()) return false;
  BinaryFinder finder(items, attachments);
  auto inFirst = Binary::none;
  auto inOthers = Binary::none;
  const char* at = finder.value(finder.skipSpace(items.data()), inFirst);
  if (at) at = finder.itemsEnd(at, [&](const char* item) { return finder.value(item, inOthers); });
  if (!at || std::max(inFirst, inOthers) == Binary::invalid) return std::nullopt;
  return inFirst == Binary::some;
}

void encodeEvent(std::string_view nsp, std::optional<std::uint64_t> id, std::string_view event,
                 Frame& items) {
  if (!items.view().empty()) items.prepend(",");
  items.prepend(quoted(event));
  items.prepend("[");
  if (id) items.prepend(std::to_string(*id));
  items.prepend(withNamespace("42", nsp));
  items.append(']');
}

std::string encodeConnect(std::string_view nsp) { return withNamespace("40", nsp); }

std::string encodeDisconnect(std::string_view nsp) { return withNamespace("41", nsp); }

std::optional<Handshake> parseHandshake(std::string_view text) {
  if (text.size() > maxControlText) return std::nullopt;
  const auto open = json::decode<OpenPacket>(text);
  if (!open || !open->pingInterval || !open->pingTimeout) return std::nullopt;
  const auto milliseconds = [](double number) {
    return static_cast<std::int64_t>(std::clamp(number, 1'000.0, 300'000.0));
  };
  return Handshake{milliseconds(*open->pingInterval), milliseconds(*open->pingTimeout),
                   open->maxPayload};
}

std::string refusalText(std::string_view text) {
  if (text.size() > maxControlText) return Refusal().message;
  if (auto message = takeString(text)) return *std::move(message);
  const auto refusal = json::decode<Refusal>(text);
  return refusal ? refusal->message : Refusal().message;
}

std::string quoted(std::string_view text) {
  std::string literal;
  json::appendText(literal, text);
  return literal;
}

}  // namespace koriva::socketio
