#include "socketio/Packet.h"

#include <sstream>

#include "socketio/Endpoint.h"
#include "support/Table.h"

namespace koriva::socketio {
namespace {

std::string packet(std::string_view text) {
  const auto packet = parsePacket(text);
  if (!packet) return "none";
  std::ostringstream printed;
  printed << static_cast<char>(packet->type) << " " << packet->nsp
          << " id=" << (packet->id ? std::to_string(*packet->id) : "none")
          << " binary=" << packet->attachments << " event=" << packet->event
          << " payload=" << packet->payload;
  return printed.str();
}

std::string binary(std::string_view items) {
  const auto found = firstItemHoldsBinary(items, 1);
  return found ? *found ? "yes" : "no" : "invalid";
}

std::string handshake(std::string_view text) {
  const auto read = parseHandshake(text);
  if (!read) return "none";
  return std::to_string(read->pingInterval) + " " + std::to_string(read->pingTimeout) + " " +
         std::to_string(read->maxPayload);
}

std::string endpoint(std::string_view url) {
  const auto endpoint = Endpoint::parse(url);
  if (!endpoint) return "none";
  return (endpoint->tls() ? "tls " : "") + endpoint->authority() + " " + endpoint->certifiedName();
}

TEST(Packet, IsReadFromText) {
  test::checkTable("packets.txt", {{"packet", packet},
                                   {"binary in the first of items with 1 attachment", binary},
                                   {"handshake", handshake},
                                   {"refusal", refusalText},
                                   {"endpoint", endpoint}});
  EXPECT_EQ(firstItemHoldsBinary(R"({"_placeholder":true,"num":1})", 2), true);
  EXPECT_EQ(firstItemHoldsBinary(std::string(10'000, '['), 1), std::nullopt);
}

}  // namespace
}  // namespace koriva::socketio
