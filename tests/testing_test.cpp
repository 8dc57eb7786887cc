#include "testing/KRTesting.h"

#include <gmock/gmock.h>

#include "KorivaSDK/KRAsync.h"
#include "tests/support/Harness.h"

namespace koriva::test {
namespace {

TEST(Try, Sketch) {
  koriva::testing::Server server;
  auto sdk = KorivaSDK::shared();
  server.answer("create_message", [](const koriva::testing::Request& r) { return KRDictionary{{"result", 13}, {"message", r.payload}}; });
  server.answer("mute_group", {{"result", 0}});
  sdk->addDelegate(std::make_shared<Recorder>("d"));
  sdk->login("to+k", 1001, "device", true);
  server.run();
  EXPECT_TRUE(sdk->isConnected());
  server.push("message", {{"message_id", "1"}, {"message", "Hi"}});
  server.run();
  sdk->sendMessage(KRMessage{}, Done{"sent"});
  sdk->muteGroup("g", true, Done{"mute"});
  sdk->getBlockContactList("u", Done{"never"});
  server.run();
  server.drop();
  server.run();
  EXPECT_FALSE(sdk->isConnected());
  server.advance(10s);
  EXPECT_TRUE(sdk->isConnected());
  EXPECT_FALSE(server.runUntil([]{return false;}, "Godot"));
  for (auto& l : server.logins()) std::cout << l.server << " " << l.token << " " << l.deviceId << " " << l.isNew << " " << l.target << "\n";
  for (auto& f : server.frames()) if (f != "3") std::cout << f << "\n";
  sdk->muteGroup("g", true, Done{"mute"});
  std::cout << server.pending() << "\n";
}

}  // namespace
}  // namespace koriva::test
