#include <list>
#include <thread>

#include "tests/support/Harness.h"
#include "tests/support/Script.h"

using namespace koriva::test;

namespace {

using ClientTest = ServerTest;

void print(const std::string& line) { koriva::printLine(line); }

/// A client that a script's steps are done to, and what is printed.
struct Play : ServerTest {
  void TestBody() override {}
  std::string next() {
    auto line = printedTo("\n");
    if (!line.empty()) line.pop_back();
    return line;
  }
  std::string rest() { return console.take(); }
  std::function<void()> doing(const Step& it) {
    return [this, alive = std::weak_ptr(life), body = it.body] {
      if (!alive.expired()) perform(steps, body);
    };
  }

  KRRunLoop& loop = KRRunLoop::main();
  const std::shared_ptr<bool> life = std::make_shared<bool>(true);
  std::shared_ptr<KorivaSDK> other;
  std::map<std::string, std::shared_ptr<Recorder>> recorders;
  const Steps steps{
      {"interval *", [](auto& it) { koriva::timing().reconnectInterval = millisecondsIn(it); }},
      {"limit *", [](auto& it) { koriva::timing().limits.acknowledgement = millisecondsIn(it); }},
      {"redial *", [](auto& it) { koriva::timing().limits.redial = millisecondsIn(it); }},
      {"url", [this](auto&) { print(sdk->setBaseUrl("") ? "taken" : "refused"); }},
      {"url *", [this](auto& it) { print(sdk->setBaseUrl(it.argument) ? "taken" : "refused"); }},
      {"login", [this](auto&) { login(); }},
      {"loginAsNew", [this](auto&) { login(true); }},
      {"loginAs *",
       [this](auto& it) {
         const auto name = boost::replace_all_copy(it.argument, "(bad byte)", "\xff");
         sdk->login(name, 1002, name, false);
       }},
      {"logout", [this](auto&) { sdk->logout(); }},
      {"disconnect", [this](auto&) { sdk->disconnect(); }},
      {"reconnect", [this](auto&) { sdk->reconnectIfNeed(); }},
      {"fire", [this](auto&) { sdk->reconnectFired(); }},
      {"chat *", [this](auto& it) { sdk->connectChat(it.argument); }},
      {"status", [this](auto&) { print(sdk->isConnected() ? "connected" : "not connected"); }},
      {"release", [this](auto&) { renewClient(); }},
      {"leave", [this](auto&) { other = sdk, renewClient(); }},
      {"return", [this](auto&) { sdk.swap(other); }},
      {"share", [this](auto&) { KorivaSDK::setShared(sdk); }},
      {"shared", [this](auto&) { print(KorivaSDK::shared() == sdk ? "this one" : "another"); }},
      {"print *", [](auto& it) { print(it.argument); }},
      {"throw *", [](auto& it) { throw std::runtime_error(it.argument); }},
      {"caught", [](auto&) { print("caught " + awaitThrown()); }},
      {"post:", [this](auto& it) { loop.post(doing(it)); }},
      {"postNothing", [this](auto&) { loop.post({}); }},
      {"guarded:", [this](auto& it) { koriva::guarded(doing(it)); }},
      {"run", [this](auto&) { loop.run(); }},
      {"runForAges", [this](auto&) { loop.runFor(std::chrono::nanoseconds::max() - 1s); }},
      {"stop", [this](auto&) { loop.stop(); }},
      {"stopFromAThread", [this](auto&) { std::jthread([this] { loop.stop(); }); }},
      {"task:",
       [this](auto& it) {
         sdk->runNowOrWhenSDKReady([act = doing(it)](bool ready) { ready ? act() : print("no"); });
       }},
      {"ask:",
       [this](auto& it) {
         sdk->deleteGroup("sentinel", [act = doing(it)](const auto&) { act(); });
       }},
      {"mute *", [this](auto& it) { sdk->muteGroup("g1", true, Done{it.argument}); }},
      {"events *",
       [this](auto& it) {
         for (auto left = numberIn(it); left > 0; --left) sdk->sendGroupEvent("1001", {});
       }},
      {"logoutEvent", [this](auto&) { sdk->sendLogoutEvent(1001, 1); }},
      {"delegate *",
       [this](auto& it) {
         auto& recorder = recorders[it.argument];
         if (!recorder) recorder = std::make_shared<Recorder>(it.argument);
         sdk->addDelegate(recorder);
       }},
      {"within: *", [this](auto& it) { named(recorders, it.argument)->act = doing(it); }},
      {"remove *", [this](auto& it) { sdk->removeDelegate(named(recorders, it.argument)); }},
      {"removeTwin *",
       [this](auto& it) { sdk->removeDelegate(std::make_shared<Recorder>(it.argument)); }},
      {"uses *",
       [this](auto& it) { print(std::to_string(named(recorders, it.argument).use_count())); }},
      {"kill", [this](auto&) { server.kill(); }},
      {"revive",
       [this](auto&) {
         server.returnToLife();
         sdk->setBaseUrl(server.url());
       }},
      {"refuse *",
       [this](auto& it) { server.tell(R"({"do":"refuse","on":)" + it.argument + "}"); }},
      {"error *", [this](auto& it) { server.push("error", "{\"error\":" + it.argument + "}"); }},
      {"heard *", [this](auto& it) { EXPECT_TRUE(awaitReports(it.argument, 1)) << it.place; }},
      {"count *", [this](auto& it) { print(std::to_string(server.reports(it.argument).size())); }},
      {"last *",
       [this](auto& it) {
         const auto reports = server.reports(it.argument);
         print(reports.empty() ? "nothing" : json::serialize(reports.back()));
       }},
      {"settle", [this](auto&) { sdk->deleteGroup("sentinel", Done{"settled"}); }},
  };
};

TEST(Client, FollowsTheScript) { followScripts<Play>("clients.txt"); }

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
  renewClient();  // which ends what still waits
  KRRunLoop::main().post([] { print("end"); });
  printedTo("end\n");
  for (const auto& own : links) EXPECT_TRUE(std::ranges::is_sorted(own, std::less_equal<>()));
  console.take();
}

TEST(Build, IsOfThisVersionAndUrl) {
  static_assert(std::is_same_v<decltype(KorivaSDKVersionNumber), const double>);
  EXPECT_EQ(KorivaSDKVersionNumber, std::stod(KorivaSDKVersionString));
  EXPECT_EQ(KRPrivate::socketUrl, KORIVA_TEST_URL);
}

TEST(DefaultUrlDeathTest, EndsTheProcessUnlessItIsAUrl) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(koriva::parseDefaultUrl("no url"),
               "Unexpectedly found nil while unwrapping an Optional value");
}

}  // namespace
