#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "socketio/Alarm.h"
#include "socketio/Items.h"
#include "socketio/Packet.h"
#include "socketio/Transport.h"

namespace koriva::socketio {

/// Limits that only tests have a reason to change.
struct Limits {
  std::chrono::milliseconds connect = std::chrono::seconds(20);  ///< until the namespace is joined
  std::chrono::milliseconds acknowledgement = std::chrono::seconds(5);
  std::chrono::milliseconds redial{250};  ///< from a dial or its failure to the next dial
  std::size_t undelivered = 1024;         ///< events, before reading pauses
  std::size_t outgoingBytes = std::size_t{64} << 20;  ///< waiting to be written
};

/// One Engine.IO connection with one Socket.IO namespace on it. Its state belongs to the I/O
/// executor; the public functions may be called from any thread and take effect in call order.
class Engine final : public Transport::Listener, public std::enable_shared_from_this<Engine> {
 public:
  /// Hears of the connection, on the handle queue, in the order of arrival.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void onConnected() = 0;
    virtual void onEvent(const std::string& event, const Items& items) = 0;
    virtual void onAck(std::uint64_t id, const Items& items) = 0;
    /// The attempt failed or the connection ended, not by `close`. Nothing follows.
    virtual void onClosed(const std::string& reason) = 0;
  };

  Engine(const Environment& environment, std::string nsp, const Limits& limits);

  /// Dials, but not before the time given.
  void open(const Endpoint& endpoint, const ConnectParameters& parameters, TimePoint notBefore,
            std::weak_ptr<Listener> listener);
  void send(std::string frame);
  /// Leaves the namespace and closes, in the background, after what was sent before.
  void close();

  /// Why a frame of this size cannot be sent now; null when it can.
  [[nodiscard]] const char* refusal(std::size_t frameSize) const;

 private:
  enum class State { idle, opening, joining, joined, closed };
  struct Partial {
    void tell(Listener& listener) const;

    PacketType type{};
    std::uint64_t id = 0;
    std::string event;
    Items items;
    std::size_t missing = 0;
    std::size_t bytes = 0;
  };

  void onText(std::string frame) override;
  void onBinary(std::string frame) override;
  void onClosed(std::string reason) override;

  void dial(const Endpoint& endpoint, const std::string& target);
  void onHandshake(std::string_view json);
  void onPacket(std::string frame);
  void onMessage(Packet&& packet, std::string&& frame);
  void deliver(Partial message);
  void resumeReading();
  void watchHeartbeat();
  void shut();
  void fail(std::string reason);
  template <class Call>
  void tell(Call call);

  const Environment& environment_;
  const std::shared_ptr<Transport> transport_;
  const std::string nsp_;
  const Limits limits_;

  std::weak_ptr<Listener> listener_;
  State state_ = State::idle;
  const std::shared_ptr<Clock> clock_;
  const std::shared_ptr<Timer> connectTimer_;
  const std::shared_ptr<Timer> heartbeatTimer_;
  std::chrono::milliseconds heartbeatLimit_{};
  TimePoint lastHeartbeat_;
  std::optional<Partial> partial_;  ///< a binary packet whose attachments are still to come
  bool paused_ = false;

  std::atomic<bool> isLeft_ = false;  ///< by `close`, which may run before what was posted earlier
  std::atomic<std::size_t> undelivered_ = 0;
  std::atomic<std::size_t> bytesOnTheWay_ = 0;  ///< from `send` to the transport
  std::atomic<std::uint64_t> maxPayload_ = 0;
};

}  // namespace koriva::socketio
