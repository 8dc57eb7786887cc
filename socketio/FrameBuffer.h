#pragma once

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/buffers_prefix.hpp>
#include <boost/beast/core/buffers_suffix.hpp>
#include <boost/beast/websocket/detail/utf8_checker.hpp>
#include <string>
#include <utility>

namespace koriva::socketio {

/// Takes a message in as Beast wants it. Whoever takes it over checks that a text is UTF-8.
class FrameBuffer {
 public:
  /// A type of its own, by which Beast's check is told what is not its business.
  struct Room : std::array<boost::asio::mutable_buffer, 1> {};
  using mutable_buffers_type = Room;
  using const_buffers_type = boost::asio::const_buffer;

  /// The message, after which the buffer is empty.
  std::string take() {
    text_.resize(std::exchange(size_, 0));
    return std::exchange(text_, {});
  }

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::size_t max_size() const { return text_.max_size(); }
  [[nodiscard]] std::size_t capacity() const { return text_.capacity(); }
  [[nodiscard]] const_buffers_type data() const { return {text_.data(), size_}; }

  mutable_buffers_type prepare(std::size_t room) {
    if (text_.size() < size_ + room) text_.resize(size_ + room);
    return {{boost::asio::buffer(text_.data() + size_, room)}};
  }
  void commit(std::size_t size) { size_ = std::min(size_ + size, text_.size()); }
  void consume(std::size_t size) {
    text_.erase(0, std::min(size, size_));
    size_ -= std::min(size, size_);
  }

 private:
  std::string text_;
  std::size_t size_ = 0;
};

}  // namespace koriva::socketio

namespace boost::beast::websocket::detail {

// Beast looks at each character once there is one that is not ASCII, which takes longer than all
// the rest of its work. Should it come to ask in another way, it checks again, and nothing is lost.
template <>
inline bool utf8_checker::write(
    const buffers_prefix_view<buffers_suffix<koriva::socketio::FrameBuffer::Room>>&) {
  return true;
}
template <>
inline bool utf8_checker::write(const buffers_prefix_view<koriva::socketio::FrameBuffer::Room>&) {
  return true;
}

}  // namespace boost::beast::websocket::detail
