// KorivaSDK, measured: client [--attached] URL MODE
//
//   roundtrip --window W   requests, W of them in flight
//   connect                from login to didConnect
//   pushes                 messages that the server pushes
//   many --clients N       requests of N connections
//   idle --seconds S       nothing at all
//
// All but the last take --warm-up N and --count N: how many come first, and how many are measured.
// It prints "connected" once it is, and at the end one JSON object.

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "KorivaSDK/KorivaSDK.h"
#include "KorivaSDK/State.h"
#include "bench/Wire.h"
#include "socketio/Connection.h"

namespace {

namespace asio = boost::asio;
namespace socketio = koriva::socketio;
using bench::Clock;

/// Drives the SDK: with the loop of its own, or attached to one as applications have it.
class MainLoop {
 public:
  explicit MainLoop(bool attached) : attached_(attached) {
    if (attached) KRRunLoop::main().attach([this] { eventfd_write(wakeUps_, 1); });
  }
  ~MainLoop() { KRRunLoop::main().detach(); }
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  /// Not by `KRRunLoop::runFor`, which looks at the time every second: waiting is measured too.
  void runFor(Clock::duration limit) {
    if (!attached_) {
      const std::jthread alarm([limit] {
        std::this_thread::sleep_for(limit);
        KRRunLoop::main().stop();
      });
      return KRRunLoop::main().run();
    }
    const auto end = Clock::now() + limit;
    stopped_ = false;
    while (!stopped_ && waitUntil(end)) KRRunLoop::main().poll();
  }

  /// Until `stop()`.
  void run() { attached_ ? runFor(std::chrono::hours(1)) : KRRunLoop::main().run(); }

  void stop() { attached_ ? void(stopped_ = true) : KRRunLoop::main().stop(); }

 private:
  /// Waits for a wake-up; false when none has come in time.
  [[nodiscard]] bool waitUntil(Clock::time_point end) const {
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    pollfd interest{wakeUps_, POLLIN, 0};
    eventfd_t count = 0;
    return ::poll(&interest, 1, static_cast<int>(std::max(left, milliseconds(0)).count())) == 1 &&
           eventfd_read(wakeUps_, &count) == 0;
  }

  const bool attached_;
  const int wakeUps_ = eventfd(0, EFD_CLOEXEC);
  bool stopped_ = false;
};

/// What is common to the modes of one client.
class Mode : public KorivaDelegate {
 public:
  Mode(MainLoop& loop, const bench::Arguments& arguments, std::string deviceId = "bench")
      : loop_(loop), deviceId_(std::move(deviceId)) {
    if (!sdk_->setBaseUrl(arguments.url())) bench::fail("not a URL: " + arguments.url());
  }

  void didConnect() override {
    if (!std::exchange(connected_, true)) bench::say("connected");
    onConnected();
  }

  void didDisconnect() override { bench::fail("connection lost"); }

  virtual void onConnected() = 0;
  virtual std::string figures() = 0;

  void login() {
    begin_ = Clock::now();
    sdk_->login("token-1001", 1001, deviceId_, false);
  }

 protected:
  const std::shared_ptr<KorivaSDK> sdk_ = KorivaSDK::shared();
  MainLoop& loop_;
  Clock::time_point begin_;

 private:
  const std::string deviceId_;
  bool connected_ = false;
};

class RoundTrips : public Mode {
 public:
  RoundTrips(MainLoop& loop, const bench::Arguments& arguments)
      : Mode(loop, arguments), meter_(arguments), window_(arguments.number("--window")) {
    const auto payload = boost::json::parse(bench::readData("request.json"));
    const auto text = [&](const char* key) { return std::string(payload.at(key).as_string()); };
    message_ = KRMessage(text("nonce"), text("group_id"), text("message"), text("sender_name"),
                         text("sender_avatar"), "1001", false);
  }

  void onConnected() override {
    for (std::size_t i = 0; i < window_; ++i) send();
  }

  std::string figures() override { return meter_.figures(); }

 private:
  void send() {
    sdk_->sendMessage(message_, [this, begin = Clock::now()](const KRResult<KRMessage>& result) {
      if (!result) bench::fail("no answer: " + std::string(result.error().localizedDescription()));
      meter_.add(begin) ? loop_.stop() : send();
    });
  }

  bench::Meter meter_;
  const std::size_t window_;
  KRMessage message_;
};

/// Logs in again and again, which leaves the connection before.
class Connects : public Mode {
 public:
  Connects(MainLoop& loop, const bench::Arguments& arguments)
      : Mode(loop, arguments), meter_(arguments) {
    koriva::timing().limits.redial = {};  // what applications have to wait is not measured
  }

  void onConnected() override { meter_.add(begin_) ? loop_.stop() : login(); }

  std::string figures() override { return meter_.figures(); }

 private:
  bench::Meter meter_;
};

class Pushes : public Mode {
 public:
  Pushes(MainLoop& loop, const bench::Arguments& arguments)
      : Mode(loop, arguments, "flood-" + std::to_string(bench::Counter(arguments).total())),
        counter_(arguments) {}

  void onConnected() override {}

  void didReceive(const KRMessage& /*message*/) override {
    if (counter_.add()) loop_.stop();
  }

  std::string figures() override { return counter_.figures(); }

 private:
  bench::Counter counter_;
};

class Idle : public Mode {
 public:
  Idle(MainLoop& loop, const bench::Arguments& arguments)
      : Mode(loop, arguments), time_(arguments.number("--seconds")) {}

  void onConnected() override { loop_.stop(); }

  std::string figures() override {
    loop_.runFor(bench::quietTime);
    const bench::Stopwatch stopwatch;
    loop_.runFor(time_);
    return bench::toJson(
        {{"cpu_us", stopwatch.cpuMicroseconds()}, {"rss_kib", bench::residentKib()}});
  }

 private:
  const std::chrono::seconds time_;
};

template <class ModeOfClient>
std::string measure(bool attached, const bench::Arguments& arguments) {
  MainLoop loop(attached);
  const auto mode = std::make_shared<ModeOfClient>(loop, arguments);
  KorivaSDK::shared()->addDelegate(mode);
  mode->login();
  loop.run();
  const auto figures = mode->figures();
  KorivaSDK::shared()->removeDelegate(mode);  // a disconnect is no failure any more
  return figures;
}

/// Many connections in one process, of the layer below the client, of which a process has one.
/// They connect one after the other.
class Many {
 public:
  explicit Many(const bench::Arguments& arguments)
      : clients_(arguments.number("--clients")),
        meter_(arguments),
        endpoint_(socketio::Endpoint::parse(arguments.url())) {
    if (!endpoint_) bench::fail("not a URL: " + arguments.url());
    bench::raiseFileLimit();
  }

  std::string result() {
    connectNext();
    context_.run();
    return bench::toJson({{"rss_kib", clientKib_},
                          {"connect_us", connectUs_},
                          {"rate", meter_.rate()},
                          {"cpu_us", meter_.cpuUs()}});
  }

 private:
  std::shared_ptr<const socketio::Handlers> handlers() {
    auto made = std::make_shared<socketio::Handlers>();
    made->emplace(socketio::connectEvent, [this](const auto&) { onConnected(); });
    made->emplace(socketio::disconnectEvent, [](const socketio::Items& items) {
      bench::fail("connection lost: " + std::string(items.text()));
    });
    return made;
  }

  void connectNext() {
    auto& connection = *connections_.emplace_back(std::make_shared<socketio::Connection>(
        environment_, "/data", socketio::Limits(), handlers_));
    connection.connect(*endpoint_, {{"session", "token-1001"}, {"deviceid", "bench"}});
  }

  /// What the first brings with it is not counted: it is there once.
  void onConnected() {
    if (connections_.size() == 1) {
      bench::say("connected");
      firstKib_ = bench::residentKib();
      stopwatch_.emplace();
    }
    if (connections_.size() <= clients_) return connectNext();
    const auto count = static_cast<double>(clients_);
    connectUs_ = stopwatch_->microseconds() / count;
    clientKib_ = (bench::residentKib() - firstKib_) / count;
    for (const auto& connection : connections_) send(*connection);
  }

  void send(socketio::Connection& connection) {
    const auto onAck = [this, &connection, begin = Clock::now()](const socketio::Items& items) {
      if (!items.text().starts_with(R"({"result":0)")) bench::fail("no answer");
      meter_.add(begin) ? context_.stop() : send(connection);
    };
    connection.emit("create_message", request_, onAck);
  }

  const std::size_t clients_;
  bench::Meter meter_;
  const std::optional<socketio::Endpoint> endpoint_;
  const std::string request_ = bench::readData("request.json");
  asio::io_context context_;
  socketio::Environment environment_{context_.get_executor()};
  const std::shared_ptr<const socketio::Handlers> handlers_ = handlers();
  std::vector<std::shared_ptr<socketio::Connection>> connections_;
  std::optional<bench::Stopwatch> stopwatch_;
  double firstKib_ = 0;
  double clientKib_ = 0;
  double connectUs_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const bool attached = argc > 1 && std::string_view(argv[1]) == "--attached";
  const bench::Arguments arguments({argv + (attached ? 2 : 1), argv + argc});
  const auto result = [&] {
    if (arguments.mode() == "roundtrip") return measure<RoundTrips>(attached, arguments);
    if (arguments.mode() == "connect") return measure<Connects>(attached, arguments);
    if (arguments.mode() == "pushes") return measure<Pushes>(attached, arguments);
    if (arguments.mode() == "idle") return measure<Idle>(attached, arguments);
    if (arguments.mode() == "many") return Many(arguments).result();
    bench::fail("there is no mode " + arguments.mode());
  }();
  bench::say(result);
}
