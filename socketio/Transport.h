#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "socketio/Clock.h"
#include "socketio/Ending.h"
#include "socketio/Endpoint.h"
#include "socketio/Frame.h"

namespace koriva::socketio {

struct TransportOptions;

/// A message connection to a server. Everything but `queuedBytes` belongs to the I/O executor, and
/// no function calls the listener before it returns.
class Transport {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void onText(std::string frame) = 0;
    virtual void onBinary(std::string frame) = 0;
    /// The answer to a `ping`.
    virtual void onPong() = 0;
    /// The connection failed or ended, other than by `close`. Nothing follows.
    virtual void onClosed(Ending ending) = 0;
  };

  virtual ~Transport() = default;

  virtual void open(const Endpoint& endpoint, const std::string& target,
                    const TransportOptions& options, std::weak_ptr<Listener> listener) = 0;
  /// Sends a text message after those sent before.
  virtual void send(Frame frame) = 0;
  /// Asks the server for a sign of life.
  virtual void ping() = 0;
  /// Closes in the background once everything sent has left, within a few seconds. The listener
  /// hears nothing more.
  virtual void close() = 0;
  /// Stops taking messages from the network, or goes on.
  virtual void pauseReading(bool pause) = 0;
  /// What `send` took and the network did not yet. From any thread.
  [[nodiscard]] virtual std::size_t queuedBytes() const = 0;
  /// How often the network took some of it.
  [[nodiscard]] virtual std::uint64_t writes() const = 0;
};

/// What lies outside of the library, and can be replaced: time, the way to a server,
/// and chance.
struct World {
  std::shared_ptr<Clock> clock;
  std::function<std::shared_ptr<Transport>()> makeTransport;
  std::function<double()> chance = {};  ///< a number from 0 up to 1, each as likely as another
};

/// The largest message taken from a server, attachments included.
inline constexpr std::size_t maxIncomingBytes = std::size_t{16} << 20;

}  // namespace koriva::socketio
