#include <list>
#include <thread>

#include "tests/support/Harness.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

using ClientTest = ServerTest;

void print(const std::string& line) { koriva::printLine(line); }

/// A client that a script's steps are done to, and what is printed. Each wait is for what comes
/// after the one before.
struct Play : ServerTest {
  void TestBody() override {}
  std::string follow(std::string_view script) {
    perform(steps, script);
    seen += console.take();
    return seen.substr(0, seen.size() - 1);
  }
  void act(std::string_view script) { perform(steps, script, "; "); }
  void await(const std::string& text) {
    EXPECT_TRUE(awaitText(text)) << text;
    seen += console.take();
  }

  KRRunLoop& loop = KRRunLoop::main();
  std::string seen;
  std::shared_ptr<KorivaSDK> other;
  std::map<std::string, std::shared_ptr<Recorder>> recorders;
  const Steps steps{
      {"interval", [](auto& ms) { koriva::timing().reconnectInterval = milliseconds(ms); }},
      {"limit", [](auto& ms) { koriva::timing().limits.acknowledgement = milliseconds(ms); }},
      {"url", [this](auto& url) { print(sdk->setBaseUrl(url) ? "taken" : "refused"); }},
      {"login", [this](auto& isNew) { login(isNew == "new"); }},
      {"logout", [this](auto&) { sdk->logout(); }},
      {"disconnect", [this](auto&) { sdk->disconnect(); }},
      {"reconnect", [this](auto&) { sdk->reconnectIfNeed(); }},
      {"fire", [this](auto&) { sdk->reconnectFired(); }},
      {"chat", [this](auto& channel) { sdk->connectChat(channel); }},
      {"status", [this](auto&) { print(sdk->isConnected() ? "connected" : "not connected"); }},
      {"release", [this](auto&) { renewClient(); }},
      {"leave", [this](auto&) { other = sdk, renewClient(); }},
      {"return", [this](auto&) { sdk.swap(other); }},
      {"print", print},
      {"throw", [](auto& text) { throw std::runtime_error(text); }},
      {"caught", [](auto&) { print("caught " + awaitThrown()); }},
      {"post", [this](auto& script) { loop.post([=, this] { act(script); }); }},
      {"postNothing", [this](auto&) { loop.post({}); }},
      {"guarded", [this](auto& script) { koriva::guarded([&] { act(script); }); }},
      {"run", [this](auto&) { loop.run(); }},
      {"stop", [this](auto&) { loop.stop(); }},
      {"stopFromAThread", [this](auto&) { std::jthread([this] { loop.stop(); }); }},
      {"task",
       [this](auto& script) {
         sdk->runNowOrWhenSDKReady([=, this](bool ready) { ready ? act(script) : print("no"); });
       }},
      {"ask",
       [this](auto& script) {
         sdk->deleteGroup("sentinel", [=, this](const auto&) { act(script); });
       }},
      {"mute", [this](auto& name) { sdk->muteGroup("g1", true, Done{name}); }},
      {"events",
       [this](auto& count) {
         for (int i = std::stoi(count); i > 0; --i) sdk->sendGroupEvent("1001", {});
       }},
      {"logoutEvent", [this](auto&) { sdk->sendLogoutEvent(1001, 1); }},
      {"delegate",
       [this](auto& name) {
         sdk->addDelegate(recorders.emplace(name, std::make_shared<Recorder>(name)).first->second);
       }},
      {"within",
       [this](auto& script) {
         recorders[script.substr(0, 1)]->act = [=, this] { act(script.substr(2)); };
       }},
      {"remove", [this](auto& name) { sdk->removeDelegate(recorders[name]); }},
      {"removeTwin", [this](auto& a) { sdk->removeDelegate(std::make_shared<Recorder>(a)); }},
      {"uses", [this](auto& name) { print(std::to_string(recorders[name].use_count())); }},
      {"kill", [this](auto&) { server.kill(); }},
      {"revive", [this](auto&) { server.returnToLife(); }},
      {"refuse", [this](auto& is) { server.tell(R"({"do":"refuse","on":)" + is + "}"); }},
      {"error", [this](auto& code) { server.push("error", "{\"error\":" + code + "}"); }},
      {"heard", [this](auto& of) { EXPECT_TRUE(awaitReports(of, 1)); }},
      {"count", [this](auto& of) { print(std::to_string(server.reports(of).size())); }},
      {"last", [this](auto& of) { print(json::serialize(server.reports(of).back())); }},
      {"await", [this](auto& text) { await(text); }},
      {"settle", [this](auto&) { settle(), await("settled"); }},
  };
};

TEST(Client, FollowsTheScript) {
  checkTable("clients.txt", {{"script", [](auto script) { return Play().follow(script); }}});
}

TEST_F(ClientTest, LogsInOnTheWire) {
  Server pinging(R"({"server":{"pingInterval":50}})");
  EXPECT_TRUE(sdk->setBaseUrl(pinging.url()));
  sdk->login("a+b/c=&\u00e9?#", 1001, "dev ice", true);
  EXPECT_FALSE(sdk->isConnected());
  EXPECT_TRUE(runUntil([&] { return pinging.reports("packet").size() >= 3; }));
  EXPECT_THAT(pinging.reports("packet"), testing::Each(testing::AnyOf("message0/data,", "pong")));
  EXPECT_EQ(pinging.reports("packet").at(0), "message0/data,");
  EXPECT_EQ(pinging.reports("url"), json::array({"/socket.io/?transport=websocket&EIO=4&session="
                                                 "a%2Bb%2Fc%3D%26%C3%A9%3F%23&deviceid=dev%20ice"
                                                 "&new=true"}));
  EXPECT_FALSE(KRRunLoop::main().attach([] {})) << "too late";
}

TEST_F(ClientTest, TakesRequestsFromAnyThread) {
  koriva::timing().limits.acknowledgement = 100ms;
  server.answer("create_link", R"([{"result":0,"link":{"$payload":"group_id"}}])");
  static std::counting_semaphore<> turns(0);
  std::atomic<bool> ended = false;
  std::vector<std::vector<int>> links(8);
  std::list<std::jthread> threads;
  const auto here = std::this_thread::get_id();
  for (auto& own : links) {
    threads.emplace_back([&] {
      for (int i = 0; !ended; ++i) {
        turns.acquire();
        const auto client = KorivaSDK::shared();
        client->createJoinGroupLink(std::to_string(i), [&](const KRResult<std::string>& link) {
          EXPECT_EQ(std::this_thread::get_id(), here);
          if (link) own.push_back(std::stoi(link.value()));
        });
      }
    });
  }
  for (std::size_t round = 1; round <= 10; ++round) {
    login();
    EXPECT_TRUE(runUntil([&] {
      turns.release(2);
      return std::ranges::all_of(links, [&](const auto& own) { return own.size() >= 5 * round; });
    }));
    turns.release(100);  // for what comes now
    round % 2 == 0 ? renewClient() : sdk->logout();
  }
  ended = true;
  turns.release(std::ssize(links));
  threads.clear();
  login();
  sdk->muteGroup("g1", true, Done{"last"});
  EXPECT_TRUE(awaitText("last: failure"));
  for (const auto& own : links) EXPECT_TRUE(std::ranges::is_sorted(own, std::less_equal<>()));
  console.take();
}

TEST(DefaultUrlDeathTest, EndsTheProcessUnlessItIsAUrl) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(koriva::parseDefaultUrl("no url"),
               "Unexpectedly found nil while unwrapping an Optional value");
}

}  // namespace
