#include "fuzz/Fuzz.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

/// Puts a part of the input there many times, which bytewise mutation hardly ever does.
std::size_t repeatPart(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                       std::minstd_rand& random) {
  constexpr std::size_t longestPart = 64;
  const auto between = [&random](std::size_t least, std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(least, most)(random);
  };
  const std::size_t begin = between(0, size - 1);
  const std::size_t length = between(1, std::min(size - begin, longestPart));
  const std::size_t copies = std::min(between(1, 199), (maxSize - size) / length);
  std::uint8_t* const part = data + begin;
  std::memmove(part + (copies + 1) * length, part + length, size - begin - length);
  for (std::size_t i = 1; i <= copies; ++i) std::memcpy(part + i * length, part, length);
  return size + copies * length;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
  std::minstd_rand random(seed);
  const bool isToRepeat = size != 0 && size < maxSize && random() % 16 == 0;
  return isToRepeat ? repeatPart(data, size, maxSize, random)
                    : LLVMFuzzerMutate(data, size, maxSize);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  koriva::fuzz::run({reinterpret_cast<const char*>(data), size});
  return 0;
}
