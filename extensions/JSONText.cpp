#include "extensions/JSONText.h"

#include <algorithm>

namespace koriva {

std::string replaceAll(std::string text, std::string_view find, std::string_view replacement) {
  std::size_t found = text.find(find);
  if (found == std::string::npos) return text;
  std::string replaced;
  std::size_t from = 0;
  for (; found != std::string::npos; found = text.find(find, from)) {
    replaced.append(text, from, found - from).append(replacement);
    from = found + find.size();
  }
  return replaced.append(text, from);
}

}  // namespace koriva

namespace koriva::json {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

struct Sequence {
  std::size_t size;
  bool isValid;
};

/// The UTF-8 sequence that a text begins with, or as much of it as is well formed.
Sequence firstSequence(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {1, true};
  const std::size_t size = lead < 0xC2   ? 0
                           : lead < 0xE0 ? 2
                           : lead < 0xF0 ? 3
                           : lead < 0xF5 ? 4
                                         : 0;
  if (size == 0) return {1, false};
  const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (std::size_t i = 1; i < size; ++i) {
    if (i >= text.size()) return {i, false};
    const unsigned next = byte(i);
    if (next < (i == 1 ? low : 0x80) || next > (i == 1 ? high : 0xBF)) return {i, false};
  }
  return {size, true};
}

/// Where the first byte stands that is not ASCII, or the end.
const char* endOfAscii(const char* at, const char* end) {
  constexpr auto blockSize = static_cast<std::ptrdiff_t>(Block::size);
  for (; end - at >= blockSize; at += Block::size) {
    const std::uint64_t high = Block(at).high;
    if (high != 0) return at + std::countr_zero(high) / Block::bitsPerByte;
  }
  return std::find_if(at, end, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

/// How many bytes at the front are UTF-8.
std::size_t validLength(std::string_view text) {
  const char* at = text.data();
  const char* const end = at + text.size();
  const auto byte = [&](std::ptrdiff_t i) { return static_cast<unsigned char>(at[i]); };
  while ((at = endOfAscii(at, end)) != end) {
    // Most are of two bytes.
    while (end - at >= 2 && byte(0) >= 0xC2 && byte(0) < 0xE0 && (byte(1) & 0xC0) == 0x80) at += 2;
    if (at == end || byte(0) < 0x80) continue;
    const Sequence sequence = firstSequence({at, end});
    if (!sequence.isValid) break;
    at += sequence.size;
  }
  return static_cast<std::size_t>(at - text.data());
}

void appendEscape(std::string& out, char c) {
  constexpr std::string_view named = "\"\\\b\f\n\r\t";
  constexpr std::string_view letters = "\"\\bfnrt";
  constexpr std::string_view hex = "0123456789abcdef";
  out += '\\';
  if (const auto i = named.find(c); i != std::string_view::npos) {
    out += letters[i];
  } else {
    out += "u00";
    out += hex[static_cast<unsigned char>(c) >> 4];
    out += hex[c & 0xF];
  }
}

/// Appends the text with U+FFFD for what is wrong.
void appendValid(std::string& out, std::string_view text) {
  while (true) {
    const std::size_t valid = validLength(text);
    out += text.substr(0, valid);
    text.remove_prefix(valid);
    if (text.empty()) return;
    out += replacement;
    text.remove_prefix(firstSequence(text).size);
  }
}

}  // namespace

bool isUtf8(std::string_view text) { return validLength(text) == text.size(); }

std::string validUtf8(std::string text) {
  if (isUtf8(text)) return text;
  std::string valid;
  appendValid(valid, text);
  return valid;
}

bool appendText(std::string& out, std::string_view text, InvalidText invalidText) {
  out += '"';
  const char* at = text.data();
  const char* const end = at + text.size();
  while (true) {
    bool isAscii = true;
    const char* const stop = endOfPlain(at, end, isAscii);
    const std::string_view plain(at, stop);
    if (isAscii || isUtf8(plain)) {
      out += plain;
    } else if (invalidText == InvalidText::replace) {
      appendValid(out, plain);
    } else {
      return false;
    }
    if (stop == end) break;
    appendEscape(out, *stop);
    at = stop + 1;
  }
  out += '"';
  return true;
}

std::string escaped(std::string_view text) {
  std::string quoted;
  appendText(quoted, text);
  return quoted.substr(1, quoted.size() - 2);
}

}  // namespace koriva::json
