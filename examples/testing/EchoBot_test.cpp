#include "EchoBot.h"

#include <gtest/gtest.h>
#include <testing/KRTesting.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;

using Texts = std::vector<std::string>;

//! [fixture]
class EchoBotTest : public testing::Test {
 protected:
  koriva::testing::Server server;  // before the clients, which end first
  std::vector<std::shared_ptr<KorivaSDK>> clients;
  Texts ends;

  EchoBotTest() {
    server.onFailure([](const std::string& failure) { ADD_FAILURE() << failure; });
    server.answer("create_message", [](const koriva::testing::Request& request) {
      return KRDictionary{{"result", 0}, {"message", request.payload}};
    });
  }

  std::shared_ptr<EchoBot> startBot(const std::string& token = "token-1001",
                                    std::int64_t uin = 1001) {
    const auto sdk = clients.emplace_back(KorivaSDK::create());
    const auto onEnd = [this](const std::string& reason) { ends.push_back(reason); };
    const auto bot = std::make_shared<EchoBot>(*sdk, uin, onEnd);
    bot->start(token);
    server.run();  // it is connected now, unless the server is against it
    return bot;
  }
  //! [fixture]

  /// What a user says, to all bots that are connected.
  void say(const std::string& text, const std::string& uin = "2001") {
    server.push(
        "message",
        {{"message_id", text}, {"group_id", "10012001"}, {"sender_uin", uin}, {"message", text}});
    server.run();
  }

  /// A member of all echoes that have been sent, by one bot or by all.
  Texts sent(const std::string& member, const std::string& token = {}) const {
    Texts values;
    for (const auto& request : server.sent("create_message", token)) {
      values.emplace_back(request.payload.at(member).as_string());
    }
    return values;
  }
};

TEST_F(EchoBotTest, EchoesWhatOthersSay) {
  const auto bot = startBot();
  say("Hello");
  say("I am a bot", "1001");
  EXPECT_EQ(sent("message"), Texts{"Hello"});
  EXPECT_EQ(sent("group_id"), Texts{"10012001"});
  EXPECT_EQ(bot->delivered(), 1);
}

//! [drop]
TEST_F(EchoBotTest, GoesOnAfterTheConnectionWasLost) {
  const auto bot = startBot();
  say("before");
  server.drop();
  server.advance(10s);
  say("after");
  EXPECT_EQ(sent("message"), (Texts{"before", "after"}));
  EXPECT_EQ(bot->delivered(), 2);
}
//! [drop]

TEST_F(EchoBotTest, SendsAgainWhatWasNotAnswered) {
  const auto bot = startBot();
  server.ignore("create_message");
  say("Hello");
  server.answer("create_message", {{"result", 0}, {"message", KRDictionary()}});
  server.runUntil([&] { return bot->delivered() == 1; }, "the second answer");
  EXPECT_EQ(sent("nonce"), (Texts{"echo-Hello", "echo-Hello"}));
}

//! [duplicate]
TEST_F(EchoBotTest, TakesADuplicateForDelivered) {
  const auto bot = startBot();
  server.answer("create_message", [this](const koriva::testing::Request&) {
    server.answer("create_message", {{"result", 13}});  // from now on
    server.drop();                                      // together with this answer
    return KRDictionary{{"result", 0}};
  });
  say("Hello");
  server.runUntil([&] { return bot->delivered() == 1; }, "the second answer");
  EXPECT_EQ(sent("nonce"), (Texts{"echo-Hello", "echo-Hello"}));
}
//! [duplicate]

TEST_F(EchoBotTest, TakesNoForAnAnswer) {
  const auto bot = startBot();
  server.answer("create_message", {{"result", 1}});
  say("Hello");
  server.advance(1min);
  EXPECT_EQ(sent("message"), Texts{"Hello"});
  EXPECT_EQ(bot->delivered(), 0);
}

TEST_F(EchoBotTest, EndsWithItsSession) {
  const auto bot = startBot();
  server.push("login", {{"result", 2}, {"uin", "1001"}});
  server.advance(1h);
  EXPECT_EQ(ends, Texts{"Token expired"});
  EXPECT_FALSE(server.isConnected("token-1001"));
}

TEST_F(EchoBotTest, ComesBackAfterItWasRefused) {
  server.refuse("Wrong session");
  const auto bot = startBot();
  server.advance(1min);
  EXPECT_FALSE(server.isConnected("token-1001"));
  server.accept();
  server.advance(10s);
  say("Hello");
  EXPECT_EQ(bot->delivered(), 1);
}

TEST_F(EchoBotTest, HasAConnectionOfItsOwn) {
  const auto first = startBot("token-1001", 1001);
  const auto second = startBot("token-1002", 1002);
  server.drop("token-1001");
  say("Hello");
  server.advance(10s);
  say("Good night");
  EXPECT_EQ(sent("message", "token-1001"), Texts{"Good night"});
  EXPECT_EQ(sent("message", "token-1002"), (Texts{"Hello", "Good night"}));
}

}  // namespace
