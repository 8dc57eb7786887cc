#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace koriva::socketio {

/// The items of an event or acknowledgement, as the JSON text in which they came.
class Items {
 public:
  Items() = default;

  /// Items whose text is the whole of `json`.
  explicit Items(std::string json) : frame_(std::move(json)), length_(frame_.size()) {}

  /// Items whose text is a slice of the frame that they came in.
  Items(std::string frame, std::size_t offset, std::size_t length)
      : frame_(std::move(frame)), offset_(offset), length_(length) {}

  /// JSON values separated by commas, as they stand between an array's brackets; empty for none.
  [[nodiscard]] std::string_view text() const {
    return std::string_view(frame_).substr(offset_, length_);
  }

  /// The bytes that are kept for them.
  [[nodiscard]] std::size_t footprint() const { return frame_.capacity(); }

  /// The first item refers to an attachment, which is not kept: no JSON can be made of it.
  bool firstHoldsBinary = false;

 private:
  std::string frame_;
  std::size_t offset_ = 0;
  std::size_t length_ = 0;
};

}  // namespace koriva::socketio
