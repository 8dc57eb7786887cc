#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "socketio/Frame.h"

namespace koriva::socketio {

/// Socket.IO packet types, by their digit on the wire.
enum class PacketType : char {
  connect = '0',
  disconnect = '1',
  event = '2',
  ack = '3',
  connectError = '4',
  binaryEvent = '5',
  binaryAck = '6',
};

/// One parsed Socket.IO packet. The views point into the text that was parsed.
struct Packet {
  PacketType type{};
  std::string_view nsp;
  std::optional<std::uint64_t> id;
  std::size_t attachments = 0;
  std::string event;         ///< the name, of the two event types
  std::string_view payload;  ///< events and acknowledgements: what stands between the brackets,
                             ///< after the name; else the JSON text
};

inline constexpr std::size_t maxAttachments = 64;

/// Whether a message that says it is a text is one: whether it is UTF-8.
bool isText(std::string_view message);

/// Parses what follows the Engine.IO type "4"; nothing when it is no well-formed packet. The
/// payload is only delimited here: whoever reads it finds out whether it is valid JSON, so that
/// it is gone through once.
std::optional<Packet> parsePacket(std::string_view text);

/// Whether the first of the items holds binary; nothing when a placeholder refers to no attachment
/// or the items are not valid JSON.
std::optional<bool> firstItemHoldsBinary(std::string_view items, std::size_t attachments);

/// Makes the whole frame of an event, Engine.IO type included, of its items.
void encodeEvent(std::string_view nsp, std::optional<std::uint64_t> id, std::string_view event,
                 Frame& items);

std::string encodeConnect(std::string_view nsp);
std::string encodeDisconnect(std::string_view nsp);

/// What the open packet says, in milliseconds and bytes, within sane bounds.
struct Handshake {
  std::int64_t pingInterval = 0;
  std::int64_t pingTimeout = 0;
  std::uint64_t maxPayload = 0;  ///< 0: the server names no limit
};

/// Reads the JSON of the open packet, of at most 64 KiB.
std::optional<Handshake> parseHandshake(std::string_view json);

/// The text of a refusal of at most 64 KiB: that of its "message", or the string that it is.
std::string refusalText(std::string_view json);

/// `text` as a JSON string.
std::string quoted(std::string_view text);

}  // namespace koriva::socketio
