// A whole connection on a transport that the input plays. Each line of the input is a frame from
// the server (one that begins with "b" is binary), or begins with "!" and is something that the
// application or the network does.

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"
#include "socketio/Connection.h"

using namespace koriva::socketio;
using namespace std::chrono_literals;
using koriva::fuzz::require;

namespace {

struct Far final : Transport {
  void open(const Endpoint&, const std::string&, const TransportOptions&,
            std::weak_ptr<Listener> heard) override {
    listener = std::move(heard);
  }
  void send(Frame sent) override {
    const auto frame = sent.view();
    require(!closed, "nothing is sent once the connection was closed");
    require(!frame.empty() && (frame.front() == '3' || frame.starts_with("4")),
            "a frame has a type");
    sentBytes += frame.size();
  }
  void ping() override {}
  void close() override { closed = true; }
  void pauseReading(bool pause) override {
    require(pause != paused, "reading pauses and goes on in turn");
    paused = pause;
  }
  [[nodiscard]] std::size_t queuedBytes() const override { return sentBytes; }
  [[nodiscard]] std::uint64_t writes() const override { return 0; }

  std::weak_ptr<Listener> listener;
  std::size_t sentBytes = 0;
  bool closed = false;
  bool paused = false;
};

class Play {
 public:
  explicit Play(bool attached)
      : environment_(network_.get_executor(), (attached ? application_ : network_).get_executor()) {
    Limits limits;
    limits.acknowledgement = 1ms;
    limits.undelivered = 4;
    limits.outgoingBytes = 4096;
    environment_.setWorld({environment_.clock(), [this] { return far_; }});
    connection_ = std::make_shared<Connection>(environment_, "/data", limits, handlers_);
    onApplication([this] { connection_->connect(*Endpoint::parse("http://h"), {}); });
  }

  ~Play() {
    onApplication([this] {
      connection_->disconnect();
      require(connection_->status() == Status::disconnected, "a connection can be disconnected");
    });
    const std::weak_ptr<Connection> connection = std::exchange(connection_, nullptr);
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!connection.expired()) {
      require(std::chrono::steady_clock::now() < deadline, "nothing of a connection stays");
      network_.restart();
      network_.run_for(1ms);
      drain(application_);
    }
    drain(network_);  // it may have left acknowledgements to be ended
    drain(application_);
    for (const int answers : acknowledgements_) {
      require(answers == 1, "an acknowledgement ends exactly once");
    }
  }

  Play(const Play&) = delete;
  Play& operator=(const Play&) = delete;

  void play(std::string_view line) {
    if (line.starts_with('!')) {
      onApplication([this, line] { act(line.substr(1)); });
      return;
    }
    onNetwork([this, line] {
      const auto listener = far_->listener.lock();
      if (!listener || far_->closed) return;
      if (line.starts_with('b')) {
        listener->onBinary(std::string(line.substr(1)));
      } else {
        listener->onText(std::string(line));
      }
    });
  }

 private:
  std::shared_ptr<const Handlers> handlers() {
    const Handlers all{
        {std::string(connectEvent),
         [this](const Items&) {
           require(++connects_ == 1 && disconnects_ == 0, "a connection connects once");
           require(connection_->status() == Status::connected, "it is connected when it says so");
         }},
        {std::string(disconnectEvent),
         [this](const Items& items) {
           require(++disconnects_ == 1, "a connection disconnects once");
           require(connection_->status() == Status::disconnected,
                   "it is disconnected when it says so");
           require(items.text().starts_with('"'), "there is a reason");
         }},
        {std::string(errorEvent),
         [this](const Items&) {
           require(!released_, "silent when released");
           require(!emitting_, "no handler runs inside an emission");
         }},
        {"ev", [this](const Items& items) { onEvent(items); }}};
    return std::make_shared<const Handlers>(all);
  }

  void onEvent(const Items& items) {
    require(!released_ && connects_ == 1, "events come on a connection");
    const auto text = items.text();
    if (text.starts_with("\"!") && text.ends_with('"')) act(text.substr(2, text.size() - 3));
  }

  void act(std::string_view what) {
    if (what == "ack") {
      acknowledgements_.push_back(0);
      emit("ask", [this, i = acknowledgements_.size() - 1](const Items&) {
        require(environment_.onHandleQueue(), "acknowledgements end on the handle queue");
        ++acknowledgements_[i];
      });
    } else if (what == "disconnect") {
      connection_->disconnect();
    } else if (what == "release") {
      released_ = true;
      connection_->release();
    } else if (what == "lost") {
      onNetwork([this] {
        const auto listener = far_->listener.lock();
        if (listener && !std::exchange(far_->closed, true))
          listener->onClosed({Cause::lost, "lost"});
      });
    } else if (what == "poll") {
      if (!environment_.onHandleQueue()) drain(application_);
    } else {
      emit(std::string(what));
    }
  }

  void emit(std::string event, Handler onAck = {}) {
    emitting_ = true;
    connection_->emit(std::move(event), {"{}"}, std::move(onAck));
    emitting_ = false;
  }

  template <class Task>
  void onApplication(Task task) {
    environment_.postHandler(std::move(task));
    drain(application_);
    drain(network_);
  }

  template <class Task>
  void onNetwork(Task task) {
    boost::asio::post(network_, std::move(task));
    drain(network_);
  }

  // Inside a handler nothing more is run: the caller goes on with it.
  void drain(boost::asio::io_context& context) {
    if (context.get_executor().running_in_this_thread()) return;
    context.restart();
    context.poll();
  }

  boost::asio::io_context network_;
  boost::asio::io_context application_;
  Environment environment_;
  std::shared_ptr<Far> far_ = std::make_shared<Far>();
  const std::shared_ptr<const Handlers> handlers_ = handlers();
  std::shared_ptr<Connection> connection_;
  std::vector<int> acknowledgements_;
  int connects_ = 0;
  int disconnects_ = 0;
  bool released_ = false;
  bool emitting_ = false;
};

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  constexpr std::string_view attached = "!attached\n";
  const bool isAttached = input.starts_with(attached);
  if (isAttached) input.remove_prefix(attached.size());
  Play game(isAttached);
  while (!input.empty()) {
    const auto line = input.substr(0, input.find('\n'));
    game.play(line);
    input.remove_prefix(std::min(line.size() + 1, input.size()));
  }
}
