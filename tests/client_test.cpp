#include <thread>

#include "tests/support/Harness.h"

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

  server.tell(R"({"do":"kick"})");
  EXPECT_TRUE(runUntil([&] { return !sdk->isConnected(); }));
  sdk->runNowOrWhenSDKReady(task("still ready"));
  EXPECT_EQ(console.take(), down + "d didDisconnect\nstill ready\n");
  sdk->connectChat("any channel");
  sdk->connectChat("any channel");
  EXPECT_TRUE(awaitConnection());
  settle();
  EXPECT_EQ(server.reports("url").size(), 3U);
}

TEST_F(ClientTest, ReturnsToAServerThatDied) {
  koriva::timing().reconnectInterval = 50ms;
  koriva::timing().limits.acknowledgement = 100ms;
  addRecorder("d");
  connect();
  server.kill();
  EXPECT_TRUE(runUntil([&] { return !sdk->isConnected(); }));
  sdk->muteGroup("g1", true, Done{});
  EXPECT_TRUE(awaitText(unanswered + "done: failure 6\n"));
  koriva::timing().limits = {};
  sdk->runNowOrWhenSDKReady(task("still ready"));
  server.returnToLife();
  EXPECT_TRUE(awaitConnection());
  settle();
  EXPECT_THAT(console.take(),
              testing::AllOf(testing::StartsWith(down + "d didDisconnect\n"),
                             testing::HasSubstr("\nstill ready\n"),
                             testing::EndsWith(up + "d didConnect\nsettled: Success\n")));
}

TEST_F(ClientTest, CompletesOnceWhateverBecomesOfTheSocket) {
  koriva::timing().limits.acknowledgement = 300ms;
  connect();
  sdk->muteGroup("g1", true, Done{"replaced"});
  EXPECT_TRUE(awaitReports("event", 1));
  login();
  sdk->runNowOrWhenSDKReady(task("still ready"));
  EXPECT_TRUE(awaitReports("disconnect", 1) && awaitConnection() && awaitText("replaced:"));
  auto lines = console.take();
  lines.erase(lines.find(up), up.size());
  EXPECT_EQ(lines, "still ready\n" + unanswered + "replaced: failure 6\n");

  sdk->muteGroup("g1", true, Done{"closed"});
  sdk->disconnect();
  sdk->muteGroup("g1", true, Done{"unsent"});
  sdk->logout();
  sdk->muteGroup("g1", true, Done{"never"});
  EXPECT_TRUE(awaitText("unsent:"));
  EXPECT_EQ(console.take(),
            down + unanswered + "closed: failure 6\n" + unanswered + "unsent: failure 6\n");
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

TEST_F(ClientTest, EndsQuietlyWhenReleased) {
  koriva::timing().limits.acknowledgement = 100ms;
  addRecorder("d");
  connect();
  sdk->muteGroup("g1", true, Done{"never"});
  EXPECT_TRUE(awaitReports("event", 1));
  renewClient();
  EXPECT_TRUE(awaitReports("disconnect", 1));
  connect();
  sdk->muteGroup("g1", true, Done{"later"});
  EXPECT_TRUE(awaitText("later:"));
  EXPECT_EQ(console.take(), unanswered + "later: failure 6\n");

  const auto kept = sdk;
  renewClient();
  EXPECT_NE(sdk, kept);
  EXPECT_TRUE(kept->isConnected());
  KorivaSDK::setShared(kept);
  EXPECT_EQ(KorivaSDK::shared(), kept);
}

TEST_F(ClientTest, TakesRequestsFromAnyThread) {
  connect();
  server.answer("create_link", R"([{"result":0,"link":{"$payload":"group_id"}}])");
  std::vector<std::string> expected;
  for (int i = 0; i < 50; ++i) expected.push_back(std::to_string(i));
  std::vector<std::vector<std::string>> links(3);
  std::vector<std::thread> threads;
  const auto here = std::this_thread::get_id();
  for (auto& own : links) {
    threads.emplace_back([&] {
      for (const auto& group : expected) {
        const auto client = KorivaSDK::shared();
        EXPECT_TRUE(client->isConnected());
        client->createJoinGroupLink(group, [&](const KRResult<std::string>& link) {
          const bool isMain = std::this_thread::get_id() == here;
          own.push_back(link && isMain ? link.value() : "failure");
        });
      }
    });
  }
  const auto isComplete = [&](const auto& own) { return own.size() >= expected.size(); };
  EXPECT_TRUE(runUntil([&] { return std::all_of(links.begin(), links.end(), isComplete); }));
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(links, testing::Each(expected));
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
  for (const auto* url : {"https://chat.example", "ws://127.0.0.1:1/", "wss://[::1]:443/path?query",
                          "HTTP://localhost"}) {
    EXPECT_TRUE(sdk->setBaseUrl(url)) << url;
  }
  EXPECT_TRUE(sdk->setBaseUrl(server.url()));
  for (const auto* url : {"", "localhost:2082", "ftp://localhost", "http://", "http://a b",
                          "http:", "http://localhost:99999", "http://localhost:port"}) {
    EXPECT_FALSE(sdk->setBaseUrl(url)) << url;
  }
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
  loop.post([&] { order += '1'; });
  loop.post([&] {
    order += '2';
    loop.post([&] { std::thread([&] { loop.stop(); }).join(); });
    loop.post([&] { order += '4'; });
  });
  loop.post([&] { order += '3'; });
  loop.post({});
  loop.stop();
  loop.run();
  EXPECT_EQ(order, "");
  loop.run();
  EXPECT_EQ(order, "123");
  for (int thrown : {5, 6}) loop.post([thrown] { throw thrown; });
  for (int i = 0; i < 2; ++i) {
    try {
      loop.poll();
    } catch (int caught) {
      order += std::to_string(caught);
    }
  }
  EXPECT_EQ(order, "123456");
  loop.runFor(1ms);
  std::thread later([&] { loop.stop(); });
  loop.run();
  later.join();
  EXPECT_FALSE(loop.attach({}));
}

}  // namespace
