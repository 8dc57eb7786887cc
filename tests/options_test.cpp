#include <set>

#include "tests/support/Harness.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

using Options = KRConnectionOptions;
using Milliseconds = std::chrono::milliseconds;

/// Sets what a heading says to what an input says.
Options optionsOf(const std::string& name, const std::string& value) {
  const auto number = [&] { return std::stod(value); };
  const auto time = [&] { return Milliseconds(std::stoll(value)); };
  const std::map<std::string, std::function<void(Options&)>> setters{
      {"proxy", [&](Options& it) { it.setProxy(value); }},
      {"authorities", [&](Options& it) { it.addAuthorities(value); }},
      {"file of authorities", [&](Options& it) { it.addAuthoritiesFile(value); }},
      {"system trusted", [&](Options& it) { it.setSystemTrusted(value == "yes"); }},
      {"pin", [&](Options& it) { it.addPin(value); }},
      {"connect time-out", [&](Options& it) { it.setConnectTimeout(time()); }},
      {"answer time-out", [&](Options& it) { it.setAnswerTimeout(time()); }},
      {"interval", [&](Options& it) { it.setReconnectInterval(time()); }},
      {"factor", [&](Options& it) { it.setReconnectFactor(number()); }},
      {"most", [&](Options& it) { it.setMaxReconnectInterval(time()); }},
      {"jitter", [&](Options& it) { it.setReconnectJitter(number()); }}};
  Options options;
  named(setters, name)(options);
  return options;
}

TEST(Options, ThatCannotBeAreRefused) {
  const auto sdk = KorivaSDK::shared();
  for (const auto& row : readTable("options.txt")) {
    const auto options = located(row.place, [&] { return optionsOf(row.name, row.input); });
    EXPECT_EQ(sdk->setConnectionOptions(options), row.output == "taken") << row.place;
  }
}

class TimesTest : public ::testing::Test {
 protected:
  TimesTest() { KorivaSDK::setShared(nullptr); }
  ~TimesTest() override { KorivaSDK::setShared(nullptr); }

  /// How long the client waits for its next attempt.
  Milliseconds wait(const KorivaSDK& sdk) {
    const auto next = sdk.connectionState().nextAttempt().value();
    const auto now = KRRunLoop::main().internals().environment().clock()->now();
    return std::chrono::duration_cast<Milliseconds>(next - now);
  }

  koriva::testing::Server server;
  Console console;
};

TEST_F(TimesTest, GrowUntilAConnectionStands) {
  const auto sdk = KorivaSDK::shared();
  ASSERT_TRUE(sdk->setConnectionOptions(
      Options().setReconnectInterval(1s).setReconnectFactor(3).setMaxReconnectInterval(20s)));
  ASSERT_FALSE(sdk->setConnectionOptions(Options().setReconnectFactor(0)));
  server.shutDown();
  sdk->login("token", 1001, "device", false);
  for (const auto expected : {1s, 3s, 9s, 20s, 20s}) {
    server.run();
    EXPECT_EQ(wait(*sdk), expected);
    server.advance(expected);
  }
  server.accept();
  server.advance(20s);
  ASSERT_TRUE(sdk->isConnected());
  server.shutDown();
  server.run();
  EXPECT_LE(wait(*sdk), 1s);
  server.advance(1s);
  EXPECT_EQ(wait(*sdk), 1s);
}

TEST_F(TimesTest, EndAttemptsAndRequests) {
  const auto sdk = KorivaSDK::shared();
  sdk->setConnectionOptions(Options().setConnectTimeout(3s).setAnswerTimeout(2s));
  server.hang();
  sdk->login("token", 1001, "device", false);
  server.advance(2999ms);
  EXPECT_EQ(sdk->connectionState().phase(), KRConnectionState::Phase::connecting);
  server.advance(1ms);
  EXPECT_EQ(sdk->connectionState().cause(), KRConnectionCause::timeout);
  server.accept();
  server.advance(7s);
  sdk->muteGroup("g1", true, Done());
  server.advance(1999ms);
  EXPECT_EQ(console.takeTo("done"), std::nullopt);
  server.advance(1ms);
  EXPECT_TRUE(console.takeTo("done: failure 6\n"));
}

TEST_F(TimesTest, SpreadTheClientsOfAServer) {
  constexpr int count = 200;
  const auto options = Options().setReconnectJitter(0.5);
  std::vector<std::shared_ptr<KorivaSDK>> clients;
  for (int i = 0; i < count; ++i) {
    clients.push_back(KorivaSDK::shared());
    KorivaSDK::setShared(nullptr);
    clients.back()->setConnectionOptions(options);
    clients.back()->login("token", 1001, "device", false);
  }
  server.run();
  const auto connected = server.logins().size();
  server.shutDown();
  server.run();
  std::set<std::int64_t> waits;
  for (const auto& client : clients) waits.insert(wait(*client).count() / 500);
  EXPECT_EQ(*waits.begin(), 10);
  EXPECT_EQ(*waits.rbegin(), 19);
  EXPECT_EQ(waits.size(), 10U);
  server.advance(5s);
  EXPECT_EQ(server.logins().size(), connected);
  server.advance(5s);
  EXPECT_EQ(server.logins().size(), connected + count);
  EXPECT_TRUE(std::ranges::all_of(
      clients, [](const auto& client) { return client->connectionState().attempt() == 1; }));
}

}  // namespace
