#include "socketio/Stream.h"

#include <boost/asio/post.hpp>
#include <utility>

namespace koriva::socketio {

namespace asio = boost::asio;

namespace {

constexpr std::size_t aheadSize = std::size_t{16} * 1024;
// With less than this at once, reading ahead saves nothing.
constexpr std::size_t crowd = 1536;
constexpr std::size_t gatherLimit = std::size_t{16} * 1024;
constexpr std::size_t keptCapacity = 4096;

}  // namespace

/// What calls the socket back. When it never will, as its executor is gone, the handlers are
/// destroyed, for they may hold the socket in turn.
class BufferedSocket::Turn {
 public:
  explicit Turn(std::shared_ptr<BufferedSocket> socket) : socket_(std::move(socket)) {}
  Turn(Turn&&) = default;
  Turn& operator=(Turn&&) = delete;
  ~Turn() {
    if (socket_) socket_->abandon();
  }

  std::shared_ptr<BufferedSocket> take() { return std::move(socket_); }

 private:
  std::shared_ptr<BufferedSocket> socket_;
};

void BufferedSocket::startRead() {
  if (error_ || aheadBegin_ < aheadEnd_) return advanceLater();
  const bool ahead = readsAhead_ && asio::buffer_size(target_) < aheadSize;
  auto into = target_;
  if (ahead) {
    if (!ahead_) ahead_ = std::make_unique_for_overwrite<char[]>(aheadSize);
    into = {asio::buffer(ahead_.get(), aheadSize)};
  }
  isReading_ = true;
  auto then = [turn = Turn(shared_from_this()), ahead](Error error, std::size_t size) mutable {
    turn.take()->onRead(error, size, ahead);
  };
  tls_ ? tls_->async_read_some(into, std::move(then)) : tcp_.async_read_some(into, std::move(then));
}

void BufferedSocket::onRead(Error error, std::size_t size, bool ahead) {
  isReading_ = false;
  if (ahead) {
    aheadBegin_ = 0;
    aheadEnd_ = size;
    readsAhead_ = size >= crowd;
  } else {
    readsAhead_ = size == asio::buffer_size(target_);
  }
  if (!ahead || error) completeRead(error, size);
  advance();
}

void BufferedSocket::completeRead(Error error, std::size_t size) {
  readError_ = error_ ? error_ : error;
  readSize_ = readError_ ? 0 : size;
  onRead_.invoke();
}

void BufferedSocket::flush() {
  isDeparting_.reset();
  if (!leaving_.empty()) return;
  if (!gathered_.empty()) {
    leaving_.swap(gathered_);
    return writeSome();
  }
  if (!onShutDown_.has_value()) return;
  Error ignored;
  tcp_.shutdown(TcpSocket::shutdown_both, ignored);
  onShutDown_.invoke();
}

void BufferedSocket::writeSome() {
  const auto rest = asio::buffer(leaving_) + left_;
  if (!tls_) {  // as there is mostly room, this saves a turn of the event loop
    Error error;
    if (!tcp_.non_blocking()) tcp_.non_blocking(true, error);
    const auto size = tcp_.write_some(rest, error);
    if (error != asio::error::would_block) return onWrite(error, size);
  }
  auto then = [turn = Turn(shared_from_this())](Error error, std::size_t size) mutable {
    turn.take()->onWrite(error, size);
  };
  tls_ ? tls_->async_write_some(rest, std::move(then))
       : tcp_.async_write_some(rest, std::move(then));
}

void BufferedSocket::onWrite(Error error, std::size_t size) {
  ++writes_;
  left_ += size;
  if (!error && !error_ && left_ < leaving_.size()) {
    countUnsent();
    return writeSome();
  }
  leaving_.clear();
  if (leaving_.capacity() > keptCapacity) leaving_.shrink_to_fit();
  left_ = 0;
  if (error) fail(error);
  countUnsent();
  if (onWritten_.has_value()) advanceLater();
  flush();
}

// A handler may run the loop, and so come back here, before it returns.
void BufferedSocket::advance() {
  while (true) {
    if (tcp_.get_executor().context().stopped()) {
      return advanceLater();
    } else if (onTurn_.has_value()) {
      onTurn_.invoke();
    } else if (onWritten_.has_value() && (error_ || gathered_.size() < gatherLimit)) {
      onWritten_.invoke();
    } else if (onRead_.has_value() && !isReading_ && (error_ || aheadBegin_ < aheadEnd_)) {
      const auto arrived = asio::buffer(ahead_.get() + aheadBegin_, aheadEnd_ - aheadBegin_);
      const auto size = asio::buffer_copy(target_, arrived);
      aheadBegin_ += size;
      if (aheadBegin_ == aheadEnd_) aheadBegin_ = aheadEnd_ = 0;
      if (aheadEnd_ == 0 && !readsAhead_) ahead_.reset();
      completeRead({}, size);
    } else {
      break;
    }
  }
  if (gathered_.size() >= gatherLimit) flush();
}

void BufferedSocket::advanceLater() {
  if (advancesLater_) return;
  asio::post(tcp_.get_executor(), [turn = Turn(shared_from_this())]() mutable {
    const auto self = turn.take();
    self->advancesLater_ = false;
    self->advance();
    self->flush();
  });
  advancesLater_ = true;
}

void BufferedSocket::countUnsent() {
  unsent_.store(gathered_.size() + leaving_.size() - left_, std::memory_order_relaxed);
}

void BufferedSocket::fail(Error error) {
  if (!error_) error_ = error;
  gathered_.clear();
  tcp_.cancel(error);  // whoever reads is to know
}

void BufferedSocket::close() {
  fail(asio::error::operation_aborted);
  countUnsent();
  Error ignored;
  tcp_.close(ignored);
  advanceLater();
}

void BufferedSocket::abandon() {
  onRead_.reset();
  onWritten_.reset();
  onTurn_.reset();
  onShutDown_.reset();
}

}  // namespace koriva::socketio
