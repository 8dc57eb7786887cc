#include <malloc.h>

#include <boost/asio/io_context.hpp>
#include <deque>

#include "socketio/Connection.h"
#include "support/Script.h"

namespace koriva::socketio {
namespace {

using Note = std::function<void(const std::string&)>;

/// The far end of the connection, played by the test.
struct FakeTransport final : Transport {
  explicit FakeTransport(Note noteThat) : note(std::move(noteThat)) {}

  void open(const Endpoint&, const std::string&, const TransportOptions&,
            std::weak_ptr<Listener> heard) override {
    listener = std::move(heard);
  }
  void send(Frame) override {}
  void ping() override { note("pings"); }
  void close() override {}
  void pauseReading(bool pause) override { note(pause ? "pauses" : "reads on"); }
  [[nodiscard]] std::size_t queuedBytes() const override { return queued; }
  [[nodiscard]] std::uint64_t writes() const override { return 0; }

  const Note note;
  std::weak_ptr<Listener> listener;
  std::size_t queued = 0;
};

/// A connection that a script's steps are done to, and what is seen of it.
class Play {
 public:
  static bool knowsTime() { return true; }
  explicit Play(bool /*inTime*/) {
    environment_.setWorld(
        {environment_.clock(), [this] { return far_ = std::make_shared<FakeTransport>(note_); }});
  }

  std::string next() {
    if (seen_.empty()) run();
    if (seen_.empty()) return {};
    const auto next = seen_.front();
    seen_.pop_front();
    return next;
  }
  std::string rest() {
    run();
    return next();
  }

 private:
  std::shared_ptr<Transport::Listener> listener() { return far_->listener.lock(); }

  void run() {
    do {
      network_.restart();
      handlers_.restart();
    } while (network_.poll() > 0 || handlers_.poll_one() > 0);
  }
  void open() {
    run();
    auto handlers = std::make_shared<Handlers>();
    handlers->emplace(errorEvent, [this](const auto& items) {
      const auto text = std::string(items.text());
      if (seen_.empty() || seen_.back() != text) note_(text);
    });
    for (const auto event : {connectEvent, disconnectEvent, std::string_view("ev")}) {
      handlers->emplace(event, [this, event](const auto&) { note_(std::string(event)); });
    }
    handles_ = std::move(handlers);
    connection_ = std::make_shared<Connection>(environment_, "/data", limits_, handles_);
    connection_->connect(*Endpoint::parse("http://h"), {});
    run();
  }
  void join() {
    open();
    listener()->onText(R"(0{"pingInterval":25000,"pingTimeout":20000})");
    listener()->onText("40/data,");
    run();
    EXPECT_EQ(std::exchange(seen_, {}), (std::deque<std::string>{"connect"}));
  }

  /// With acknowledgements that are still to come when the test ends.
  void emitSixtyMegabytes(const std::string& event) {
    for (int left = 60; left > 0; --left) {
      connection_->emit(event, std::string(1'000'000, '1'), [](const auto&) {});
    }
  }
  static std::size_t bytesInUse() { return mallinfo2().uordblks + mallinfo2().hblkhd; }

  const std::size_t bytesBefore_ = bytesInUse();
  std::deque<std::string> seen_;
  const Note note_ = [this](const auto& text) { seen_.push_back(text); };
  Limits limits_;
  boost::asio::io_context network_;
  boost::asio::io_context handlers_;
  Environment environment_{network_.get_executor(), handlers_.get_executor()};
  std::shared_ptr<FakeTransport> far_;
  std::shared_ptr<const Handlers> handles_;
  std::shared_ptr<Connection> connection_;

 public:
  const test::Steps steps{
      {"eventLimit *", [this](auto& it) { limits_.undelivered = test::numberIn(it); }},
      {"byteLimit *", [this](auto& it) { limits_.undeliveredBytes = test::numberIn(it); }},
      {"queued *", [this](auto& it) { far_->queued = test::numberIn(it); }},
      {"open:", [this](auto& it) { open(), perform(steps, it.body); }},
      {"join:", [this](auto& it) { join(), perform(steps, it.body); }},
      {"text *", [this](auto& it) { listener()->onText(it.argument); }},
      {"emit *", [this](auto& it) { connection_->emit(it.argument, {"1"}); }},
      {"emitSixtyMegabytes *", [this](auto& it) { emitSixtyMegabytes(it.argument); }},
      {"kept",
       [this](auto&) { note_(bytesInUse() < bytesBefore_ + 15'000'000 ? "little" : "much"); }},
  };
};

TEST(Connection, FollowsTheScript) { test::followScripts<Play>("connections.txt"); }

}  // namespace
}  // namespace koriva::socketio
