#include "socketio/Engine.h"

#include <boost/asio/dispatch.hpp>
#include <utility>

namespace koriva::socketio {

namespace asio = boost::asio;

Engine::Engine(const Environment& environment, std::string nsp, const Limits& limits)
    : environment_(environment),
      transport_(environment.makeTransport()),
      nsp_(std::move(nsp)),
      limits_(limits),
      clock_(environment.clock()),
      connectTimer_(clock_->makeTimer()),
      heartbeatTimer_(clock_->makeTimer()) {}

void Engine::open(const Endpoint& endpoint, const ConnectParameters& parameters,
                  TimePoint notBefore, std::weak_ptr<Listener> listener) {
  listener_ = std::move(listener);
  asio::dispatch(environment_.io(), [self = shared_from_this(), endpoint, notBefore,
                                     target = requestTarget(parameters)] {
    if (self->clock_->now() >= notBefore) return self->dial(endpoint, target);
    self->connectTimer_->set(notBefore, [weak = self->weak_from_this(), endpoint, target] {
      const auto engine = weak.lock();
      if (engine) engine->dial(endpoint, target);
    });
  });
}

void Engine::dial(const Endpoint& endpoint, const std::string& target) {
  if (isLeft_) return;
  state_ = State::opening;
  connectTimer_->set(clock_->now() + limits_.connect, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self && self->state_ != State::joined) self->fail("the connection attempt timed out");
  });
  transport_->open(endpoint, target, shared_from_this());
}

void Engine::send(std::string frame) {
  const auto size = frame.size();
  bytesOnTheWay_ += size;
  asio::dispatch(environment_.io(),
                 [self = shared_from_this(), frame = std::move(frame), size]() mutable {
                   if (self->state_ == State::joined) self->transport_->send(std::move(frame));
                   self->bytesOnTheWay_ -= size;
                 });
}

void Engine::close() {
  isLeft_ = true;
  asio::dispatch(environment_.io(), [self = shared_from_this()] {
    if (self->state_ == State::joined) self->transport_->send(encodeDisconnect(self->nsp_));
    self->shut();
  });
}

const char* Engine::refusal(std::size_t frameSize) const {
  const auto limit = maxPayload_.load(std::memory_order_relaxed);
  if (limit != 0 && frameSize > limit) return "the message is larger than the server accepts";
  if (bytesOnTheWay_ + transport_->queuedBytes() + frameSize > limits_.outgoingBytes) {
    return "too much is waiting to be sent";
  }
  return nullptr;
}

/// Calls the listener on the handle queue.
template <class Call>
void Engine::tell(Call call) {
  environment_.dispatchHandler([weak = listener_, call = std::move(call)]() mutable {
    if (const auto listener = weak.lock()) call(*listener);
  });
}

void Engine::onText(std::string frame) {
  if (frame.empty() || state_ == State::closed) return;
  switch (frame.front()) {
    case '0':
      return onHandshake(std::string_view(frame).substr(1));
    case '1':
      return fail("the server closed the connection");
    case '2':
      // Emissions are refused long before; only answers that nobody reads pile up this high.
      if (transport_->queuedBytes() / 2 > limits_.outgoingBytes) {
        return fail("the server does not read");
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

void Engine::onHandshake(std::string_view json) {
  if (state_ != State::opening) return;
  const auto handshake = parseHandshake(json);
  if (!handshake) return fail("the server's open packet is malformed");
  maxPayload_ = handshake->maxPayload;
  heartbeatLimit_ = std::chrono::milliseconds(handshake->pingInterval + handshake->pingTimeout);
  lastHeartbeat_ = clock_->now();
  transport_->setIdleLimit(heartbeatLimit_);
  watchHeartbeat();
  state_ = State::joining;
  transport_->send(encodeConnect(nsp_));
}

void Engine::watchHeartbeat() {
  heartbeatTimer_->set(lastHeartbeat_ + heartbeatLimit_, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self || self->state_ == State::closed) return;
    if (self->clock_->now() - self->lastHeartbeat_ >= self->heartbeatLimit_) {
      return self->fail("the server's heartbeat stopped");
    }
    self->watchHeartbeat();
  });
}

void Engine::onPacket(std::string frame) {
  partial_.reset();  // text instead of an awaited attachment: that packet is lost
  auto packet = parsePacket(std::string_view(frame).substr(1));
  if (!packet || packet->nsp != nsp_) return;
  switch (packet->type) {
    case PacketType::connect:
      if (state_ != State::joining) return;
      state_ = State::joined;
      connectTimer_->cancel();
      return tell([](Listener& listener) { listener.onConnected(); });
    case PacketType::disconnect:
      return fail("the server ended the session");
    case PacketType::connectError:
      return fail("the server refused the connection: " + refusalText(packet->payload));
    default:
      if (state_ == State::joined) onMessage(*std::move(packet), std::move(frame));
  }
}

// By reference: moving a short frame would move the text that the packet's views point into.
void Engine::onMessage(Packet&& packet, std::string&& frame) {
  const auto offset = static_cast<std::size_t>(packet.payload.data() - frame.data());
  const auto length = packet.payload.size();

  Partial message;
  message.type = packet.type;
  message.id = packet.id.value_or(0);
  message.event = std::move(packet.event);
  if (packet.type == PacketType::binaryEvent || packet.type == PacketType::binaryAck) {
    const auto holdsBinary = firstItemHoldsBinary(packet.payload, packet.attachments);
    if (!holdsBinary) return;
    message.items = Items(std::move(frame), offset, length);
    message.items.firstHoldsBinary = *holdsBinary;
    message.missing = packet.attachments;
    message.bytes = length;
    if (message.missing != 0) {
      partial_ = std::move(message);
      return;
    }
  } else {
    message.items = Items(std::move(frame), offset, length);
  }
  deliver(std::move(message));
}

void Engine::onBinary(std::string frame) {
  if (!partial_ || state_ == State::closed) return;
  partial_->bytes += frame.size();
  if (partial_->bytes > maxIncomingBytes) return partial_.reset();
  partial_->items.attachments.push_back(std::move(frame));
  if (--partial_->missing != 0) return;
  deliver(*std::exchange(partial_, std::nullopt));
}

void Engine::deliver(Partial message) {
  if (environment_.onHandleQueue()) {
    if (const auto listener = listener_.lock()) message.tell(*listener);
    return;
  }
  if (++undelivered_ > limits_.undelivered && !paused_) {
    paused_ = true;
    transport_->pauseReading(true);
  }
  environment_.postHandler([self = shared_from_this(), message = std::move(message)] {
    if (--self->undelivered_ == 0) self->resumeReading();
    if (const auto listener = self->listener_.lock()) message.tell(*listener);
  });
}

void Engine::Partial::tell(Listener& listener) const {
  if (type == PacketType::ack || type == PacketType::binaryAck) {
    listener.onAck(id, items);
  } else {
    listener.onEvent(event, items);
  }
}

void Engine::resumeReading() {
  asio::dispatch(environment_.io(), [self = shared_from_this()] {
    if (std::exchange(self->paused_, false)) self->transport_->pauseReading(false);
  });
}

void Engine::onClosed(std::string reason) { fail(std::move(reason)); }

void Engine::shut() {
  state_ = State::closed;
  connectTimer_->cancel();
  heartbeatTimer_->cancel();
  partial_.reset();
  transport_->close();
}

void Engine::fail(std::string reason) {
  if (state_ == State::closed) return;
  shut();
  tell([reason = std::move(reason)](Listener& listener) { listener.onClosed(reason); });
}

}  // namespace koriva::socketio
