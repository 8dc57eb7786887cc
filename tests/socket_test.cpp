#include "socketio/Socket.h"

#include <boost/asio/io_context.hpp>
#include <deque>
#include <functional>
#include <thread>

#include "socketio/Manager.h"
#include "support/Script.h"

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
  void send(std::string frame) override {
    note("sends " + frame);
    if (const auto found = whenSent.find(frame); found != whenSent.end()) found->second();
  }
  void close() override { note("closes"); }
  void setIdleLimit(std::chrono::milliseconds limit) override {
    note("idles for " + std::to_string(limit.count()));
  }
  void pauseReading(bool pause) override { note(pause ? "pauses" : "reads on"); }
  [[nodiscard]] std::size_t queuedBytes() const override { return queued; }

  const Note note;
  std::weak_ptr<Listener> listener;
  std::size_t queued = 0;
  std::map<std::string, std::function<void()>> whenSent;
};

/// A connection that a script's steps are done to, and what is seen of it.
class Play {
 public:
  std::string next() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (seen_.empty() && std::chrono::steady_clock::now() < end) {
      run();
      if (seen_.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return takeNext();
  }
  /// Also the status, should it not be what has been told of it.
  std::string rest() {
    run();
    if (seen_.empty() && socket().status() != told_) perform(steps, {{"", "status", "", {}}});
    return takeNext();
  }

 private:
  Socket& socket() {
    if (socket_) return *socket_;
    environment_.setWorld({environment_.clock(), [this] { return far_; }});
    Manager::Options options{"/data", {{"session", "t"}}, limits_};
    manager_ = std::make_unique<Manager>(environment_, *Endpoint::parse("http://h"), options);
    socket_ = manager_->socket();
    for (const auto event : {connectEvent, disconnectEvent, errorEvent, std::string_view("ev")}) {
      socket_->on(event, noting(std::string(event)));
    }
    socket_->on(connectEvent, [this](const auto&) { told_ = Status::connected; });
    socket_->on(disconnectEvent, [this](const auto&) { told_ = Status::disconnected; });
    return *socket_;
  }
  void connect() {
    if (socket().status() == Status::notConnected) told_ = Status::connecting;
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
  void open() {
    connect();
    run();
    seen_.clear();
  }
  void join() {
    open();
    listener()->onText(R"(0{"pingInterval":25000,"pingTimeout":20000})");
    listener()->onText(R"(40/data,{"sid":"x"})");
    run();
    seen_.clear();
  }
  void release() {
    manager_.reset();
    told_ = Status::disconnected;
  }
  void leaveWithin(const std::string& event) {
    socket().on(event, [this](const Items&) { release(); });
    socket().on(event, noting("never"));
  }

  std::string takeNext() {
    if (seen_.empty()) return {};
    const auto next = seen_.front();
    seen_.pop_front();
    return next;
  }

  std::deque<std::string> seen_;
  const Note note_ = [this](const auto& text) { seen_.push_back(text); };
  Limits limits_{.connect = std::chrono::hours(1), .acknowledgement = std::chrono::hours(1)};
  boost::asio::io_context network_;
  boost::asio::io_context handlers_;
  Environment environment_{network_.get_executor(), handlers_.get_executor()};
  std::shared_ptr<FakeTransport> far_ = std::make_shared<FakeTransport>(note_);
  std::unique_ptr<Manager> manager_;
  std::shared_ptr<Socket> socket_;
  Status told_ = Status::notConnected;

 public:
  const test::Steps steps{
      {"connectLimit *", [this](auto& it) { limits_.connect = test::millisecondsIn(it); }},
      {"answerLimit *", [this](auto& it) { limits_.acknowledgement = test::millisecondsIn(it); }},
      {"eventLimit *", [this](auto& it) { limits_.undelivered = test::numberIn(it); }},
      {"byteLimit *", [this](auto& it) { limits_.outgoingBytes = test::numberIn(it); }},
      {"queued *", [this](auto& it) { far_->queued = test::numberIn(it); }},
      {"connect", [this](auto&) { connect(); }},
      {"open", [this](auto&) { open(); }},
      {"join", [this](auto&) { join(); }},
      {"text *", [this](auto& it) { listener()->onText(it.argument); }},
      {"binary *", [this](auto& it) { listener()->onBinary(it.argument); }},
      {"largest", [this](auto&) { listener()->onBinary(std::string(maxIncomingBytes, 'x')); }},
      {"lose *", [this](auto& it) { listener()->onClosed(it.argument); }},
      {"whenSent: *",
       [this](auto& it) { far_->whenSent[it.argument] = [&] { perform(steps, it.body); }; }},
      {"emit *", [this](auto& it) { socket().emit(it.argument, "1"); }},
      {"ask *", [this](auto& it) { socket().emitWithAck("ask", "{}", noting(it.argument)); }},
      {"disconnect", [this](auto&) { socket().disconnect(); }},
      {"release", [this](auto&) { release(); }},
      {"releaseWithin *", [this](auto& it) { leaveWithin(it.argument); }},
      {"status", [this](auto&) { note_(std::to_string(static_cast<int>(socket().status()))); }},
      {"run", [this](auto&) { run(); }},
  };
};

TEST(Socket, FollowsTheScript) { test::followScripts<Play>("sockets.txt"); }

}  // namespace
}  // namespace koriva::socketio
