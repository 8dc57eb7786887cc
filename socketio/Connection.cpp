#include "socketio/Connection.h"

#include <algorithm>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <utility>

namespace koriva::socketio {

namespace asio = boost::asio;

Connection::Connection(const Environment& environment, std::string nsp, const Limits& limits,
                       std::weak_ptr<const Handlers> handlers, TransportOptions options)
    : environment_(environment),
      nsp_(std::move(nsp)),
      limits_(limits),
      options_(std::move(options)),
      handlers_(std::move(handlers)) {}

// Nothing that waits for its turn is overtaken. With nothing waiting, a detour would cost each
// answer to an event another one.
template <class Task>
void Connection::runOnIo(Task task) {
  if (waitingTasks_ == 0 && environment_.onIo()) return task();
  ++waitingTasks_;
  asio::post(environment_.io(), [self = shared_from_this(), task = std::move(task)]() mutable {
    --self->waitingTasks_;
    task();
  });
}

void Connection::connect(const Endpoint& endpoint, const ConnectParameters& parameters,
                         Duration delay) {
  if (status() != Status::notConnected) return;
  status_ = Status::connecting;
  lastDial_ = clock_->now() + delay;
  runOnIo([this, endpoint, target = requestTarget(parameters), notBefore = lastDial_] {
    environment_.add(weak_from_this());
    if (clock_->now() >= notBefore) return dial(endpoint, target);
    connectTimer_->set(notBefore, [weak = weak_from_this(), endpoint, target] {
      if (const auto self = weak.lock()) self->dial(endpoint, target);
    });
  });
}

void Connection::dial(const Endpoint& endpoint, const std::string& target) {
  if (status() == Status::disconnected) return;
  connectTimer_->set(clock_->now() + limits_.connect, [weak = weak_from_this()] {
    if (const auto self = weak.lock())
      self->fail({Cause::timeout, "the connection attempt timed out"});
  });
  transport_->open(endpoint, target, options_, weak_from_this());
}

Duration Connection::delayOfNextDial(const Clock& nextClock) const {
  if (&nextClock != clock_.get()) return {};
  const auto now = clock_->now();
  const auto next = lastDial_ > now ? lastDial_ : lastDial_ + limits_.redial;
  return std::max(next - now, Duration::zero());
}

void Connection::disconnect(Ending ending) {
  if (!becomeDisconnected(std::move(ending))) return;
  runOnIo([this, closing = environment_.closing()] { leave(); });
  raise(disconnectEvent, Items(quoted(ending_.reason)));
}

void Connection::release() {
  handlers_.reset();
  disconnect();
}

/// False when it was on no connection.
bool Connection::becomeDisconnected(Ending ending) {
  const auto before = status_.exchange(Status::disconnected);
  if (before != Status::connecting && before != Status::connected) return false;
  ending_ = std::move(ending);
  return true;
}

void Connection::leave() {
  if (state_ == State::closed) return;
  if (state_ == State::joined) transport_->send(encodeDisconnect(nsp_));
  shut();
}

void Connection::endAll(const Environment& environment, const std::string& reason) {
  const auto all = environment.connections();  // handlers may add to them
  for (const auto& weak : all) {
    const auto connection = weak.lock();
    if (!connection || connection->status() == Status::disconnected) continue;
    connection->leave();
    environment.dispatchHandler([connection, reason] {
      connection->onEnded({Cause::local, reason});
    });
  }
}

void Connection::emit(std::string event, Frame items, Handler onAck) {
  const char* refusal = nullptr;
  auto size = sizeof(std::string) + sizeof(Handler) + event.size() + items.footprint();
  if (status() != Status::connected) {
    refusal = "not connected";
  } else if (waitingBytes_ + transport_->queuedBytes() + size > limits_.outgoingBytes) {
    refusal = "too much is waiting to be sent";
  }
  if (refusal) size -= std::exchange(items, {}).footprint();
  waitingBytes_ += size;
  runOnIo([this, size, refusal, event = std::move(event), items = std::move(items),
           onAck = std::move(onAck)]() mutable {
    waitingBytes_ -= size;
    send(event, std::move(items), std::move(onAck), refusal);
  });
}

void Connection::send(const std::string& event, Frame&& items, Handler onAck, const char* refusal) {
  std::optional<std::uint64_t> id;
  if (onAck) {
    id = firstAckId_ + acks_.size();
    acks_.push_back({clock_->now() + limits_.acknowledgement, std::move(onAck)});
    watchAcks();
  }
  if (refusal) return refuse(event, refusal);
  if (state_ != State::joined) return refuse(event, "not connected");
  encodeEvent(nsp_, id, event, items);
  if (maxPayload_ != 0 && items.view().size() > maxPayload_) {
    return refuse(event, "the message is larger than the server accepts");
  }
  transport_->send(std::move(items));
}

// Later: this may still be within the emission, in which no handler runs.
void Connection::refuse(const std::string& event, const char* reason) {
  const auto text = "\"" + event + "\" was not sent: " + reason;
  environment_.postHandler(
      [self = shared_from_this(), items = Items(quoted(text))] { self->raise(errorEvent, items); });
}

// The timer is left to ring for the oldest acknowledgement even when that was answered meanwhile:
// setting it anew for each would cost more than a needless ring every few seconds. It keeps the
// connection until all have ended.
void Connection::watchAcks() {
  if (isAckTimerSet_ || acks_.empty()) return;
  ackTimer_->set(acks_.front().deadline, [self = shared_from_this()] { self->expireAcks(); });
  isAckTimerSet_ = true;
}

void Connection::expireAcks() {
  isAckTimerSet_ = false;
  const auto now = clock_->now();
  while (!acks_.empty() && acks_.front().deadline <= now) {
    if (auto onAck = takeAck(firstAckId_)) {
      environment_.postHandler([onAck = std::move(onAck)] { onAck(Items(quoted(noAck))); });
    }
  }
  watchAcks();
}

Handler Connection::takeAck(std::uint64_t id) {
  if (id < firstAckId_ || id - firstAckId_ >= acks_.size()) return {};
  auto onAck = std::exchange(acks_[static_cast<std::size_t>(id - firstAckId_)].onAck, {});
  while (!acks_.empty() && !acks_.front().onAck) {
    acks_.pop_front();
    ++firstAckId_;
  }
  return onAck;
}

void Connection::onText(std::string frame) {
  wasHeard_ = true;
  if (frame.empty()) return;
  switch (frame.front()) {
    case '0':
      return onHandshake(std::string_view(frame).substr(1));
    case '1':
      return fail({Cause::server, "the server closed the connection"});
    case '2':
      // Emissions are refused long before; only answers that nobody reads pile up this high.
      if (transport_->queuedBytes() / 2 > limits_.outgoingBytes) {
        return fail({Cause::lost, "the server does not read"});
      }
      lastHeartbeat_ = clock_->now();
      frame.front() = '3';
      return transport_->send(std::move(frame));
    case '4':
      return onPacket(std::move(frame));
    default:
      return;
  }
}

void Connection::onHandshake(std::string_view json) {
  if (state_ != State::opening) return;
  const auto handshake = parseHandshake(json);
  if (!handshake) return fail({Cause::server, "the server's open packet is malformed"});
  maxPayload_ = handshake->maxPayload;
  heartbeatLimit_ = std::chrono::milliseconds(handshake->pingInterval + handshake->pingTimeout);
  lastHeartbeat_ = clock_->now();
  watchHeartbeat();
  state_ = State::joining;
  transport_->send(encodeConnect(nsp_));
}

void Connection::watchHeartbeat() {
  heartbeatTimer_->set(lastHeartbeat_ + heartbeatLimit_, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    const auto now = self->clock_->now();
    if (now - self->lastHeartbeat_ >= self->heartbeatLimit_) {
      return self->fail({Cause::lost, "the server's heartbeat stopped"});
    }
    const bool isStuck = self->stuckAt_ == self->transport_->writes();
    if (isStuck && now - self->stuckSince_ >= self->heartbeatLimit_ / 2) {
      return self->fail({Cause::lost, "the server takes nothing any more"});
    }
    self->watchHeartbeat();
  });
  if (transport_->queuedBytes() == 0) return stuckAt_.reset();
  if (stuckAt_ == transport_->writes()) return;
  stuckAt_ = transport_->writes();
  stuckSince_ = clock_->now();
}

void Connection::probe(Duration limit) {
  runOnIo([this, limit] {
    if (state_ != State::joined || probeTimer_) return;
    probeTimer_ = clock_->makeTimer();
    watchProbe(limit);  // before the ping waits to be sent, too
    transport_->ping();
  });
}

// A pong that waits behind other messages, or a ping that does, or either while reading pauses or
// the process slept, has not failed to come.
void Connection::watchProbe(Duration limit) {
  wasHeard_ = false;
  const auto end = clock_->now() + limit;
  const auto queued = transport_->queuedBytes();
  probeTimer_->set(end, [weak = weak_from_this(), limit, end, queued] {
    const auto self = weak.lock();
    if (!self || !self->probeTimer_) return;
    const bool isLate = self->clock_->now() > end + limit;
    const bool isSending = self->transport_->queuedBytes() < queued;
    if (isLate || isSending || self->isPaused_ || self->wasHeard_) return self->watchProbe(limit);
    self->fail({Cause::lost, "the server does not answer any more"});
  });
}

void Connection::onPacket(std::string frame) {
  partial_.reset();  // text instead of an awaited attachment: that packet is lost
  auto packet = parsePacket(std::string_view(frame).substr(1));
  if (!packet || packet->nsp != nsp_) return;
  switch (packet->type) {
    case PacketType::connect:
      if (state_ != State::joining) return;
      state_ = State::joined;
      connectTimer_->cancel();
      return environment_.dispatchHandler([self = shared_from_this()] { self->onConnected(); });
    case PacketType::disconnect:
      return fail({Cause::server, "the server ended the session"});
    case PacketType::connectError:
      return fail(
          {Cause::refused, "the server refused the connection: " + refusalText(packet->payload)});
    default:
      if (state_ == State::joined) onMessage(*std::move(packet), std::move(frame));
  }
}

// By reference: moving a short frame would move the text that the packet's views point into.
void Connection::onMessage(Packet&& packet, std::string&& frame) {
  const bool isBinary =
      packet.type == PacketType::binaryEvent || packet.type == PacketType::binaryAck;
  std::optional<bool> holdsBinary = false;
  if (isBinary) holdsBinary = firstItemHoldsBinary(packet.payload, packet.attachments);
  if (!holdsBinary) return;

  Message message;
  if (packet.type == PacketType::ack || packet.type == PacketType::binaryAck) {
    message.ackId = packet.id;
  }
  message.event = std::move(packet.event);
  message.missing = packet.attachments;
  message.bytes = frame.size();
  const auto offset = static_cast<std::size_t>(packet.payload.data() - frame.data());
  const auto length = packet.payload.size();
  message.items = Items(std::move(frame), offset, length);
  message.items.firstHoldsBinary = *holdsBinary;
  if (message.missing == 0) return deliver(std::move(message));
  partial_ = std::move(message);
}

void Connection::onBinary(std::string frame) {
  wasHeard_ = true;
  if (!partial_) return;
  partial_->bytes += frame.size();
  if (partial_->bytes > maxIncomingBytes) return partial_.reset();
  if (--partial_->missing == 0) deliver(*std::exchange(partial_, std::nullopt));
}

void Connection::deliver(Message message) {
  const auto bytes = message.items.footprint();
  if (!message.ackId) {
    return deliver(bytes, [self = shared_from_this(), event = std::move(message.event),
                           items = std::move(message.items)] { self->onEvent(event, items); });
  }
  auto onAck = takeAck(*message.ackId);
  if (!onAck) return;
  deliver(bytes, [onAck = std::move(onAck), items = std::move(message.items)] { onAck(items); });
}

template <class Task>
void Connection::deliver(std::size_t bytes, Task task) {
  if (environment_.onHandleQueue()) return task();
  undeliveredBytes_ += bytes;
  if (++undelivered_ > limits_.undelivered || undeliveredBytes_ > limits_.undeliveredBytes) {
    if (!std::exchange(isPaused_, true)) transport_->pauseReading(true);
  }
  environment_.postHandler([self = shared_from_this(), bytes, task = std::move(task)] {
    self->undeliveredBytes_ -= bytes;
    if (--self->undelivered_ == 0) {
      asio::dispatch(self->environment_.io(), [self] {
        if (std::exchange(self->isPaused_, false)) self->transport_->pauseReading(false);
      });
    }
    task();
  });
}

void Connection::shut() {
  state_ = State::closed;
  connectTimer_->cancel();
  heartbeatTimer_->cancel();
  probeTimer_.reset();
  partial_.reset();
  transport_->close();
}

void Connection::fail(Ending ending) {
  if (state_ == State::closed) return;
  shut();
  environment_.dispatchHandler([self = shared_from_this(), ending = std::move(ending)]() mutable {
    self->onEnded(std::move(ending));
  });
}

void Connection::onConnected() {
  auto expected = Status::connecting;
  if (status_.compare_exchange_strong(expected, Status::connected)) raise(connectEvent, Items());
}

void Connection::onEvent(const std::string& event, const Items& items) {
  if (status() != Status::connected) return;
  if (event == connectEvent || event == disconnectEvent) return;
  raise(event, items);
}

void Connection::onEnded(Ending ending) {
  const bool hasFailed = status() == Status::connecting;
  if (!becomeDisconnected(std::move(ending))) return;
  if (hasFailed) lastDial_ = clock_->now();
  raise(disconnectEvent, Items(quoted(ending_.reason)));
}

void Connection::raise(std::string_view event, const Items& items) {
  const auto handlers = handlers_.lock();
  if (!handlers) return;
  const auto found = handlers->find(event);
  if (found != handlers->end()) found->second(items);
}

}  // namespace koriva::socketio
