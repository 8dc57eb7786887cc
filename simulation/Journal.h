#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace koriva::simulation {

inline std::string_view text(std::string_view part) { return part; }
inline std::string text(std::integral auto number) { return std::to_string(number); }

/// The parts as one text.
std::string texts(const auto&... parts) {
  std::string all;
  (all.append(text(parts)), ...);
  return all;
}

/// What lives say of themselves, in memory that their process shares with the one that started it:
/// it can be read however they end.
class Journal {
 public:
  static Journal& make();
  void unmake();

  /// A life begins.
  void begin(std::uint64_t seed);
  /// A step of it begins.
  void beginStep(std::size_t step) { step_ = step; }
  void write(std::string_view line);
  /// The life is over well.
  void end();
  /// An invariant does not hold: the process ends.
  [[noreturn]] void fail(std::string_view invariant, std::string_view detail);
  /// The process has ended otherwise.
  void setFailure(std::string_view invariant, std::string_view detail);

  [[nodiscard]] std::uint64_t seed() const { return seed_; }
  [[nodiscard]] std::size_t step() const { return step_; }
  [[nodiscard]] std::size_t lives() const { return lives_; }
  [[nodiscard]] std::uint64_t lines() const { return lines_; }
  /// Of every line of the life.
  [[nodiscard]] std::uint64_t digest() const { return digest_; }
  /// Of all lives, in whatever order.
  [[nodiscard]] std::uint64_t total() const { return total_; }
  [[nodiscard]] std::string invariant() const { return invariant_.data(); }
  [[nodiscard]] std::string detail() const { return detail_.data(); }
  /// The last life's lines, or what there is room for of them.
  [[nodiscard]] std::string lastLines() const;

 private:
  std::uint64_t seed_ = 0;
  std::size_t step_ = 0;
  std::size_t lives_ = 0;
  std::uint64_t lines_ = 0;
  std::uint64_t digest_ = 0;
  std::uint64_t total_ = 0;
  std::array<char, 200> invariant_{};
  std::array<char, 1000> detail_{};
  std::size_t written_ = 0;
  std::array<char, std::size_t{1} << 20> ring_;
};

}  // namespace koriva::simulation
