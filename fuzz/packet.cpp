// The packet codec. The input is what follows the Engine.IO type of a frame.

#include <algorithm>
#include <functional>
#include <string>

#include "extensions/JSONItems.h"
#include "extensions/JSONText.h"
#include "fuzz/Fuzz.h"
#include "socketio/Endpoint.h"
#include "socketio/Packet.h"

using namespace koriva::socketio;
using koriva::fuzz::require;

namespace {

bool isSliceOf(std::string_view text, std::string_view slice) {
  const std::less_equal<const char*> before;
  return before(text.data(), slice.data()) &&
         before(slice.data() + slice.size(), text.data() + text.size());
}

void checkPacket(std::string_view text) {
  const auto packet = parsePacket(text);
  if (!packet) return;
  require(isSliceOf(text, packet->payload), "the payload is part of the packet");
  require(packet->attachments <= maxAttachments, "attachments are limited");
  require(packet->nsp.starts_with('/'), "a namespace begins with a slash");
  if (packet->type != PacketType::event) return;

  Frame frame(std::string(Frame::headRoom, ' ').append(packet->payload), Frame::headRoom);
  encodeEvent(packet->nsp, packet->id, packet->event, frame);
  require(frame.view().starts_with("42"), "the frame is an event");
  const auto again = parsePacket(frame.view().substr(1));
  require(again.has_value(), "an event that was read can be written");
  require(again->nsp == packet->nsp && again->id == packet->id && again->event == packet->event &&
              again->payload == packet->payload,
          "an event that was written reads the same");
}

void checkItems(std::string_view items) {
  for (const std::size_t attachments : {std::size_t{0}, std::size_t{2}, maxAttachments}) {
    const auto holdsBinary = firstItemHoldsBinary(items, attachments);
    require(!holdsBinary || !*holdsBinary || attachments != 0, "no binary without attachments");
    require(!holdsBinary || items.empty() || koriva::json::areItems(items), "items are JSON");
  }
}

void checkHandshake(std::string_view json) {
  const auto isSane = [](std::int64_t milliseconds) {
    return milliseconds >= 1'000 && milliseconds <= 300'000;
  };
  const auto handshake = parseHandshake(json);
  require(!handshake || (isSane(handshake->pingInterval) && isSane(handshake->pingTimeout)),
          "heartbeat intervals are clamped");
}

void checkUrl(std::string_view url) {
  const auto endpoint = Endpoint::parse(url);
  if (!endpoint) return;
  const bool isPlain = std::ranges::all_of(endpoint->host(), [](char c) {
    return c == '.' || c == '-' || c == '_' || c == ':' || (c >= '0' && c <= '9') ||
           (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  });
  require(isPlain && !endpoint->certifiedName().empty(), "a host is a name or an address");
  const auto again =
      Endpoint::parse((endpoint->tls() ? "https://" : "http://") + endpoint->authority());
  require(again && again->tls() == endpoint->tls() && again->host() == endpoint->host() &&
              again->port() == endpoint->port(),
          "an address that was written reads the same");
}

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  checkPacket(input);
  checkItems(input);
  checkHandshake(input);
  require(json::isUtf8(refusalText(input)), "the text of a refusal is text");
  checkUrl(input);
  const std::string_view target = "/socket.io/?transport=websocket&EIO=4&session=";
  const auto request = requestTarget({{"session", std::string(input)}});
  require(request.starts_with(target) &&
              request.find_first_of(" &+#\r\n", target.size()) == std::string::npos,
          "a parameter cannot break out of the request");
}
