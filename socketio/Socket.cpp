#include "socketio/Socket.h"

#include <algorithm>

namespace koriva::socketio {

Socket::Socket(const Environment& environment, std::shared_ptr<Engine> engine, std::string nsp,
               const Limits& limits)
    : environment_(environment),
      engine_(std::move(engine)),
      nsp_(std::move(nsp)),
      limits_(limits),
      clock_(environment.clock()),
      ackAlarm_(std::make_shared<Alarm>(environment)) {}

void Socket::on(std::string_view event, Handler handler) {
  if (handlers_) (*handlers_)[std::string(event)].push_back(std::move(handler));
}

void Socket::connect(const Endpoint& endpoint, const ConnectParameters& parameters,
                     Duration delay) {
  if (status() != Status::notConnected) return;
  status_ = Status::connecting;
  lastDial_ = clock_->now() + delay;
  engine_->open(endpoint, parameters, lastDial_, weak_from_this());
}

Duration Socket::delayOfNextDial(const Clock& nextClock) const {
  if (&nextClock != clock_.get()) return {};
  const auto now = clock_->now();
  const auto next = lastDial_ > now ? lastDial_ : lastDial_ + limits_.redial;
  return std::max(next - now, Duration::zero());
}

void Socket::disconnect() {
  sendQueued();
  if (!leave()) return;
  engine_->close();
  raise(disconnectEvent, Items(quoted("disconnected by the client")));
}

void Socket::release() {
  sendQueued();
  handlers_.reset();
  if (leave()) engine_->close();
}

/// Passes to disconnected; false when the socket was on no connection.
bool Socket::leave() {
  const auto before = status_.exchange(Status::disconnected);
  return before == Status::connecting || before == Status::connected;
}

void Socket::emit(std::string event, std::string items) {
  enqueue({std::move(event), std::move(items), {}});
}

void Socket::emitWithAck(std::string event, std::string items, Handler onAck) {
  enqueue({std::move(event), std::move(items), std::move(onAck)});
}

// On the handle queue nothing waits for its turn: every detour would cost each answer another one.
void Socket::enqueue(Emission emission) {
  std::unique_lock lock(queueMutex_);
  const bool isFirst = queue_.empty();
  if (isFirst && environment_.onHandleQueue()) {
    lock.unlock();
    return send(std::move(emission));
  }
  queue_.push_back(std::move(emission));
  lock.unlock();
  if (isFirst) environment_.postHandler([self = shared_from_this()] { self->sendQueued(); });
}

void Socket::sendQueued() {
  std::vector<Emission> emissions;
  {
    const std::lock_guard lock(queueMutex_);
    emissions.swap(queue_);
  }
  for (auto& emission : emissions) send(std::move(emission));
}

void Socket::send(Emission emission) {
  std::optional<std::uint64_t> id;
  if (emission.onAck) id = awaitAck(std::move(emission.onAck));
  if (status() != Status::connected) return refuse(emission.event, "not connected");
  auto frame = encodeEvent(nsp_, id, emission.event, emission.items);
  if (const char* reason = engine_->refusal(frame.size())) return refuse(emission.event, reason);
  engine_->send(std::move(frame));
}

// Later: the caller may be an emission, in which no handler runs.
void Socket::refuse(const std::string& event, const char* reason) {
  environment_.postHandler([self = shared_from_this(), text = "\"" + event + "\" was not sent: " +
                                                              reason] { self->raiseError(text); });
}

std::uint64_t Socket::awaitAck(Handler onAck) {
  acks_.push_back({clock_->now() + limits_.acknowledgement, std::move(onAck)});
  watchAcks();
  return firstAckId_ + acks_.size() - 1;
}

// The alarm is left to ring for the oldest acknowledgement even when that was answered meanwhile:
// setting it anew for each would cost more than a needless ring every few seconds.
void Socket::watchAcks() {
  if (ackAlarmSet_ || acks_.empty()) return;
  ackAlarmSet_ = true;
  ackAlarm_->set(acks_.front().deadline, [self = shared_from_this()] { self->expireAcks(); });
}

void Socket::expireAcks() {
  ackAlarmSet_ = false;
  const auto now = clock_->now();
  std::vector<Handler> expired;
  while (!acks_.empty() && (!acks_.front().onAck || acks_.front().deadline <= now)) {
    if (acks_.front().onAck) expired.push_back(std::move(acks_.front().onAck));
    acks_.pop_front();
    ++firstAckId_;
  }
  watchAcks();
  const Items items{std::string(noAck)};
  for (const auto& onAck : expired) onAck(items);
}

void Socket::onAck(std::uint64_t id, const Items& items) {
  if (id < firstAckId_ || id - firstAckId_ >= acks_.size()) return;
  const auto onAck = std::exchange(acks_[static_cast<std::size_t>(id - firstAckId_)].onAck, {});
  while (!acks_.empty() && !acks_.front().onAck) {
    acks_.pop_front();
    ++firstAckId_;
  }
  if (onAck) onAck(items);
}

void Socket::onConnected() {
  auto expected = Status::connecting;
  if (status_.compare_exchange_strong(expected, Status::connected)) raise(connectEvent, Items());
}

void Socket::onEvent(const std::string& event, const Items& items) {
  if (status() != Status::connected) return;
  if (event == connectEvent || event == disconnectEvent) return;
  raise(event, items);
}

void Socket::onClosed(const std::string& reason) {
  const bool hasFailed = status() == Status::connecting;
  if (!leave()) return;
  if (hasFailed) lastDial_ = clock_->now();
  raiseError(reason);
  raise(disconnectEvent, Items(quoted(reason)));
}

void Socket::raiseError(std::string_view text) { raise(errorEvent, Items(quoted(text))); }

void Socket::raise(std::string_view event, const Items& items) {
  const auto handlers = handlers_;  // a handler may release this socket
  if (!handlers) return;
  const auto found = handlers->find(event);
  if (found == handlers->end()) return;
  for (std::size_t i = 0; i < found->second.size() && handlers_ == handlers; ++i) {
    found->second[i](items);
  }
}

}  // namespace koriva::socketio
