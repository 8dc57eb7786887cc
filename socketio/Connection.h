#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "socketio/Environment.h"
#include "socketio/Items.h"
#include "socketio/Packet.h"
#include "socketio/Transport.h"
#include "socketio/TransportOptions.h"

namespace koriva::socketio {

enum class Status { notConnected, connecting, connected, disconnected };

/// The client's own events; a packet of the server's with the name of one of the first two is
/// ignored.
inline constexpr std::string_view connectEvent = "connect";        ///< no items
inline constexpr std::string_view disconnectEvent = "disconnect";  ///< one text: the reason
inline constexpr std::string_view errorEvent = "error";            ///< one text: what is not sent

/// The item of an acknowledgement that did not come in time.
inline constexpr std::string_view noAck = "NO ACK";

/// Limits that only tests have a reason to change.
struct Limits {
  std::chrono::milliseconds connect = std::chrono::seconds(20);  ///< until the namespace is joined
  std::chrono::milliseconds acknowledgement = std::chrono::seconds(5);
  std::chrono::milliseconds redial{250};  ///< from a dial or its failure to the next dial
  std::size_t undelivered = 1024;         ///< events, before reading pauses
  std::size_t undeliveredBytes = std::size_t{32} << 20;
  std::size_t outgoingBytes = std::size_t{64} << 20;  ///< waiting to be written
};

using Handler = std::function<void(const Items&)>;

/// What each event leads to.
using Handlers = std::map<std::string, Handler, std::less<>>;

/// One attempt to join a Socket.IO namespace of a server, and the connection that comes of it. Make
/// another one to connect again.
///
/// The protocol belongs to the I/O executor. Status and handlers belong to the handle queue, as do
/// the public functions but `status` and `emit`, which may be called from any thread. What is
/// called on one thread takes effect in that order.
class Connection final : public Transport::Listener,
                         public std::enable_shared_from_this<Connection> {
 public:
  /// `environment` outlives the connection. Events lead to nothing once the handlers are gone; they
  /// are held while one of them runs.
  Connection(const Environment& environment, std::string nsp, const Limits& limits,
             std::weak_ptr<const Handlers> handlers, TransportOptions options = {});

  [[nodiscard]] Status status() const { return status_.load(std::memory_order_acquire); }
  [[nodiscard]] bool isUnderWay() const {
    return status() == Status::connecting || status() == Status::connected;
  }

  /// Is connecting from now on, but dials only after the delay. No handler runs before this
  /// returns.
  void connect(const Endpoint& endpoint, const ConnectParameters& parameters, Duration delay = {});

  /// How long the next connection has to wait before it dials: whatever a delegate does about each
  /// failed attempt, or about connections that end as soon as they stand, it does so a few times a
  /// second. Nothing binds a connection whose clock is another one.
  [[nodiscard]] Duration delayOfNextDial(const Clock& nextClock) const;

  /// Why it has ended, when the "disconnect" handler runs and ever after.
  [[nodiscard]] const Ending& ending() const { return ending_; }

  /// Sends what was emitted before, then leaves and closes in the background. The "disconnect"
  /// handler of a connection that was connecting or connected runs before this returns.
  void disconnect(Ending ending = {Cause::local, {}});

  /// Like `disconnect`, but no handler runs, now or later. Acknowledgements still end.
  void release();

  /// Ends the connection, if it stands, unless the server gives a sign of life within the limit.
  void probe(Duration limit);

  /// Emits an event; `items` are JSON values separated by commas. It is dropped, with an "error",
  /// unless the connection stands. `onAck`, if there is one, runs exactly once on the handle queue,
  /// where it is destroyed too: with the items of the answer, or with "NO ACK" when none came
  /// within the limit, whatever becomes of the connection meanwhile. No handler runs before this
  /// returns.
  void emit(std::string event, Frame items, Handler onAck = {});

  /// Leaves and closes all connections of the environment in the background, and tells their
  /// handlers why. On the I/O executor.
  static void endAll(const Environment& environment, const std::string& reason);

 private:
  enum class State { opening, joining, joined, closed };
  struct PendingAck {
    TimePoint deadline;
    Handler onAck;  ///< empty once answered
  };
  struct Message {
    std::optional<std::uint64_t> ackId;  ///< of an acknowledgement
    std::string event;
    Items items;
    std::size_t missing = 0;  ///< attachments that are still to come
    std::size_t bytes = 0;
  };

  // On the handle queue.
  void onConnected();
  void onEnded(Ending ending);
  void onEvent(const std::string& event, const Items& items);
  void raise(std::string_view event, const Items& items);
  bool becomeDisconnected(Ending ending);

  // On the I/O executor.
  void onText(std::string frame) override;
  void onBinary(std::string frame) override;
  void onPong() override { probeTimer_.reset(); }
  void onClosed(Ending ending) override { fail(std::move(ending)); }
  void dial(const Endpoint& endpoint, const std::string& target);
  void onHandshake(std::string_view json);
  void onPacket(std::string frame);
  void onMessage(Packet&& packet, std::string&& frame);
  void deliver(Message message);
  template <class Task>
  void deliver(std::size_t bytes, Task task);
  void watchHeartbeat();
  void watchProbe(Duration limit);
  void send(const std::string& event, Frame&& items, Handler onAck, const char* refusal);
  void refuse(const std::string& event, const char* reason);
  Handler takeAck(std::uint64_t id);
  void watchAcks();
  void expireAcks();
  void leave();
  void shut();
  void fail(Ending ending);

  template <class Task>
  void runOnIo(Task task);

  const Environment& environment_;
  const std::string nsp_;
  const Limits limits_;
  const TransportOptions options_;
  const std::shared_ptr<Clock> clock_ = environment_.clock();
  const std::shared_ptr<Transport> transport_ = environment_.makeTransport();

  std::atomic<Status> status_ = Status::notConnected;
  std::weak_ptr<const Handlers> handlers_;  ///< null once released
  Ending ending_;
  TimePoint lastDial_;  ///< its failure, if it has failed; may be still to come

  State state_ = State::opening;
  const std::shared_ptr<Timer> connectTimer_ = clock_->makeTimer();
  const std::shared_ptr<Timer> heartbeatTimer_ = clock_->makeTimer();
  const std::shared_ptr<Timer> ackTimer_ = clock_->makeTimer();
  std::chrono::milliseconds heartbeatLimit_{};
  TimePoint lastHeartbeat_;
  std::optional<std::uint64_t> stuckAt_;  // unless there are more writes
  TimePoint stuckSince_;
  std::shared_ptr<Timer> probeTimer_;  ///< null unless a pong is awaited
  bool wasHeard_ = false;              ///< since the probe's timer was set
  std::uint64_t maxPayload_ = 0;
  std::optional<Message> partial_;  ///< a binary packet whose attachments are still to come
  bool isPaused_ = false;

  // Acknowledgements in the order of their ids, which is that of their deadlines.
  std::deque<PendingAck> acks_;
  std::uint64_t firstAckId_ = 0;
  bool isAckTimerSet_ = false;

  std::atomic<std::size_t> waitingTasks_ = 0;  ///< for the I/O executor
  std::atomic<std::size_t> waitingBytes_ = 0;  ///< of emissions among them
  std::atomic<std::size_t> undelivered_ = 0;
  std::atomic<std::size_t> undeliveredBytes_ = 0;
};

}  // namespace koriva::socketio
