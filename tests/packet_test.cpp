#include "socketio/Packet.h"

#include <gmock/gmock.h>

#include "socketio/Endpoint.h"

namespace koriva::socketio {
namespace {

struct Parsed {
  const char* text;
  PacketType type;
  const char* nsp;
  std::optional<std::uint64_t> id;
  std::size_t attachments;
  const char* event;
  const char* payload;
};

TEST(Packet, ParsesWhatServersSend) {
  const Parsed table[] = {
      {R"(0/data,{"sid":"a"})", PacketType::connect, "/data", {}, 0, "", R"({"sid":"a"})"},
      {"0", PacketType::connect, "/", {}, 0, "", ""},
      {"1/data,", PacketType::disconnect, "/data", {}, 0, "", ""},
      {"1/data", PacketType::disconnect, "/data", {}, 0, "", ""},
      {R"(2/data,["ev",{"a":1}, 2 ])", PacketType::event, "/data", {}, 0, "ev", R"({"a":1}, 2 )"},
      {R"(2/data,17["ev"])", PacketType::event, "/data", 17, 0, "ev", ""},
      {R"(2[ "a\u0062\"" , null])", PacketType::event, "/", {}, 0, "ab\"", "null"},
      {"3/data,6[]", PacketType::ack, "/data", 6, 0, "", ""},
      {"3/data,18446744073709551615[null]", PacketType::ack, "/data", ~0ULL, 0, "", "null"},
      {R"(4/nope,"no")", PacketType::connectError, "/nope", {}, 0, "", R"("no")"},
      {R"(52-/data,["ev",{"_placeholder":true,"num":0}])",
       PacketType::binaryEvent,
       "/data",
       {},
       2,
       "ev",
       R"({"_placeholder":true,"num":0})"},
      {R"(61-/data,24[{}])", PacketType::binaryAck, "/data", 24, 1, "", "{}"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.text);
    const auto packet = parsePacket(row.text);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->type, row.type);
    EXPECT_EQ(packet->nsp, row.nsp);
    EXPECT_EQ(packet->id, row.id);
    EXPECT_EQ(packet->attachments, row.attachments);
    EXPECT_EQ(packet->event, row.event);
    EXPECT_EQ(packet->payload, row.payload);
  }
}

TEST(Packet, DropsTheMalformed) {
  for (const char* text : {"",
                           "7",
                           "x",
                           "2",
                           "2/data,",
                           "2/data,[",
                           "2/data,]",
                           "2/data,[]",
                           "2/data,{}",
                           "2[1]",
                           R"(2["ev)",
                           R"(2["ev"x])",
                           R"(2["ev",])",
                           R"(2["ev\])",
                           R"(2["\q"])",
                           R"(2["ev"]x)",
                           "3/data,[1]",
                           "3/data,xyz",
                           "3/data,99999999999999999999[]",
                           R"(5["ev"])",
                           R"(565-["ev"])",
                           R"(5-["ev"])",
                           R"(5x-["ev"])",
                           "61-/data,[{}]",
                           "2   "}) {
    EXPECT_FALSE(parsePacket(text)) << text;
  }
}

TEST(Packet, FindsPlaceholders) {
  EXPECT_EQ(firstItemHoldsBinary(R"({"a":[{"_placeholder":true,"num":1}]})", 2), true);
  EXPECT_EQ(firstItemHoldsBinary(R"({"a":1},{"_placeholder":true,"num":0})", 1), false);
  EXPECT_EQ(firstItemHoldsBinary("", 1), false);
  for (const char* items :
       {R"({"_placeholder":true,"num":1})", R"({"_placeholder":true,"num":-1})",
        R"({"_placeholder":true})", R"({"_placeholder":true,"num":"0"})", "{", "1]"}) {
    EXPECT_EQ(firstItemHoldsBinary(items, 1), std::nullopt) << items;
  }
  EXPECT_EQ(firstItemHoldsBinary(std::string(10'000, '['), 1), std::nullopt);
}

TEST(Packet, EncodesFrames) {
  EXPECT_EQ(encodeConnect("/data"), "40/data,");
  EXPECT_EQ(encodeDisconnect("/data"), "41/data,");
  EXPECT_EQ(encodeEvent("/data", 17, "ev", R"({"a":1})"), R"(42/data,17["ev",{"a":1}])");
  EXPECT_EQ(encodeEvent("/", {}, "e\"v", ""), R"(42["e\"v"])");
}

TEST(Packet, ReadsHandshakesWithinBounds) {
  const auto usual = parseHandshake(
      R"({"sid":"a","upgrades":[],"pingInterval":25000,"pingTimeout":20000,"maxPayload":1000000})");
  ASSERT_TRUE(usual);
  EXPECT_EQ(usual->pingInterval, 25'000);
  EXPECT_EQ(usual->pingTimeout, 20'000);
  EXPECT_EQ(usual->maxPayload, 1'000'000U);
  const auto absurd = parseHandshake(R"({"pingInterval":-5,"pingTimeout":1e300,"maxPayload":-1})");
  ASSERT_TRUE(absurd);
  EXPECT_EQ(absurd->pingInterval, 1'000);
  EXPECT_EQ(absurd->pingTimeout, 300'000);
  EXPECT_EQ(absurd->maxPayload, 0U);
  const auto nan = parseHandshake(R"({"pingInterval":0e999,"pingTimeout":1})");
  ASSERT_TRUE(nan);
  EXPECT_EQ(nan->pingInterval, 1'000);
  for (const char* text :
       {"", "[]", "{", R"({"pingInterval":1})", R"({"pingInterval":"1","pingTimeout":2})"}) {
    EXPECT_FALSE(parseHandshake(text)) << text;
  }
}

TEST(Packet, ReadsRefusals) {
  EXPECT_EQ(refusalText(R"({"message":"not authorized","data":{}})"), "not authorized");
  EXPECT_EQ(refusalText(R"("Unable to connect")"), "Unable to connect");
  for (const char* text : {"", "{}", "7", R"({"message":7})", "{"}) {
    EXPECT_EQ(refusalText(text), "no reason given") << text;
  }
}

TEST(Endpoint, ReadsUrlsAndWritesTargets) {
  struct Row {
    const char* url;
    const char* authority;  // null when refused
    bool tls;
  };
  for (const auto& row :
       std::initializer_list<Row>{{"http://localhost:2082", "localhost:2082", false},
                                  {"HTTP://example.org:80/path?q", "example.org", false},
                                  {"wss://example.org", "example.org", true},
                                  {"https://example.org:8443/", "example.org:8443", true},
                                  {"ws://[::1]:90", "[::1]:90", false},
                                  {"ftp://example.org", nullptr, false},
                                  {"http://", nullptr, false},
                                  {"http://h:0", nullptr, false},
                                  {"http://h:65536", nullptr, false},
                                  {"example.org", nullptr, false},
                                  {"http://a b", nullptr, false},
                                  {"", nullptr, false}}) {
    SCOPED_TRACE(row.url);
    const auto endpoint = Endpoint::parse(row.url);
    ASSERT_EQ(endpoint.has_value(), row.authority != nullptr);
    if (!endpoint) continue;
    EXPECT_EQ(endpoint->authority(), row.authority);
    EXPECT_EQ(endpoint->tls, row.tls);
  }
  EXPECT_EQ(requestTarget({{"session", "a+b/c=&\xC3\xA9 "}, {"new", "true"}}),
            "/socket.io/?transport=websocket&EIO=4&session=a%2Bb%2Fc%3D%26%C3%A9%20&new=true");
}

}  // namespace
}  // namespace koriva::socketio
