#include "testing/KRTesting.h"

#include "tests/support/Harness.h"

using namespace koriva::test;

namespace {

using Far = koriva::testing::Server;
using Texts = std::vector<std::string>;

class TestingTest : public ::testing::Test {
 protected:
  TestingTest() {
    server->onFailure([this](const std::string& failure) { failures.push_back(failure); });
  }
  ~TestingTest() override { koriva::timing() = {}; }

  std::shared_ptr<KorivaSDK> login(const std::string& token = "token") {
    const auto sdk = KorivaSDK::create();
    sdk->login(token, 1001, "device", false);
    server->run();
    return sdk;
  }
  void mute(KorivaSDK& sdk, const std::string& name = "muted") {
    sdk.muteGroup("g1", true, Done{name});
  }

  std::optional<Far> server{std::in_place};
  std::vector<std::string> failures;
  Console console;
  KRRunLoop& loop = KRRunLoop::main();
};

TEST_F(TestingTest, IsTheOnlyOne) {
  EXPECT_THROW(Far(), std::logic_error);
  EXPECT_FALSE(loop.attach([] {}));
  server.reset();
  EXPECT_TRUE(loop.attach([] {}));
  EXPECT_THROW(Far(), std::logic_error);
  loop.detach();
  EXPECT_NO_THROW(Far());
}

TEST_F(TestingTest, TellsWhatIsWaitedForInVain) {
  EXPECT_FALSE(server->runUntil([] { return false; }, "a client", 1s));
  const auto sdk = login();
  const auto other = login("other");
  mute(*sdk);
  server->run();
  const auto end = [this] { return console.takeTo("muted: failure 6\n").has_value(); };
  EXPECT_TRUE(server->runUntil(end, "the time-out", 5s));
  server->hang();
  EXPECT_FALSE(server->runUntil([] { return false; }, "Godot", 45s));
  server->accept();
  loop.run();
  EXPECT_EQ(failures, (Texts{"waited in vain for a client; pending: no connection",
                             "waited in vain for Godot; pending: \"token\" is connecting, "
                             "\"other\" is connecting",
                             "a run was not stopped for a day; pending: \"token\" is connected, "
                             "\"other\" is connected"}));
}

TEST_F(TestingTest, ServesClientsByTheirTokens) {
  server->onLogin([this](const auto& login) {
    server->push("error", {{"error", login.token == "a" ? 1 : 2}}, login.token);
  });
  const auto first = KorivaSDK::create();
  first->addDelegate(std::make_shared<Recorder>("a"));
  first->setBaseUrl("https://[::1]:1");
  first->login("a", 1, "d +%", true);
  server->run();
  EXPECT_TRUE(console.takeTo("a didConnect\na didReceiveError 1\n"));
  const auto second = login("b");
  second->addDelegate(std::make_shared<Recorder>("b"));
  server->push("error", {{"error", 3}}, "a");
  server->push("error", {{"error", 4}}, "b");
  server->run();
  const auto connected = "KorivaSDK - socket connected\n";
  EXPECT_EQ(console.take(), connected + std::string("a didReceiveError 3\nb didReceiveError 4\n"));
  mute(*first, "first");
  mute(*second, "second");
  server->run();
  EXPECT_EQ(server->sent("mute_group").size(), 2U);
  const auto sent = server->sent({}, "b");
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event + *koriva::toJsonString(sent[0].payload),
            R"(mute_group{"group_id":"g1"})");
  server->reply(sent[0], {{"result", 0}});
  server->reply(sent[0], {{"result", 1}});
  server->drop("a");
  server->run();
  EXPECT_TRUE(console.takeTo("second: true\n"));
  EXPECT_FALSE(server->isConnected("a"));
  first->reconnectIfNeed();
  server->advance(1s);
  mute(*first, "first again");
  server->reply(server->sent({}, "a")[0], {{"result", 0}});
  server->run();
  EXPECT_EQ(console.takeTo("again: true"), std::nullopt);
  EXPECT_TRUE(server->isConnected("b"));
  const auto& logins = server->logins();
  ASSERT_EQ(logins.size(), 3U);
  EXPECT_EQ(logins[0].server + logins[0].token + logins[0].deviceId, "https://[::1]:1ad +%");
  EXPECT_TRUE(logins[0].isNew && !logins[1].isNew);
  server->forget();
  EXPECT_TRUE(server->logins().empty() && server->sent().empty() && server->frames().empty());
}

TEST_F(TestingTest, EndsWhatNeverEnds) {
  server->answer("mute_group", {{"result", 1}});
  const auto sdk = login();
  std::function<void(const KRResult<bool>&)> repeat = [&](const auto&) {
    sdk->muteGroup("g1", true, repeat);
  };
  repeat(KRResult<bool>::success(true));
  server->run();
  EXPECT_EQ(failures, Texts{"clients go on sending while no time passes; pending: \"token\" is "
                            "connected, has no answer to \"mute_group\""});
  sdk->logout();
}

TEST_F(TestingTest, SaysWhatItIsTold) {
  server.reset();
  server.emplace(koriva::testing::Handshake{.pingInterval = 1s, .pingTimeout = 2s});
  server->answer("mute_group", [this](const auto& request) {
    server->ignore(request.event);
    return KRDictionary{{"result", 5}};
  });
  const auto sdk = login();
  mute(*sdk, "first");
  mute(*sdk, "second");
  server->run();
  EXPECT_TRUE(console.takeTo("first: false\n"));
  server->send("42/data,[\"no such event\"]", "another token");
  server->advance(2s);
  EXPECT_EQ(server->frames(), (Texts{"40/data,", R"(42/data,0["mute_group",{"group_id":"g1"}])",
                                     R"(42/data,1["mute_group",{"group_id":"g1"}])", "3", "3"}));
  EXPECT_THROW(server->push("message", {{"nan", std::nan("")}}), std::invalid_argument);
}

TEST_F(TestingTest, LeavesItsClientsToTheRealWorld) {
  koriva::timing().limits = {.connect = 1h, .acknowledgement = 20ms};
  koriva::timing().reconnectInterval = 1h;
  const auto sdk = login();
  server->advance(24h);
  sdk->login("token", 1001, "device", false);
  server->advance(1s);
  mute(*sdk);
  server->run();
  server.reset();
  EXPECT_TRUE(runUntil([&] { return console.takeTo("muted: failure 6\n").has_value(); }));
  EXPECT_FALSE(sdk->isConnected());
  mute(*sdk, "later");
  EXPECT_TRUE(runUntil([&] { return console.takeTo("later: failure 6\n").has_value(); }));
  Server real;
  sdk->setBaseUrl(real.url());
  sdk->reconnectIfNeed();
  EXPECT_TRUE(runUntil([&] { return sdk->isConnected(); }));
  server.emplace();
  server->advance(1h);
  EXPECT_TRUE(sdk->isConnected() && server->logins().empty());
  sdk->login("token", 1001, "device", false);
  server->advance(1s);
  EXPECT_EQ(server->logins().size(), 1U);
}

}  // namespace
