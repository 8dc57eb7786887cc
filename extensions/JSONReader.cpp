#include "extensions/JSONReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace koriva::json {
namespace {

bool timesTen(std::uint64_t& value, std::int64_t power) {
  for (; power > 0; --power) {
    if (value > std::numeric_limits<std::uint64_t>::max() / 10) return false;
    value *= 10;
  }
  return true;
}

/// A number's digits, and the power of ten that they are multiplied by.
struct Decimal {
  std::string_view digits;  ///< with the point
  std::int64_t exponent = 0;
};

Decimal decimalOf(std::string_view number) {
  constexpr std::int64_t largest = std::int64_t{1} << 40;
  Decimal decimal;
  if (number.front() == '-') number.remove_prefix(1);
  const auto e = number.find_first_of("eE");
  decimal.digits = number.substr(0, e);
  if (e != std::string_view::npos) {
    std::string_view exponent = number.substr(e + 1);
    if (exponent.front() == '+') exponent.remove_prefix(1);
    const auto result =
        std::from_chars(exponent.data(), exponent.data() + exponent.size(), decimal.exponent);
    if (result.ec != std::errc{}) decimal.exponent = exponent.front() == '-' ? -largest : largest;
    decimal.exponent = std::clamp(decimal.exponent, -largest, largest);  // no sum overflows
  }
  if (const auto point = decimal.digits.find('.'); point != std::string_view::npos) {
    decimal.exponent -= static_cast<std::int64_t>(decimal.digits.size() - point - 1);
  }
  return decimal;
}

unsigned escapedUnit(const char* at, const char* end) {
  unsigned unit = 0;
  if (end - at < 6 || at[0] != '\\' || at[1] != 'u') return 0x1'0000;
  const auto result = std::from_chars(at + 2, at + 6, unit, 16);
  return result.ec == std::errc{} && result.ptr == at + 6 ? unit : 0x1'0000;
}

std::size_t putUtf8(unsigned character, char* out) {
  const auto put = [&](std::size_t i, unsigned bits) { out[i] = static_cast<char>(bits); };
  if (character < 0x80) {
    put(0, character);
    return 1;
  }
  if (character < 0x800) {
    put(0, 0xC0 | character >> 6);
    put(1, 0x80 | (character & 0x3F));
    return 2;
  }
  if (character < 0x1'0000) {
    put(0, 0xE0 | character >> 12);
    put(1, 0x80 | (character >> 6 & 0x3F));
    put(2, 0x80 | (character & 0x3F));
    return 3;
  }
  put(0, 0xF0 | character >> 18);
  put(1, 0x80 | (character >> 12 & 0x3F));
  put(2, 0x80 | (character >> 6 & 0x3F));
  put(3, 0x80 | (character & 0x3F));
  return 4;
}

bool isLeading(unsigned unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isTrailing(unsigned unit) { return unit >= 0xDC00 && unit < 0xE000; }

}  // namespace

std::optional<Integer> Number::integer() const {
  if (isShort) return Integer{isNegative(), digits};
  const Decimal decimal = decimalOf(text);
  std::uint64_t magnitude = 0;
  std::int64_t zeros = 0;
  for (const char c : decimal.digits) {
    if (c == '.') continue;
    if (c == '0') {
      ++zeros;
      continue;
    }
    if (magnitude != 0 && !timesTen(magnitude, zeros)) return std::nullopt;
    zeros = 0;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (!timesTen(magnitude, 1) || magnitude > std::numeric_limits<std::uint64_t>::max() - digit) {
      return std::nullopt;
    }
    magnitude += digit;
  }
  if (magnitude == 0) return Integer{isNegative(), 0};
  const std::int64_t power = decimal.exponent + zeros;
  if (power < 0 || !timesTen(magnitude, power)) return std::nullopt;
  return Integer{isNegative(), magnitude};
}

double Number::real() const {
  if (isShort) {
    const auto value = static_cast<double>(digits);
    return isNegative() ? -value : value;
  }
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc{}) return value;
  // Out of range: larger than the largest double, or smaller than the smallest.
  const auto [number, exponent] = decimalOf(text);
  const auto first = number.find_first_not_of("0.");
  const auto power = static_cast<std::int64_t>(number.size() - first) + exponent;
  const double magnitude =
      first != std::string_view::npos && power > 0 ? std::numeric_limits<double>::infinity() : 0;
  return isNegative() ? -magnitude : magnitude;
}

const char* Reader::number(const char* at, Number& number) {
  const char* const begin = at;
  if (*at == '-') ++at;
  const char* const first = at;
  std::uint64_t digits = 0;
  if (peek(at) == '0') {
    ++at;
  } else {
    for (; isDigit(peek(at)); ++at) digits = digits * 10 + static_cast<std::uint64_t>(*at - '0');
    if (at == first) return fail();
  }
  number.isShort = at - first <= std::numeric_limits<std::uint64_t>::digits10;
  number.digits = digits;
  const auto skipDigits = [&] {
    if (!isDigit(peek(at))) return false;
    while (isDigit(peek(at))) ++at;
    return true;
  };
  if (peek(at) == '.') {
    number.isShort = false;
    ++at;
    if (!skipDigits()) return fail();
  }
  if (peek(at) == 'e' || peek(at) == 'E') {
    number.isShort = false;
    ++at;
    if (peek(at) == '+' || peek(at) == '-') ++at;
    if (!skipDigits()) return fail();
  }
  number.text = {begin, at};
  return at;
}

const char* Reader::escape(const char* at, char* buffer, std::size_t& used) {
  constexpr std::string_view letters = "\"\\/bfnrt";
  constexpr std::string_view characters = "\"\\/\b\f\n\r\t";
  const auto letter = letters.find(peek(at + 1));
  if (at + 1 != end_ && letter != std::string_view::npos) {
    buffer[used++] = characters[letter];
    return at + 2;
  }
  const unsigned unit = escapedUnit(at, end_);
  if (unit > 0xFFFF) return fail();
  const unsigned next = isLeading(unit) ? escapedUnit(at + 6, end_) : 0;
  const bool isPair = isTrailing(next);
  // Peers cut texts in the middle of an emoji; that shall not cost the user the message.
  const bool isLone = !isPair && (isLeading(unit) || isTrailing(unit));
  const unsigned pair = 0x1'0000 + ((unit & 0x3FF) << 10 | (next & 0x3FF));
  used += putUtf8(isPair ? pair : isLone ? 0xFFFD : unit, buffer + used);
  return at + (isPair ? 12 : 6);
}

const char* Reader::escapedText(const char* at, std::string* out) {
  constexpr std::size_t longestCharacter = 4;
  std::array<char, 256> buffer;
  std::size_t used = 0;
  if (out) out->clear();
  const auto flush = [&] {
    if (out) out->append(buffer.data(), used);
    used = 0;
  };
  while (true) {
    bool isAscii = true;
    const char* const stop = endOfPlain(at, end_, isAscii);
    const std::string_view plain(at, stop);
    if (!isAscii && !isUtf8(plain)) return fail();
    if (plain.size() > buffer.size() - used) {
      flush();
      if (out) out->append(plain);
    } else {
      plain.copy(buffer.data() + used, plain.size());
      used += plain.size();
    }
    at = stop;
    if (peek(at) == '"') break;
    if (peek(at) != '\\') return fail();
    while (peek(at) == '\\') {
      if (used + longestCharacter > buffer.size()) flush();
      at = escape(at, buffer.data(), used);
      if (!at) return nullptr;
    }
  }
  flush();
  return at + 1;
}

const char* Reader::skip(const char* at) {
  switch (peek(at)) {
    case '"':
      return skipText(at + 1);
    case '{':
      return members(at + 1, [this](const char* key) {
        const char* const value = colon(skipText(key));
        return value ? skip(value) : nullptr;
      });
    case '[':
      return elements(at + 1, [this](const char* element) { return skip(element); });
    case 't':
      return literal(at, "true");
    case 'f':
      return literal(at, "false");
    case 'n':
      return literal(at, "null");
    default:
      if (at == end_) return fail();
      Number number;
      return this->number(at, number);
  }
}

}  // namespace koriva::json
