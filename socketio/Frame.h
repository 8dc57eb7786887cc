#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace koriva::socketio {

/// A text to send. It may have room in front, where what is only known later finds its place
/// without moving the rest.
class Frame {
 public:
  /// Enough for the head of an event.
  static constexpr std::size_t headRoom = 80;

  Frame() = default;
  /// The text begins at `begin`; what is before it is room.
  Frame(std::string text, std::size_t begin = 0) : text_(std::move(text)), begin_(begin) {}

  [[nodiscard]] std::string_view view() const { return std::string_view(text_).substr(begin_); }
  /// The bytes that are kept for it.
  [[nodiscard]] std::size_t footprint() const { return text_.capacity() + sizeof *this; }

  void prepend(std::string_view head) {
    if (head.size() > begin_) {
      text_.insert(begin_, head);
    } else {
      begin_ -= head.size();
      head.copy(text_.data() + begin_, head.size());
    }
  }

  void append(char c) { text_ += c; }

 private:
  std::string text_;
  std::size_t begin_ = 0;
};

}  // namespace koriva::socketio
