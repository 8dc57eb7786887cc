#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "socketio/Engine.h"

namespace koriva::socketio {

enum class Status { notConnected, connecting, connected, disconnected };

/// The client's own events; a packet of the server's with the name of one of the first two is
/// ignored.
inline constexpr std::string_view connectEvent = "connect";        ///< no items
inline constexpr std::string_view disconnectEvent = "disconnect";  ///< one text: the reason
inline constexpr std::string_view errorEvent = "error";            ///< one text: what went wrong

/// The item of an acknowledgement that did not come in time.
inline constexpr std::string_view noAck = R"("NO ACK")";

/// One Socket.IO namespace of one connection. It connects once; make another Manager to connect
/// again. Everything belongs to the handle queue but `status` and the emissions, which may be
/// called from any thread. No handler runs inside an emission.
class Socket final : public Engine::Listener, public std::enable_shared_from_this<Socket> {
 public:
  using Handler = std::function<void(const Items&)>;

  Socket(const Environment& environment, std::shared_ptr<Engine> engine, std::string nsp,
         const Limits& limits);

  [[nodiscard]] Status status() const { return status_.load(std::memory_order_acquire); }

  /// Handlers of one event run in the order in which they were added.
  void on(std::string_view event, Handler handler);

  /// Is connecting from now on, but dials only after the delay.
  void connect(const Endpoint& endpoint, const ConnectParameters& parameters, Duration delay);

  /// How long the next socket has to wait before it dials: whatever a delegate does about each
  /// failed attempt, or about connections that end as soon as they stand, it does so a few times a
  /// second. Nothing binds a socket whose clock is another one.
  [[nodiscard]] Duration delayOfNextDial(const Clock& nextClock) const;

  /// Sends what was emitted before, then leaves and closes in the background. The "disconnect"
  /// handlers of a socket that was connecting or connected run before this returns.
  void disconnect();

  /// Like `disconnect`, but no handler runs, now or later. Acknowledgements still end.
  void release();

  /// Emits an event; `items` are JSON values separated by commas. It is dropped, with an "error",
  /// unless the socket is connected when its turn comes.
  void emit(std::string event, std::string items);

  /// The same, and `onAck` runs exactly once: with the items of the answer, or with "NO ACK" when
  /// none came within the limit, whatever becomes of the socket meanwhile.
  void emitWithAck(std::string event, std::string items, Handler onAck);

 private:
  struct Emission {
    std::string event;
    std::string items;
    Handler onAck;
  };
  struct PendingAck {
    TimePoint deadline;
    Handler onAck;  ///< empty once answered
  };
  // By event. Adding moves no running handler.
  using Handlers = std::map<std::string, std::deque<Handler>, std::less<>>;

  void onConnected() override;
  void onEvent(const std::string& event, const Items& items) override;
  void onAck(std::uint64_t id, const Items& items) override;
  void onClosed(const std::string& reason) override;

  void enqueue(Emission emission);
  void sendQueued();
  void send(Emission emission);
  void refuse(const std::string& event, const char* reason);
  std::uint64_t awaitAck(Handler onAck);
  void watchAcks();
  void expireAcks();
  void raise(std::string_view event, const Items& items);
  void raiseError(std::string_view text);
  bool leave();

  const Environment& environment_;
  const std::shared_ptr<Engine> engine_;
  const std::string nsp_;
  const Limits limits_;
  const std::shared_ptr<Clock> clock_;
  std::atomic<Status> status_ = Status::notConnected;
  TimePoint lastDial_;  ///< its failure, if it has failed; may be still to come
  std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();

  std::mutex queueMutex_;
  std::vector<Emission> queue_;

  // Acknowledgements in the order of their ids, which is that of their deadlines.
  std::deque<PendingAck> acks_;
  std::uint64_t firstAckId_ = 0;
  std::shared_ptr<Alarm> ackAlarm_;
  bool ackAlarmSet_ = false;
};

}  // namespace koriva::socketio
