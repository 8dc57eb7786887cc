#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "KorivaSDK/KorivaSDK.h"
#include "socketio/Transport.h"

/// Takes the place of the network: the client is connected to a server within the process, which
/// answers every acknowledged request when it is told to.
class Unconnected final : public koriva::socketio::Transport {
 public:
  /// The transport of the client's connection.
  static Unconnected& instance();

  /// Logs the client in.
  static std::shared_ptr<KorivaSDK> login();

  /// Hands a frame to the client as the network would.
  void receive(std::string frame);

  /// Answers the requests sent so far, the oldest first.
  void answer();

  /// The id of the request sent last.
  [[nodiscard]] std::size_t lastId() const { return answered_ + waiting_ - 1; }

  void open(const koriva::socketio::Endpoint& endpoint, const std::string& target,
            const koriva::socketio::TransportOptions& options,
            std::weak_ptr<Listener> listener) override;
  void send(koriva::socketio::Frame frame) override;
  void ping() override {}
  void close() override {}
  void pauseReading(bool /*pause*/) override {}
  [[nodiscard]] std::size_t queuedBytes() const override { return 0; }
  [[nodiscard]] std::uint64_t writes() const override { return 0; }

  std::string lastFrame;  ///< what the client sent last

 private:
  std::weak_ptr<Listener> listener_;
  std::size_t answered_ = 0;
  std::size_t waiting_ = 0;  ///< requests that have no answer
};

/// Runs a task on the main loop, and all that it leads to.
template <class Task>
void onLoop(Task task) {
  KRRunLoop::main().post(std::move(task));
  KRRunLoop::main().poll();
}
