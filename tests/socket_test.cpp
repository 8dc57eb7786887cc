#include "socketio/Socket.h"

#include <boost/asio/io_context.hpp>
#include <functional>

#include "socketio/Manager.h"
#include "support/Table.h"

namespace koriva::socketio {
namespace {

using Note = std::function<void(const std::string&)>;

/// The far end of the connection, played by the test.
struct FakeTransport final : Transport {
  explicit FakeTransport(Note noteThat) : note(std::move(noteThat)) {}

  void open(const Endpoint&, const std::string& target, std::weak_ptr<Listener> heard) override {
    listener = std::move(heard);
    note("opens " + target);
  }
  void send(std::string frame) override { note("sends " + frame); }
  void close() override { note("closes"); }
  void setIdleLimit(std::chrono::milliseconds limit) override {
    note("idles for " + std::to_string(limit.count()));
  }
  void pauseReading(bool pause) override { note(pause ? "pauses" : "reads on"); }
  [[nodiscard]] std::size_t queuedBytes() const override { return queued; }

  const Note note;
  std::weak_ptr<Listener> listener;
  std::size_t queued = 0;
};

/// A connection that a script's steps are done to, and what is seen of it.
class Play {
 public:
  std::string perform(std::string_view script) {
    test::perform(steps_, script);
    test::perform(steps_, "run + status");
    return seen_;
  }

 private:
  Socket& socket() {
    if (socket_) return *socket_;
    Manager::Options options{"/data", {{"session", "t"}}, limits_, far_};
    manager_ = std::make_unique<Manager>(executors_, *Endpoint::parse("http://h"), options);
    socket_ = manager_->socket();
    for (const auto event : {connectEvent, disconnectEvent, errorEvent, std::string_view("ev")}) {
      socket_->on(event, noting(std::string(event)));
    }
    return *socket_;
  }
  void connect() {
    socket();
    manager_->connect();
  }
  std::shared_ptr<Transport::Listener> listener() { return far_->listener.lock(); }

  Socket::Handler noting(const std::string& name) {
    return [this, name](const Items& items) {
      auto text = name + ":" + std::string(items.text());
      if (!items.firstHoldsBinary) return note_(text);
      for (const auto& bytes : items.attachments) text += " " + bytes;
      note_(text);
    };
  }

  void run() {
    do {
      network_.restart();
      handlers_.restart();
    } while (network_.poll() > 0 || handlers_.poll() > 0);
  }
  void join() {
    connect();
    run();
    listener()->onText(R"(0{"pingInterval":25000,"pingTimeout":20000})");
    listener()->onText(R"(40/data,{"sid":"x"})");
    run();
    seen_.clear();
  }
  void await(const std::string& text) {
    const auto end = Clock::now() + std::chrono::seconds(60);
    while (seen_.find(text) == seen_.npos && Clock::now() < end) run();
  }
  void leaveWithin(const std::string& event) {
    socket().on(event, [this](const Items&) { manager_.reset(); });
    socket().on(event, noting("never"));
  }

  std::string seen_;
  const Note note_ = [this](const auto& text) { seen_ += (seen_.empty() ? "" : " + ") + text; };
  Limits limits_;
  boost::asio::io_context network_;
  boost::asio::io_context handlers_;
  Executors executors_{network_.get_executor(), handlers_.get_executor()};
  std::shared_ptr<FakeTransport> far_ = std::make_shared<FakeTransport>(note_);
  std::unique_ptr<Manager> manager_;
  std::shared_ptr<Socket> socket_;

  const test::Steps steps_{
      {"connectLimit", [this](const auto& ms) { limits_.connect = test::milliseconds(ms); }},
      {"answerLimit", [this](const auto& ms) { limits_.acknowledgement = test::milliseconds(ms); }},
      {"eventLimit", [this](const auto& count) { limits_.undelivered = std::stoul(count); }},
      {"byteLimit", [this](const auto& count) { limits_.outgoingBytes = std::stoul(count); }},
      {"queued", [this](const auto& count) { far_->queued = std::stoul(count); }},
      {"connect", [this](const auto&) { connect(); }},
      {"join", [this](const auto&) { join(); }},
      {"text", [this](const auto& frame) { listener()->onText(frame); }},
      {"binary", [this](const auto& frame) { listener()->onBinary(frame); }},
      {"largest",
       [this](const auto&) { listener()->onBinary(std::string(maxIncomingBytes, 'x')); }},
      {"lose", [this](const auto& reason) { listener()->onClosed(reason); }},
      {"emit", [this](const auto& event) { socket().emit(event, "1"); }},
      {"ask", [this](const auto& name) { socket().emitWithAck("ask", "{}", noting(name)); }},
      {"disconnect", [this](const auto&) { socket().disconnect(); }},
      {"release", [this](const auto&) { manager_.reset(); }},
      {"releaseWithin", [this](const auto& event) { leaveWithin(event); }},
      {"status",
       [this](const auto&) { note_(std::to_string(static_cast<int>(socket().status()))); }},
      {"run", [this](const auto&) { run(); }},
      {"await", [this](const auto& text) { await(text); }},
  };
};

TEST(Socket, FollowsTheScript) {
  test::checkTable("sockets.txt", {{"script", [](auto script) { return Play().perform(script); }}});
}

}  // namespace
}  // namespace koriva::socketio
