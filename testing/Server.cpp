#include <algorithm>
#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <charconv>
#include <deque>
#include <iostream>
#include <map>
#include <random>
#include <stdexcept>
#include <utility>

#include "KorivaSDK/KRRunLoop.h"
#include "KorivaSDK/KRVersion.h"
#include "KorivaSDK/Stage.h"
#include "extensions/StringRewriters.h"
#include "testing/KRTesting.h"
#include "testing/VirtualClock.h"

namespace koriva::testing {
namespace {

using socketio::Transport;

constexpr std::string_view nsp = "/data,";
constexpr int maxSentAtOnce = 100'000;
constexpr auto maxWait = std::chrono::hours(365 * 24);

std::string quoted(std::string_view text) {
  return boost::json::serialize(boost::json::string(text));
}

std::string textOf(const KRDictionary& item) {
  auto text = toJsonString(item);
  if (!text) throw std::invalid_argument("this is no JSON");
  return *std::move(text);
}

std::string decoded(std::string_view text) {
  std::string result;
  for (; !text.empty(); text.remove_prefix(1)) {
    auto code = static_cast<unsigned char>(text.front());
    if (code == '%' && text.size() > 2) {
      std::from_chars(text.data() + 1, text.data() + 3, code, 16);
      text.remove_prefix(2);
    }
    result += static_cast<char>(code);
  }
  return result;
}

/// What the query has under a name; empty if it has nothing.
std::string parameter(std::string_view target, const std::string& name) {
  const auto start = target.find('&' + name + '=');
  if (start == target.npos) return {};
  const auto value = target.substr(start + name.size() + 2);
  return decoded(value.substr(0, value.find('&')));
}

Login loginOf(const socketio::Endpoint& endpoint, const std::string& target) {
  const bool isV6 = endpoint.host().find(':') != std::string::npos;
  return {(endpoint.tls() ? "https://" : "http://") +
              (isV6 ? "[" + endpoint.host() + "]" : endpoint.host()) + ":" +
              std::to_string(endpoint.port()),
          parameter(target, "session"), parameter(target, "deviceid"),
          parameter(target, "new") == "true", target};
}

/// The request that a frame is, if it is one.
std::optional<Request> requestOf(std::string_view frame, const std::string& token) {
  const std::string start = "42" + std::string(nsp);
  if (!frame.starts_with(start)) return std::nullopt;
  Request request;
  request.token = token;
  frame.remove_prefix(start.size());
  if (frame.find('[') > 0) {
    std::from_chars(frame.data(), frame.data() + frame.size(), request.id.emplace());
    frame.remove_prefix(std::min(frame.find('['), frame.size()));
  }
  const auto items = json::parseValue(frame);
  const auto* array = items ? items->if_array() : nullptr;
  if (!array || array->empty() || !array->front().is_string()) return std::nullopt;
  request.event = array->front().get_string();
  if (array->size() > 1 && (*array)[1].is_object()) request.payload = (*array)[1].get_object();
  return request;
}

}  // namespace

/// The far ends of all connections.
class Server::World final : public Stage, public std::enable_shared_from_this<World> {
 public:
  explicit World(const Handshake& handshake) : handshake_(handshake) {}

  socketio::World world() override {
    return {
        clock_, [self = shared_from_this()] { return self->makeConnection(); },
        [self = shared_from_this()] { return std::generate_canonical<double, 32>(self->chance_); }};
  }
  bool advance(socketio::TimePoint end) override { return clock_->advance(end); }
  void onEndlessRun() override { fail("a run was not stopped for a day"); }

  void end(std::shared_ptr<socketio::Clock> system);
  void fail(const std::string& what);
  void expectAnEnd();
  std::string pending();
  void reply(const Request& request, std::string_view items);
  void sendEvent(std::string_view event, std::string_view items, std::string_view token);
  void send(std::string_view frame, bool binary, std::string_view token);
  void drop(std::string_view token, const socketio::Ending& ending);
  void accept();
  bool isConnected(std::string_view token);

  using RawAnswer = std::function<std::string(const Request&)>;

  const std::shared_ptr<VirtualClock> clock_ =
      std::make_shared<VirtualClock>(std::chrono::steady_clock::now(), postToNetwork);
  std::map<std::string, RawAnswer, std::less<>> answers_;
  std::function<void(const std::string&)> onFailure_;
  std::function<void(const Login&)> onLogin_;
  std::optional<std::string> refusal_;
  std::optional<socketio::Ending> failure_;  ///< of attempts
  bool isHanging_ = false;
  std::vector<Login> logins_;
  std::vector<Request> requests_;
  std::vector<std::string> frames_;

 private:
  class Connection;

  std::shared_ptr<Transport> makeConnection();
  std::vector<std::shared_ptr<Connection>> connections(std::string_view token = {});

  const Handshake handshake_;
  std::vector<std::weak_ptr<Connection>> connections_;
  int connectionCount_ = 0;
  socketio::TimePoint lastSent_;
  int sentAtOnce_ = 0;
  std::mt19937 chance_;  // the same in every run
};

class Server::World::Connection final : public Transport,
                                        public std::enable_shared_from_this<Connection> {
 public:
  Connection(std::shared_ptr<World> world, int number)
      : world_(std::move(world)), number_(number), pings_(world_->clock_->makeTimer()) {}

  void open(const socketio::Endpoint& endpoint, const std::string& target,
            const socketio::TransportOptions& /*options*/,
            std::weak_ptr<Listener> listener) override {
    listener_ = std::move(listener);
    login_ = world_->logins_.emplace_back(loginOf(endpoint, target));
    isOpen_ = true;
    postToNetwork([self = shared_from_this()] { self->greet(); });
  }

  void send(socketio::Frame sent) override {
    std::string frame(sent.view());
    queuedBytes_ += frame.size();
    auto request = requestOf(frame, login_.token);
    if (request) request->connection = number_;
    if (request) world_->requests_.push_back(*request);
    if (request && request->id) unanswered_[*request->id] = request->event;
    world_->frames_.push_back(frame);
    unread_.push_back({std::move(frame), std::move(request)});
    world_->expectAnEnd();
    readLater();
  }

  void ping() override {
    if (isCut_ || world_->isHanging_) return;
    incoming_.push_back([](Listener& listener) { listener.onPong(); });
    deliverLater();
  }

  void close() override {
    isOpen_ = false;
    pings_->cancel();
  }

  void pauseReading(bool pause) override {
    isPaused_ = pause;
    for (auto left = incoming_.size(); left > 0 && !pause; --left) deliverLater();
  }

  [[nodiscard]] std::size_t queuedBytes() const override { return queuedBytes_; }
  [[nodiscard]] std::uint64_t writes() const override { return reads_; }

  [[nodiscard]] bool isOpen() const { return isOpen_; }
  [[nodiscard]] bool isJoined() const { return isOpen_ && isJoined_; }
  [[nodiscard]] const Login& login() const { return login_; }
  [[nodiscard]] const std::map<std::uint64_t, std::string>& unanswered() const {
    return unanswered_;
  }

  void send(std::string frame, bool binary) {
    incoming_.push_back([frame = std::move(frame), binary](Listener& listener) {
      binary ? listener.onBinary(frame) : listener.onText(frame);
    });
    deliverLater();
  }

  void reply(const Request& request, std::string_view items) {
    if (request.connection != number_ || !request.id || !isJoined()) return;
    if (unanswered_.erase(*request.id) == 0) return;
    send("43" + std::string(nsp) + std::to_string(*request.id) + "[" + std::string(items) + "]",
         false);
  }

  void lose(const socketio::Ending& ending) {
    isCut_ = true;
    isJoined_ = false;
    pings_->cancel();
    incoming_.push_back([this, ending](Listener& listener) {
      isOpen_ = false;
      listener.onClosed(ending);
    });
    deliverLater();
  }

  /// Says the first word, unless it was said.
  void greet() {
    if (!isOpen_ || isCut_ || isGreeted_ || world_->isHanging_) return;
    if (world_->failure_) return lose(*world_->failure_);
    isGreeted_ = true;
    const auto& handshake = world_->handshake_;
    send(R"(0{"sid":"engine","upgrades":[],"pingInterval":)" +
             std::to_string(handshake.pingInterval.count()) +
             ",\"pingTimeout\":" + std::to_string(handshake.pingTimeout.count()) +
             ",\"maxPayload\":" + std::to_string(handshake.maxPayload) + "}",
         false);
    pingLater();
  }

  /// Reads the next frame, if it can.
  void read() {
    if (unread_.empty() || isCut_ || world_->isHanging_) return;
    const auto [frame, request] = std::move(unread_.front());
    unread_.pop_front();
    queuedBytes_ -= frame.size();
    ++reads_;
    if (frame.starts_with("40")) join();
    if (frame.starts_with("41")) isJoined_ = false;
    if (request) answer(*request);
  }

  void goOn() {
    postToNetwork([self = shared_from_this()] { self->greet(); });
    for (auto left = unread_.size(); left > 0; --left) readLater();
  }

 private:
  struct Unread {
    std::string frame;
    std::optional<Request> request;
  };

  void readLater() {
    postToNetwork([self = shared_from_this()] { self->read(); });
  }

  void deliverLater() {
    postToNetwork([self = shared_from_this()] {
      if (self->isPaused_ || self->incoming_.empty()) return;
      const auto tell = std::move(self->incoming_.front());
      self->incoming_.pop_front();
      const auto listener = self->listener_.lock();
      if (listener && self->isOpen_) tell(*listener);
    });
  }

  void pingLater() {
    const auto& clock = *world_->clock_;
    pings_->set(clock.now() + world_->handshake_.pingInterval, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self || !self->isOpen_) return;
      if (!self->world_->isHanging_) self->send("2", false);
      self->pingLater();
    });
  }

  void join() {
    const auto start = std::string(nsp);
    if (world_->refusal_) {
      return send("44" + start + "{\"message\":" + quoted(*world_->refusal_) + "}", false);
    }
    isJoined_ = true;
    send("40" + start + R"({"sid":"session"})", false);
    const auto tell = world_->onLogin_;  // it may set another
    if (tell) tell(login_);
  }

  void answer(const Request& request) {
    const auto found = world_->answers_.find(request.event);
    if (!request.id || found == world_->answers_.end()) return;
    const auto answer = found->second;  // it may change its own event's answer
    reply(request, answer(request));
  }

  const std::shared_ptr<World> world_;
  const int number_;
  const std::shared_ptr<socketio::Timer> pings_;
  std::weak_ptr<Listener> listener_;
  Login login_;
  std::deque<std::function<void(Listener&)>> incoming_;
  std::deque<Unread> unread_;
  std::map<std::uint64_t, std::string> unanswered_;
  std::size_t queuedBytes_ = 0;
  std::uint64_t reads_ = 0;
  bool isOpen_ = false;
  bool isGreeted_ = false;
  bool isJoined_ = false;
  bool isCut_ = false;
  bool isPaused_ = false;
};

std::shared_ptr<Transport> Server::World::makeConnection() {
  std::erase_if(connections_, [](const auto& connection) { return connection.expired(); });
  auto connection = std::make_shared<Connection>(shared_from_this(), ++connectionCount_);
  connections_.push_back(connection);
  return connection;
}

/// Those that are open, of one client or of all.
std::vector<std::shared_ptr<Server::World::Connection>> Server::World::connections(
    std::string_view token) {
  std::vector<std::shared_ptr<Connection>> open;
  for (const auto& each : connections_) {
    const auto connection = each.lock();
    if (!connection || !connection->isOpen()) continue;
    if (token.empty() || connection->login().token == token) open.push_back(connection);
  }
  return open;
}

// The application's functions may refer to what is gone soon.
void Server::World::end(std::shared_ptr<socketio::Clock> system) {
  answers_.clear();
  onFailure_ = nullptr;
  onLogin_ = nullptr;
  isHanging_ = false;
  failure_ = {socketio::Cause::unreachable, "the test's server is gone"};
  drop({}, {socketio::Cause::lost, "the test's server is gone"});
  clock_->release(std::move(system));
}

void Server::World::fail(const std::string& what) {
  const auto failure = what + "; pending: " + pending();
  const auto tell = onFailure_;  // it may set another, or end the server
  if (tell) return tell(failure);
  std::cerr << "KorivaSDK - " << failure << std::endl;
}

/// Two who answer each other at once never let time pass.
void Server::World::expectAnEnd() {
  if (std::exchange(lastSent_, clock_->now()) != clock_->now()) sentAtOnce_ = 0;
  if (++sentAtOnce_ % maxSentAtOnce != 0) return;
  isHanging_ = true;
  postToNetwork(
      [self = shared_from_this()] { self->fail("clients go on sending while no time passes"); });
}

std::string Server::World::pending() {
  std::string text;
  for (const auto& connection : connections()) {
    if (!text.empty()) text += ", ";
    text += quoted(connection->login().token);
    text += connection->isJoined() ? " is connected" : " is connecting";
    for (const auto& [id, event] : connection->unanswered()) {
      text += ", has no answer to " + quoted(event);
    }
  }
  return text.empty() ? "no connection" : text;
}

void Server::World::reply(const Request& request, std::string_view items) {
  for (const auto& connection : connections()) connection->reply(request, items);
}

void Server::World::sendEvent(std::string_view event, std::string_view items,
                              std::string_view token) {
  const auto frame = "42" + std::string(nsp) + "[" + quoted(event) + (items.empty() ? "" : ",") +
                     std::string(items) + "]";
  for (const auto& connection : connections(token)) {
    if (connection->isJoined()) connection->send(frame, false);
  }
}

void Server::World::send(std::string_view frame, bool binary, std::string_view token) {
  for (const auto& connection : connections(token)) connection->send(std::string(frame), binary);
}

void Server::World::drop(std::string_view token, const socketio::Ending& ending) {
  for (const auto& connection : connections(token)) connection->lose(ending);
}

void Server::World::accept() {
  refusal_.reset();
  failure_.reset();
  isHanging_ = false;
  for (const auto& connection : connections()) connection->goOn();
}

bool Server::World::isConnected(std::string_view token) {
  const auto open = connections(token);
  return std::ranges::any_of(open, [](const auto& each) { return each->isJoined(); });
}

Server::Server(const Handshake& handshake) : world_(std::make_shared<World>(handshake)) {
  if (const auto* refusal = setStage(world_, KORIVA_SDK_VERSION).refusal) {
    throw std::logic_error(std::string("no test server can be made: ") + refusal);
  }
}

Server::~Server() { world_->end(setStage(nullptr, KORIVA_SDK_VERSION).systemClock); }

void Server::run() { KRRunLoop::main().poll(); }

void Server::advance(Duration duration) { KRRunLoop::main().runFor(duration); }

bool Server::runUntil(const std::function<bool()>& condition, std::string_view what,
                      Duration limit) {
  const auto world = world_;  // a callback may end the server
  const auto end = world->clock_->now() + std::min<Duration>(limit, maxWait);
  do {
    KRRunLoop::main().poll();
    if (condition()) return true;
  } while (world->advance(end));
  world->fail("waited in vain for " + std::string(what));
  return false;
}

void Server::onFailure(std::function<void(const std::string& failure)> handler) {
  world_->onFailure_ = std::move(handler);
}

void Server::onLogin(std::function<void(const Login& login)> handler) {
  world_->onLogin_ = std::move(handler);
}

std::string Server::pending() const { return world_->pending(); }

void Server::answer(std::string_view event, Answer answer) {
  world_->answers_[std::string(event)] = [answer = std::move(answer)](const Request& request) {
    return textOf(answer(request));
  };
}

void Server::answer(std::string_view event, const KRDictionary& answer) {
  answerRaw(event, textOf(answer));
}

void Server::answerRaw(std::string_view event, std::string items) {
  world_->answers_[std::string(event)] = [items = std::move(items)](const Request&) {
    return items;
  };
}

void Server::ignore(std::string_view event) { world_->answers_.erase(std::string(event)); }

void Server::reply(const Request& request, const KRDictionary& answer) {
  world_->reply(request, textOf(answer));
}

void Server::replyRaw(const Request& request, std::string_view items) {
  world_->reply(request, items);
}

void Server::push(std::string_view event, const KRDictionary& item, std::string_view token) {
  world_->sendEvent(event, textOf(item), token);
}

void Server::pushRaw(std::string_view event, std::string_view items, std::string_view token) {
  world_->sendEvent(event, items, token);
}

void Server::send(std::string_view frame, std::string_view token) {
  world_->send(frame, false, token);
}

void Server::sendBinary(std::string_view bytes, std::string_view token) {
  world_->send(bytes, true, token);
}

void Server::drop(std::string_view token) {
  world_->drop(token, {socketio::Cause::lost, "connection lost"});
}

void Server::refuse(std::string_view reason) { world_->refusal_ = reason; }

void Server::shutDown() {
  failAttempts(KRConnectionCause::unreachable, "cannot connect: Connection refused");
  drop();
}

void Server::failAttempts(KRConnectionCause cause, std::string_view reason) {
  world_->failure_ = {cause, std::string(reason)};
}

void Server::hang() { world_->isHanging_ = true; }

void Server::accept() { world_->accept(); }

const std::vector<Login>& Server::logins() const { return world_->logins_; }

std::vector<Request> Server::sent(std::string_view event, std::string_view token) const {
  std::vector<Request> chosen;
  std::ranges::copy_if(world_->requests_, std::back_inserter(chosen), [&](const Request& request) {
    return (event.empty() || request.event == event) && (token.empty() || request.token == token);
  });
  return chosen;
}

const std::vector<std::string>& Server::frames() const { return world_->frames_; }

void Server::forget() {
  world_->logins_ = {};
  world_->requests_ = {};
  world_->frames_ = {};
}

bool Server::isConnected(std::string_view token) const { return world_->isConnected(token); }

}  // namespace koriva::testing
