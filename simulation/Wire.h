#pragma once

#include "simulation/Life.h"
#include "socketio/Transport.h"

namespace koriva::simulation {

/// Listens in on a connection of the server in memory.
class Wire final : public socketio::Transport,
                   public socketio::Transport::Listener,
                   public std::enable_shared_from_this<Wire> {
 public:
  Wire(Life& life, std::shared_ptr<Transport> far) : life_(life), far_(std::move(far)) {
    life_.onMade(connection_);
  }
  ~Wire() override { life_.onGone(*connection_); }
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  void open(const socketio::Endpoint& endpoint, const std::string& target,
            const socketio::TransportOptions& options,
            std::weak_ptr<Transport::Listener> listener) override {
    life_.onDial(connection_, endpoint.host(), target);
    listener_ = std::move(listener);
    far_->open(endpoint, target, options, weak_from_this());
  }
  void send(socketio::Frame frame) override {
    life_.onSend(*connection_, frame.view());
    far_->send(std::move(frame));
  }
  void ping() override {
    connection_->probed = life_.now();
    far_->ping();
  }
  void close() override {
    life_.onClose(*connection_);
    far_->close();
  }
  void pauseReading(bool pause) override {
    connection_->isPaused = pause;
    far_->pauseReading(pause);
  }
  [[nodiscard]] std::size_t queuedBytes() const override { return far_->queuedBytes(); }
  [[nodiscard]] std::uint64_t writes() const override { return far_->writes(); }

  void onText(std::string frame) override {
    if (!life_.onArrival(*connection_, frame)) return;
    if (const auto listener = listener_.lock()) listener->onText(std::move(frame));
  }
  void onBinary(std::string frame) override {
    life_.onBinary(*connection_);
    if (const auto listener = listener_.lock()) listener->onBinary(std::move(frame));
  }
  void onPong() override {
    connection_->probed.reset();
    if (const auto listener = listener_.lock()) listener->onPong();
  }
  void onClosed(socketio::Ending ending) override {
    life_.onEnd(*connection_);
    if (const auto listener = listener_.lock()) listener->onClosed(std::move(ending));
  }

 private:
  Life& life_;
  const std::shared_ptr<Transport> far_;
  const std::shared_ptr<Connection> connection_ = std::make_shared<Connection>();
  std::weak_ptr<Transport::Listener> listener_;
};

}  // namespace koriva::simulation
