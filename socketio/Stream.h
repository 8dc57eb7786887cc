#pragma once

#include <openssl/ssl.h>

#include <array>
#include <atomic>
#include <boost/asio/buffer.hpp>
#include <boost/asio/execution/blocking.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/core/saved_handler.hpp>
#include <memory>
#include <optional>
#include <string>

#include "socketio/Environment.h"

namespace koriva::socketio {

using TcpSocket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, Executor>;

/// Plain TCP or TLS over it, chosen at run time so that what is above exists once. It reads ahead
/// while much arrives. What is written is gathered and leaves when all that has arrived was looked
/// at, so that a burst is one write, and a lone message does not wait.
///
/// One read and one write at a time. Belongs to the I/O executor.
class BufferedSocket : public std::enable_shared_from_this<BufferedSocket> {
 public:
  using Error = boost::system::error_code;

  explicit BufferedSocket(const Environment& environment)
      : environment_(environment), tcp_(environment.io()) {}

  /// Takes the session.
  void useTls(SSL* session) { tls_.emplace(tcp_, session); }
  TcpSocket& tcp() { return tcp_; }
  std::optional<boost::asio::ssl::stream<TcpSocket&>>& tls() { return tls_; }
  /// What was written and has not left. From any thread.
  [[nodiscard]] std::size_t unsentBytes() const { return unsent_.load(std::memory_order_relaxed); }
  /// How often some of it has left.
  [[nodiscard]] std::uint64_t writes() const { return writes_; }

  // No handler is called within the function that takes it.

  template <class Buffers, class Handler>
  void read(const Buffers& buffers, Handler&& handler) {
    std::size_t count = 0;
    target_ = {};
    for (auto it = boost::asio::buffer_sequence_begin(buffers);
         it != boost::asio::buffer_sequence_end(buffers) && count < target_.size(); ++it) {
      target_[count++] = *it;
    }
    onRead_.emplace([this, handler = std::forward<Handler>(handler)](Error = {}) mutable {
      handler(readError_, readSize_);
    });
    startRead();
  }

  template <class Buffers, class Handler>
  void write(const Buffers& buffers, Handler&& handler) {
    const auto size = boost::asio::buffer_size(buffers);
    const auto before = gathered_.size();
    gathered_.resize(before + size);
    boost::asio::buffer_copy(boost::asio::buffer(&gathered_[before], size), buffers);
    countUnsent();
    if (!isDeparting_) isDeparting_ = environment_.closing();
    onWritten_.emplace([this, size, handler = std::forward<Handler>(handler)](Error = {}) mutable {
      handler(error_, error_ ? 0 : size);
    });
    advanceLater();
  }

  /// Runs the task among the handlers, one at a time.
  template <class Task>
  void post(Task&& task) {
    onTurn_.emplace([task = std::forward<Task>(task)](Error = {}) mutable { task(); });
    advanceLater();
  }

  /// Ends the connection after what was written before.
  template <class Handler>
  void shutDown(Handler&& handler) {
    onShutDown_.emplace(
        [handler = std::forward<Handler>(handler)](Error = {}) mutable { handler(Error()); });
    advanceLater();
  }

  /// Ends it now, and with it what is under way.
  void close();

 private:
  class Turn;

  void startRead();
  void onRead(Error error, std::size_t size, bool ahead);
  void completeRead(Error error, std::size_t size);
  void flush();
  void writeSome();
  void onWrite(Error error, std::size_t size);
  void advance();
  void advanceLater();
  void countUnsent();
  void fail(Error error);
  void abandon();

  const Environment& environment_;
  TcpSocket tcp_;
  std::optional<boost::asio::ssl::stream<TcpSocket&>> tls_;
  Error error_;  // from which on nothing is sent

  boost::beast::saved_handler onRead_;
  std::array<boost::asio::mutable_buffer, 2> target_;
  Error readError_;
  std::size_t readSize_ = 0;
  bool isReading_ = false;
  bool readsAhead_ = false;
  std::unique_ptr<char[]> ahead_;
  std::size_t aheadBegin_ = 0;
  std::size_t aheadEnd_ = 0;

  boost::beast::saved_handler onWritten_;
  std::string gathered_;
  std::string leaving_;                // is being written
  std::shared_ptr<void> isDeparting_;  // until the network was offered what has been gathered
  std::size_t left_ = 0;
  std::atomic<std::size_t> unsent_ = 0;
  std::uint64_t writes_ = 0;

  boost::beast::saved_handler onTurn_;
  boost::beast::saved_handler onShutDown_;
  bool advancesLater_ = false;
};

/// Runs what Beast posts to it among the handlers of a buffered socket: by way of the event loop,
/// each message that was read ahead would take a look at the network.
class Turns {
 public:
  explicit Turns(BufferedSocket& socket) : socket_(&socket) {}

  template <class Task>
  void execute(Task&& task) const {
    socket_->post(std::forward<Task>(task));
  }
  [[nodiscard]] Turns require(boost::asio::execution::blocking_t::never_t) const { return *this; }
  bool operator==(const Turns&) const noexcept = default;

 private:
  BufferedSocket* socket_;
};

/// A buffered socket as Beast wants it.
class Stream {
 public:
  using executor_type = Executor;

  explicit Stream(std::shared_ptr<BufferedSocket> socket) : socket_(std::move(socket)) {}

  executor_type get_executor() { return socket_->tcp().get_executor(); }

  template <class Buffers, class Handler>
  void async_read_some(const Buffers& buffers, Handler&& handler) {
    socket_->read(buffers, std::forward<Handler>(handler));
  }

  template <class Buffers, class Handler>
  void async_write_some(const Buffers& buffers, Handler&& handler) {
    socket_->write(buffers, std::forward<Handler>(handler));
  }

  // Beast waits for the peer's FIN without limit; the Close frames have said all there is to say.
  template <class Handler>
  friend void async_teardown(boost::beast::role_type, Stream& stream, Handler&& handler) {
    stream.socket_->shutDown(std::forward<Handler>(handler));
  }

  friend void beast_close_socket(Stream& stream) { stream.socket_->close(); }

 private:
  std::shared_ptr<BufferedSocket> socket_;
};

}  // namespace koriva::socketio
