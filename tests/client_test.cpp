#include <array>
#include <semaphore>
#include <set>
#include <sstream>
#include <thread>

#include "tests/support/Harness.h"
#include "tests/support/Script.h"

using namespace koriva::test;

namespace {

constexpr auto print = koriva::test::printLine;

std::string withBadBytes(const std::string& text) {
  return boost::replace_all_copy(text, "(bad byte)", "\xff");
}

/// Options from names with a value each.
KRConnectionOptions optionsOf(const std::string& told) {
  KRConnectionOptions options;
  std::string name;
  std::string value;
  const auto time = [&] { return std::chrono::milliseconds(std::stoll(value)); };
  const std::map<std::string, std::function<void()>> setters{
      {"proxy", [&] { options.setProxy(value); }},
      {"file", [&] { options.addAuthoritiesFile(value); }},
      {"system", [&] { options.setSystemTrusted(value == "yes"); }},
      {"pin", [&] { options.addPin(value); }},
      {"connect", [&] { options.setConnectTimeout(time()); }},
      {"answer", [&] { options.setAnswerTimeout(time()); }},
      {"interval", [&] { options.setReconnectInterval(time()); }},
      {"factor", [&] { options.setReconnectFactor(std::stod(value)); }},
      {"most", [&] { options.setMaxReconnectInterval(time()); }},
      {"jitter", [&] { options.setReconnectJitter(std::stod(value)); }}};
  for (std::istringstream words(told); words >> name >> value;) named(setters, name)();
  return options;
}

/// A client that a script's steps are done to, and what is printed. Time passes, by the client's
/// own constants, only where a script says so.
struct Play : ServerTest {
  static bool knowsTime() { return !realServer(); }
  explicit Play(bool inTime) {
    koriva::timing() = {};
    if (inTime) return;
    koriva::timing().limits = patient;
    koriva::timing().reconnectInterval = 1h;
  }
  ~Play() override { koriva::setLogSink({}); }
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

  koriva::testing::Server& far() { return dynamic_cast<MemoryServer&>(*peer).far; }
  void say(const std::string& frame, bool isBinary = false) {
    far().run();
    isBinary ? far().sendBinary(frame) : far().send(frame);
    far().run();
  }
  void takePrinted(const std::string& text) {
    const auto printed = console.take();
    if (printed != text) throw std::runtime_error("'" + printed + "' was printed before");
  }
  void join() {
    sdk->login("to\"ken", 1001, "device", false);
    say(R"(0{"pingInterval":25000,"pingTimeout":20000})");
    say("40/data,{}");
    takePrinted("KorivaSDK - socket connected\n");
    peer->forget();
  }
  void printFrames() {
    far().run();
    for (const auto& frame : far().frames()) print(frame);
    if (far().frames().empty()) print("nothing");
    peer->forget();
  }
  /// From now on a sink prints the lines with their levels.
  void takeLog(const std::string& lowest) {
    static const std::array<std::string, 4> levels{"debug", "info", "warning", "error"};
    const auto level = std::ranges::find(levels, lowest) - levels.begin();
    koriva::setLogSink(
        [this](KRLogLevel of, std::string_view line) {
          print(levels.at(static_cast<std::size_t>(of)) + ": " + std::string(line));
          if (withinSink) std::exchange(withinSink, {})();
        },
        static_cast<KRLogLevel>(level));
  }
  void exhaust(bool network) {
    const auto fail = [] { throw std::bad_alloc(); };
    const auto& environment = loop.internals().environment();
    network ? boost::asio::post(environment.io(), fail) : environment.postHandler(fail);
  }
  /// Drives the loop only in runs that are stopped before, until the server reports it.
  void runStoppedTo(const std::string& report) {
    const auto end = std::chrono::steady_clock::now() + patience;
    do {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("there is no " + report);
      loop.stop();
      loop.run();
    } while (peer->reports(report).empty());
  }

  /// A provider of tokens that prints that it is asked, and does something then.
  void provide(const Step& it) {
    sdk->setTokenProvider([this, act = doing(it)](KRTokenReply next) {
      reply = std::move(next);
      print("asked");
      act();
    });
  }
  Recorder& add(const std::string& name) {
    auto& recorder = recorders.try_emplace(name, std::make_shared<Recorder>(name)).first->second;
    sdk->addDelegate(recorder);
    return *recorder;
  }

  /// What parts of its ten seconds, in twentieths, the client waits for when it is dropped.
  void printWaits(std::size_t times) {
    std::set<std::int64_t> waits;
    for (; times > 0; --times) {
      far().drop();
      far().run();
      const auto left =
          *sdk->connectionState().nextAttempt() - koriva::environment().clock()->now();
      waits.insert(left / 500ms);
      sdk->reconnectIfNeed();
      far().run();
    }
    console.take();
    for (const auto wait : waits) print(std::to_string(wait));
  }

  KRTokenReply reply;
  KRRunLoop& loop = KRRunLoop::main();
  const std::shared_ptr<bool> life = std::make_shared<bool>(true);
  std::shared_ptr<KorivaSDK> other;
  std::map<std::string, std::shared_ptr<Recorder>> recorders;
  std::function<void()> withinSink;
  const Steps steps{
      {"pass *",
       [this](auto& it) {
         takePrinted("");
         far().advance(millisecondsIn(it));
       }},
      {"accept", [this](auto&) { far().accept(); }},
      {"hang", [this](auto&) { far().hang(); }},
      {"drop", [this](auto&) { far().drop(); }},
      {"lose", [this](auto&) { far().drop(), far().run(), sdk->reconnectIfNeed(); }},
      {"shutDown", [this](auto&) { far().shutDown(); }},
      {"failFor *", [this](auto& it) { far().failAttempts(KRConnectionCause::tls, it.argument); }},
      {"refuseFor *", [this](auto& it) { far().refuse(it.argument); }},
      {"expire",
       [this](auto&) {
         far().push("login", {{"result", 2}, {"uin", "1001"}});
       }},
      {"delegate *", [this](auto& it) { add(it.argument); }},
      {"watch *", [this](auto& it) { add(it.argument).isWatching = true; }},
      {"state", [this](auto&) { print(text(sdk->connectionState())); }},
      {"provider:", [this](auto& it) { provide(it); }},
      {"noProvider", [this](auto&) { sdk->setTokenProvider({}); }},
      {"reply", [this](auto&) { reply({}); }},
      {"reply *", [this](auto& it) { reply(it.argument); }},
      {"replyFromAThread *", [this](auto& it) { std::jthread(reply, it.argument); }},
      {"options *",
       [this](auto& it) { EXPECT_TRUE(sdk->setConnectionOptions(optionsOf(it.argument))); }},
      {"refuses *",
       [this](auto& it) {
         std::string each;
         for (std::istringstream all(it.argument); std::getline(all, each, ',');)
           EXPECT_FALSE(sdk->setConnectionOptions(optionsOf(each))) << each;
       }},
      {"waits *", [this](auto& it) { printWaits(numberIn(it)); }},
      {"online", [this](auto&) { sdk->networkDidChange(true); }},
      {"offline", [this](auto&) { sdk->networkDidChange(false); }},
      {"foreground", [this](auto&) { sdk->setForeground(true); }},
      {"letGo", [this](auto&) { sdk = nullptr, KorivaSDK::setShared(nullptr); }},
      {"disconnectLast",
       [this](auto&) {
         auto* const last = sdk.get();
         last->disconnect();
         sdk = KorivaSDK::create();
       }},
      {"background", [this](auto&) { sdk->setForeground(false); }},
      {"say *", [this](auto& it) { say(it.argument); }},
      {"sayBinary *", [this](auto& it) { say(it.argument, true); }},
      {"sayLargest",
       [this](auto&) { say(std::string(koriva::socketio::maxIncomingBytes, 'x'), true); }},
      {"frames", [this](auto&) { printFrames(); }},
      {"byteLimit *", [](auto& it) { koriva::timing().limits.outgoingBytes = numberIn(it); }},
      {"join", [this](auto&) { join(); }},
      {"url *", [this](auto& it) { print(sdk->setBaseUrl(it.argument) ? "taken" : "refused"); }},
      {"login", [this](auto&) { login(); }},
      {"loginAsNew", [this](auto&) { login(true); }},
      {"loginAs *",
       [this](auto& it) {
         const auto name = withBadBytes(it.argument);
         sdk->login(name, 1002, name, false);
       }},
      {"logout", [this](auto&) { sdk->logout(); }},
      {"disconnect", [this](auto&) { sdk->disconnect(); }},
      {"reconnect", [this](auto&) { sdk->reconnectIfNeed(); }},
      {"fire", [this](auto&) { sdk->reconnectFired(); }},
      {"chat *", [this](auto& it) { sdk->connectChat(it.argument); }},
      {"status", [this](auto&) { print(sdk->isConnected() ? "connected" : "not connected"); }},
      {"leave", [this](auto&) { other = sdk, renewClient(); }},
      {"return", [this](auto&) { sdk.swap(other); }},
      {"create", [this](auto&) { sdk = KorivaSDK::create(); }},
      {"share", [this](auto&) { KorivaSDK::setShared(sdk); }},
      {"shared", [this](auto&) { print(KorivaSDK::shared() == sdk ? "this one" : "another"); }},
      {"print *", [](auto& it) { print(it.argument); }},
      {"throw *", [](auto& it) { throw std::runtime_error(it.argument); }},
      {"caught", [this](auto&) { print("caught " + awaitThrown()); }},
      {"post:", [this](auto& it) { loop.post(doing(it)); }},
      {"postNothing", [this](auto&) { loop.post({}); }},
      {"guarded:", [this](auto& it) { koriva::guarded(doing(it)); }},
      {"exhaust *", [this](auto& it) { exhaust(it.argument == "network"); }},
      {"runStoppedTo *", [this](auto& it) { runStoppedTo(it.argument); }},
      {"run", [this](auto&) { loop.run(); }},
      {"runForAges", [this](auto&) { loop.runFor(std::chrono::nanoseconds::max() - 1s); }},
      {"stop", [this](auto&) { loop.stop(); }},
      {"stopFromAThread", [this](auto&) { std::jthread([this] { loop.stop(); }); }},
      {"task:",
       [this](auto& it) {
         sdk->runNowOrWhenSDKReady([act = doing(it)](bool ready) { ready ? act() : print("no"); });
       }},
      {"mute *", [this](auto& it) { sdk->muteGroup("g1", true, Done{it.argument}); }},
      {"events *",
       [this](auto& it) {
         for (auto left = numberIn(it); left > 0; --left) sdk->sendGroupEvent("1001", {});
       }},
      {"pin *", [this](auto& it) { sdk->togglePin(withBadBytes(it.argument), true, {}); }},
      {"register *", [this](auto& it) { sdk->registerFCMToken(1, it.argument, {}, ""); }},
      {"unregister *", [this](auto& it) { sdk->unregisterFCMToken(1, it.argument, {}); }},
      {"acceptSecret *",
       [this](auto& it) {
         sdk->acceptSecretChat(1, "g", "d", it.argument, it.argument, it.argument);
       }},
      {"sink *", [this](auto& it) { takeLog(it.argument); }},
      {"noSink", [](auto&) { koriva::setLogSink({}, KRLogLevel::error); }},
      {"withinSink:", [this](auto& it) { withinSink = doing(it); }},
      {"logoutEvent", [this](auto&) { sdk->sendLogoutEvent(1001, 1); }},
      {"within: *", [this](auto& it) { named(recorders, it.argument)->act = doing(it); }},
      {"refuse *", [this](auto& it) { peer->refuse(it.argument == "true"); }},
      {"count *", [this](auto& it) { print(std::to_string(peer->reports(it.argument).size())); }},
      {"last *",
       [this](auto& it) {
         const auto reports = peer->reports(it.argument);
         print(reports.empty() ? "nothing" : json::serialize(reports.back()));
       }},
  };
};

/// In time, without a wait between attempts.
struct SteeredPlay : Play {
  explicit SteeredPlay(bool /*inTime*/) : Play(true) { koriva::timing().limits.redial = 0ms; }
};

/// With a server that says what the script has it say, and no more.
struct ProtocolPlay : SteeredPlay {
  explicit ProtocolPlay(bool inTime) : SteeredPlay(inTime) { far().hang(); }
  std::string rest() {
    far().run();
    return Play::rest();
  }
};

TEST(Client, FollowsTheScript) { followScripts<Play>("clients.txt"); }

TEST(Client, TellsItsStateAndIsSteered) {
  if (realServer()) GTEST_SKIP() << "time does not pass there";
  followScripts<SteeredPlay>("states.txt");
}

TEST(Client, FollowsTheProtocol) {
  if (realServer()) GTEST_SKIP() << "it says what it likes";
  followScripts<ProtocolPlay>("protocol.txt");
}

TEST(LogSinks, AreReplacedWhileOtherThreadsLog) {
  const auto write = [](const std::stop_token& end) {
    while (!end.stop_requested()) koriva::logLine(KRLogLevel::info, "line");
  };
  const std::array<std::jthread, 2> writers{std::jthread(write), std::jthread(write)};
  for (int round = 0; round < 10; ++round) {
    const auto taken = std::make_shared<std::counting_semaphore<>>(0);
    koriva::setLogSink([taken](auto&&...) { taken->release(); });
    EXPECT_TRUE(taken->try_acquire_for(patience));
  }
  koriva::setLogSink({});
}

TEST(LogSinks, ThatThrowOnAnotherThreadAreHeardOfOnce) {
  koriva::setLogSink([](auto&&...) { throw std::runtime_error("no room"); });
  std::jthread([] {
    for (int line = 0; line < 3; ++line) koriva::logLine(KRLogLevel::info, "line");
  }).join();
  const auto poll = [] { KRRunLoop::main().poll(); };
  EXPECT_THAT(poll, ::testing::ThrowsMessage<std::runtime_error>("no room"));
  koriva::setLogSink({});
  poll();
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
