#include <boost/algorithm/string/erase.hpp>
#include <list>
#include <thread>

#include "tests/support/Harness.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

using ClientTest = ServerTest;

const std::string up = "KorivaSDK - socket connected\n";
const std::string down = "KorivaSDK - socket disconnected\n";
const std::string unanswered = "KorivaSDK - mute_group failed with error: Parsing error\n";

std::function<void(bool)> task(const std::string& name) {
  return [name](bool ready) { koriva::printLine(name + (ready ? "" : " not ready")); };
}

bool saysNew(const json::value& url) { return url.as_string().ends_with("&new=true"); }

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
  EXPECT_EQ(pinging.reports("query").at(0).at("session"), "a+b/c=&\u00e9?#");
  EXPECT_FALSE(KRRunLoop::main().attach([] {})) << "too late";
}

TEST_F(ClientTest, SaysNewUntilAConnectionSucceeds) {
  koriva::timing().reconnectInterval = 50ms;
  server.tell(R"({"do":"refuse","on":true})");
  addRecorder("d");
  login(true);
  EXPECT_TRUE(awaitReports("url", 3));
  server.tell(R"({"do":"refuse","on":false})");
  EXPECT_TRUE(awaitConnection());
  const auto attempts = server.reports("url");
  EXPECT_TRUE(std::all_of(attempts.begin(), attempts.end(), saysNew));
  std::string expected;
  for (std::size_t i = 1; i < attempts.size(); ++i) expected += down + "d didDisconnect\n";
  EXPECT_EQ(console.take(), expected + up + "d didConnect\n");
  sdk->disconnect();
  EXPECT_TRUE(awaitConnection());
  EXPECT_FALSE(saysNew(server.reports("url").back()));

  // It is no longer new when the queued tasks run.
  sdk->disconnect();
  sdk->runNowOrWhenSDKReady([&](bool) { sdk->disconnect(), sdk->reconnectIfNeed(); });
  login(true);
  EXPECT_TRUE(awaitConnection());
  EXPECT_FALSE(saysNew(server.reports("url").back()));
}

TEST_F(ClientTest, ConnectsAndDisconnectsInOrder) {
  koriva::timing().reconnectInterval = 50ms;
  addRecorder("d");
  sdk->runNowOrWhenSDKReady(
      [&](bool) { koriva::printLine(sdk->isConnected() ? "first" : "too early"); });
  sdk->runNowOrWhenSDKReady([&](bool) {
    sdk->runNowOrWhenSDKReady(task("second"));
    koriva::printLine("third");
  });
  sdk->disconnect();
  sdk->reconnectFired();
  EXPECT_FALSE(sdk->isConnected());
  login();
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(awaitConnection());
  EXPECT_EQ(console.take(), up + "first\nsecond\nthird\nd didConnect\n");
  sdk->runNowOrWhenSDKReady(task("at once"));
  sdk->disconnect();
  sdk->runNowOrWhenSDKReady(task("queued"));
  sdk->disconnect();
  EXPECT_EQ(console.take(), "at once\n" + down + "d didDisconnect\n");
  koriva::timing().reconnectInterval = 1h;
  EXPECT_TRUE(awaitConnection());
  EXPECT_EQ(console.take(), up + "queued\nd didConnect\n");

  server.kill();
  EXPECT_TRUE(runUntil([&] { return !sdk->isConnected(); }));
  sdk->runNowOrWhenSDKReady(task("still ready"));
  EXPECT_EQ(console.take(), down + "d didDisconnect\nstill ready\n");
  sdk->connectChat("any channel");
  EXPECT_TRUE(awaitText(down + "d didDisconnect\n"));
  server.returnToLife();
  sdk->connectChat("any channel");
  sdk->connectChat("any channel");
  EXPECT_TRUE(awaitConnection());
  settle();
  EXPECT_EQ(server.reports("url").size(), 1U);
}

TEST_F(ClientTest, LogsOutAfterWhatWasSent) {
  koriva::timing().reconnectInterval = 1ms;
  addRecorder("d");
  connect();
  constexpr std::size_t typing = 200;
  for (std::size_t i = 0; i < typing; ++i) sdk->sendGroupEvent("1001", {});
  sdk->sendLogoutEvent(1001, 1);
  sdk->logout();
  EXPECT_EQ(console.take(), down + "d didDisconnect\n");
  EXPECT_FALSE(sdk->isConnected());
  EXPECT_TRUE(awaitReports("disconnect", 1));
  EXPECT_EQ(server.reports("event").size(), typing + 1);
  EXPECT_EQ(server.reports("event").back().at(0), "logout");
  EXPECT_EQ(server.reports("disconnect").back(), "client namespace disconnect");

  // The timer finds no socket, while another client's life takes many of its periods.
  sdk->runNowOrWhenSDKReady(task("kept"));
  const auto left = sdk;
  renewClient();
  connect();
  left->reconnectIfNeed();
  left->connectChat("g1");
  settle();
  EXPECT_EQ(server.reports("url").size(), 2U);
  console.take();
  sdk = left;
  login();
  EXPECT_TRUE(awaitConnection());
  EXPECT_EQ(console.take(), up + "kept\n");
}

TEST_F(ClientTest, IsQuietWhenItsSocketIsReplacedOrReleased) {
  koriva::timing().limits.acknowledgement = 300ms;
  connect();
  addRecorder("d");
  sdk->muteGroup("g1", true, Done{"replaced"});
  EXPECT_TRUE(awaitReports("event", 1));
  login();
  sdk->runNowOrWhenSDKReady(task("still ready"));
  EXPECT_TRUE(awaitReports("disconnect", 1) && awaitConnection() && awaitText("replaced:"));
  const auto lines = boost::erase_first_copy(console.take(), up + "d didConnect\n");
  EXPECT_EQ(lines, "still ready\n" + unanswered + "replaced: failure 6\n");

  sdk->muteGroup("g1", true, Done{"never"});
  EXPECT_TRUE(awaitReports("event", 2));
  renewClient();
  EXPECT_TRUE(awaitReports("disconnect", 2));
  connect();
  sdk->muteGroup("g1", true, Done{"later"});
  EXPECT_TRUE(awaitText("later:"));
  EXPECT_EQ(console.take(), unanswered + "later: failure 6\n");
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

TEST_F(ClientTest, RunsEverythingElseWhenACallbackThrows) {
  const auto throwing = [](const std::string& name) {
    return [name](const auto&) {
      koriva::printLine(name);
      throw std::runtime_error(name);
    };
  };
  addRecorder("d");
  sdk->runNowOrWhenSDKReady(throwing("one"));
  sdk->runNowOrWhenSDKReady(throwing("two"));
  login();
  EXPECT_EQ(awaitThrown(), "one");
  EXPECT_EQ(console.take(), up + "one\ntwo\nd didConnect\n");
  sdk->deleteGroup("sentinel", throwing("three"));
  EXPECT_EQ(awaitThrown(), "three");
  sdk->runNowOrWhenSDKReady(throwing("four"));
  EXPECT_EQ(awaitThrown(), "four");
  settle();
}

TEST_F(ClientTest, TakesTheUrlsOfServers) {
  for (const auto& [taken, url, unused] : readTable("urls.txt")) {
    EXPECT_EQ(sdk->setBaseUrl(url), taken == "taken") << url;
  }
  EXPECT_FALSE(sdk->setBaseUrl(""));
  EXPECT_TRUE(sdk->setBaseUrl(server.url()));
  connect();
  EXPECT_TRUE(sdk->setBaseUrl("http://127.0.0.1:1"));
  settle();
}

TEST(DefaultUrlDeathTest, EndsTheProcessUnlessItIsAUrl) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(koriva::parseDefaultUrl("no url"),
               "Unexpectedly found nil while unwrapping an Optional value");
}

TEST(RunLoopTest, RunsInOrderUntilStopped) {
  attached();
  auto& loop = KRRunLoop::main();
  std::string order;
  const auto add = [&](char c) { loop.post([&order, c] { order += c; }); };
  add('1');
  loop.post([&] {
    add('4');
    loop.post([&] { std::jthread([&] { loop.stop(); }); });
    add('5');
  });
  add('2');
  loop.post({});
  add('3');
  loop.stop();
  loop.run();
  EXPECT_EQ(order, "");
  loop.run();
  EXPECT_EQ(order, "1234");
  for (const char* thrown : {"6", "7"}) loop.post([thrown] { throw std::runtime_error(thrown); });
  order += awaitThrown();
  order += awaitThrown();
  loop.post([&] { loop.stop(), throw std::runtime_error("8"); });
  order += awaitThrown();
  koriva::guarded([] { throw std::runtime_error("9"); });
  add('X');
  order += awaitThrown();
  EXPECT_TRUE(runUntil([&] { return order == "123456789X"; })) << order;
  EXPECT_FALSE(loop.attach({}));
}

}  // namespace
