#include "socketio/Packet.h"

#include "socketio/Endpoint.h"
#include "support/Table.h"

namespace koriva::socketio {
namespace {

std::string packet(std::string_view text) {
  const auto packet = parsePacket(text);
  if (!packet) return "none";
  std::string printed(1, static_cast<char>(packet->type));
  printed.append(" ").append(packet->nsp);
  printed.append(" id=").append(packet->id ? std::to_string(*packet->id) : "none");
  printed.append(" binary=").append(std::to_string(packet->attachments));
  return printed.append(" event=" + packet->event + " payload=").append(packet->payload);
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
  return endpoint ? (endpoint->tls ? "tls " : "") + endpoint->authority() : "none";
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

TEST(Packet, IsWritten) {
  EXPECT_EQ(encodeConnect("/data"), "40/data,");
  EXPECT_EQ(encodeDisconnect("/data"), "41/data,");
  EXPECT_EQ(encodeEvent("/data", 17, "ev", R"({"a":1})"), R"(42/data,17["ev",{"a":1}])");
  EXPECT_EQ(encodeEvent("/", {}, "e\"v", ""), R"(42["e\"v"])");
  EXPECT_EQ(requestTarget({{"session", "a+b/c=&\xC3\xA9 "}, {"new", "true"}}),
            "/socket.io/?transport=websocket&EIO=4&session=a%2Bb%2Fc%3D%26%C3%A9%20&new=true");
}

}  // namespace
}  // namespace koriva::socketio
