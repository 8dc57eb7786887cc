#pragma once

#include <cstddef>
#include <cstdint>

namespace koriva::simulation {

/// The same numbers on every machine, for each seed and stream. (SplitMix64)
class Random {
 public:
  Random(std::uint64_t seed, std::uint64_t stream) : state_(seed) { state_ = next() + stream; }

  std::uint64_t next() {
    auto z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
    z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
    return z ^ (z >> 31);
  }

  /// From 0 to one less than the count, of which there is one at least.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }

  bool chance(std::size_t percent) { return below(100) < percent; }

 private:
  std::uint64_t state_;
};

}  // namespace koriva::simulation
