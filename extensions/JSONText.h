#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

/// \file Texts as JSON has them; not installed.

namespace koriva {

/// The text with every occurrence of `find`, from the left, replaced. In linear time.
std::string replaceAll(std::string text, std::string_view find, std::string_view replacement);

}  // namespace koriva

namespace koriva::json {

/// How deep values may nest, and documents within the texts of a document.
inline constexpr std::size_t maxDepth = 64;

bool isUtf8(std::string_view text);

/// The text with U+FFFD in place of bytes that are not UTF-8.
std::string validUtf8(std::string text);

/// What to do with texts that are not UTF-8.
enum class InvalidText {
  refuse,   ///< write nothing
  replace,  ///< write U+FFFD for what is wrong
};

/// Appends a text in quotation marks. False, with some of it appended, when it is refused.
bool appendText(std::string& out, std::string_view text,
                InvalidText invalidText = InvalidText::replace);

/// What stands between the quotation marks of a text, with U+FFFD for what is wrong.
std::string escaped(std::string_view text);

constexpr std::uint64_t loadBytes(const char* bytes, std::size_t count) {
  std::uint64_t value = 0;
  if (std::is_constant_evaluated() || std::endian::native != std::endian::little) {
    for (std::size_t i = 0; i < count; ++i) {
      value |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
  } else {
    std::memcpy(&value, bytes, count);
  }
  return value;
}

/// Some bytes of a text, looked at together. A mask has the lowest of its bits first.
class Block {
 public:
#if defined(__SSE2__)
  static constexpr std::size_t size = 16;
  static constexpr int bitsPerByte = 1;

  explicit Block(const char* bytes) {
    const auto all = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    const auto isControl = _mm_cmpeq_epi8(_mm_min_epu8(all, _mm_set1_epi8(0x1F)), all);
    const auto isQuote = _mm_cmpeq_epi8(all, _mm_set1_epi8('"'));
    const auto isBackslash = _mm_cmpeq_epi8(all, _mm_set1_epi8('\\'));
    const auto isSpecial = _mm_or_si128(_mm_or_si128(isQuote, isBackslash), isControl);
    special = static_cast<std::uint32_t>(_mm_movemask_epi8(isSpecial));
    high = static_cast<std::uint32_t>(_mm_movemask_epi8(all));
  }
#elif defined(__aarch64__)
  static constexpr std::size_t size = 16;
  static constexpr int bitsPerByte = 4;

  explicit Block(const char* bytes) {
    const uint8x16_t all = vld1q_u8(reinterpret_cast<const std::uint8_t*>(bytes));
    const uint8x16_t isControl = vcltq_u8(all, vdupq_n_u8(0x20));
    const uint8x16_t isQuote = vceqq_u8(all, vdupq_n_u8('"'));
    const uint8x16_t isBackslash = vceqq_u8(all, vdupq_n_u8('\\'));
    special = mask(vorrq_u8(vorrq_u8(isQuote, isBackslash), isControl));
    high = mask(vcgeq_u8(all, vdupq_n_u8(0x80)));
  }
#else
  static constexpr std::size_t size = 8;
  static constexpr int bitsPerByte = 8;

  explicit Block(const char* bytes) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    const std::uint64_t all = loadBytes(bytes, 8);
    // Marks the top bits of bytes below the limit; a borrow marks others only above one of these.
    const auto hasLess = [](std::uint64_t word, unsigned limit) {
      return (word - ones * limit) & ~word;
    };
    special =
        (hasLess(all, ' ') | hasLess(all ^ (ones * '"'), 1) | hasLess(all ^ (ones * '\\'), 1)) &
        (ones * 0x80);
    high = all & (ones * 0x80);
  }
#endif

  std::uint64_t special;  ///< quotation marks, backslashes and control characters
  std::uint64_t high;     ///< what is not ASCII

#if !defined(__SSE2__) && defined(__aarch64__)
 private:
  static std::uint64_t mask(uint8x16_t bytes) {
    return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(bytes), 4)), 0);
  }
#endif
};

/// Where the first quotation mark, backslash or control character stands, or the end. `isAscii`
/// becomes false when there is something else than ASCII before it.
inline const char* endOfPlain(const char* at, const char* end, bool& isAscii) {
  constexpr auto blockSize = static_cast<std::ptrdiff_t>(Block::size);
  for (; end - at >= blockSize; at += Block::size) {
    const Block block(at);
    if (block.special != 0) {
      const int bit = std::countr_zero(block.special);
      if ((block.high & ((std::uint64_t{1} << bit) - 1)) != 0) isAscii = false;
      return at + bit / Block::bitsPerByte;
    }
    if (block.high != 0) isAscii = false;
  }
  for (; at != end; ++at) {
    const auto byte = static_cast<unsigned char>(*at);
    if (byte < ' ' || byte == '"' || byte == '\\') break;
    if (byte >= 0x80) isAscii = false;
  }
  return at;
}

}  // namespace koriva::json
