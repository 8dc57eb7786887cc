#include <array>
#include <boost/json/value.hpp>
#include <charconv>
#include <cmath>

#include "extensions/JSONCoding.h"
#include "extensions/JSONPrinter.h"

namespace koriva::json {
namespace {

using detail::Kind;
using detail::Record;
using detail::Type;

constexpr int maxDepth = 64;
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

/// Whether a byte is a character that is written as it is.
constexpr auto isPlain = [] {
  std::array<bool, 256> plain{};
  for (std::size_t c = 0x20; c < 0x80; ++c) plain[c] = c != '"' && c != '\\';
  return plain;
}();

/// Whether eight bytes are characters that are written as they are.
bool arePlain(const char* bytes) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  const std::uint64_t word = detail::loadBytes(bytes, 8);
  // Marks the top bits of bytes below the limit; a borrow marks others only above one of these.
  const auto hasLess = [](std::uint64_t bytesOf, unsigned limit) {
    return (bytesOf - ones * limit) & ~bytesOf;
  };
  const auto special = word | hasLess(word, ' ') | hasLess(word ^ (ones * '"'), 1) |
                       hasLess(word ^ (ones * '\\'), 1);
  return (special & (ones * 0x80)) == 0;
}

/// How many bytes of a text can be written as they are.
std::size_t plainLength(std::string_view text) {
  std::size_t i = 0;
  while (i + 8 <= text.size() && arePlain(text.data() + i)) i += 8;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (isPlain[c]) {
      ++i;
      continue;
    }
    if (c < 0x80) break;
    const Sequence sequence = firstSequence(text.substr(i));
    if (!sequence.isValid) break;
    i += sequence.size;
  }
  return i;
}

void appendEscape(std::string& out, char c) {
  constexpr std::string_view named = "\"\\\b\f\n\r\t";
  constexpr std::string_view letters = "\"\\bfnrt";
  constexpr std::string_view hex = "0123456789abcdef";
  if (const auto i = named.find(c); i != std::string_view::npos) {
    out += '\\';
    out += letters[i];
  } else {
    out += "\\u00";
    out += hex[static_cast<unsigned char>(c) >> 4];
    out += hex[c & 0xF];
  }
}

bool appendText(std::string& out, std::string_view text, InvalidText invalidText) {
  out += '"';
  while (true) {
    const std::size_t plain = plainLength(text);
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    const Sequence sequence = firstSequence(text);
    if (sequence.isValid) {
      appendEscape(out, text.front());
    } else if (invalidText == InvalidText::replace) {
      out += replacement;
    } else {
      return false;
    }
    text.remove_prefix(sequence.size);
  }
  out += '"';
  return true;
}

bool appendLiteral(std::string& out, std::string_view literal) {
  out += literal;
  return true;
}

template <class Number>
bool appendNumber(std::string& out, Number number) {
  std::array<char, 32> digits;
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  return appendLiteral(out, {digits.data(), result.ptr});
}

bool appendReal(std::string& out, double value) {
  constexpr double pastIntegers = 9223372036854775808.0;  // 2^63
  if (!std::isfinite(value)) return false;
  const bool isInteger = std::trunc(value) == value && std::abs(value) < pastIntegers;
  return isInteger ? appendNumber(out, static_cast<std::int64_t>(value)) : appendNumber(out, value);
}

bool appendRecord(std::string& out, const Record& record, const void* value);

template <class Items, class Append>
bool appendList(std::string& out, std::string_view brackets, const Items& items,
                const Append& append) {
  out += brackets.front();
  bool isFirst = true;
  for (const auto& item : items) {
    if (!isFirst) out += ',';
    isFirst = false;
    if (!append(item)) return false;
  }
  out += brackets.back();
  return true;
}

bool appendMember(std::string& out, std::string_view key, std::string_view value) {
  appendText(out, key, InvalidText::replace);
  out += ':';
  return appendText(out, value, InvalidText::replace);
}

bool appendRecords(std::string& out, const Record& record, const void* list) {
  const auto [first, count] = record.elements(list);
  out += '[';
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) out += ',';
    if (!appendRecord(out, record, static_cast<const char*>(first) + i * record.size)) return false;
  }
  out += ']';
  return true;
}

bool appendPresent(std::string& out, const Type& type, const void* value) {
  switch (type.kind) {
    case Kind::text:
      return appendText(out, *static_cast<const std::string*>(value), InvalidText::replace);
    case Kind::signedInteger:
      return appendNumber(out, *static_cast<const std::int64_t*>(value));
    case Kind::unsignedInteger:
      return appendNumber(out, *static_cast<const std::uint64_t*>(value));
    case Kind::real:
      return appendReal(out, *static_cast<const double*>(value));
    case Kind::boolean:
      return appendLiteral(out, *static_cast<const bool*>(value) ? "true" : "false");
    case Kind::texts:
      return appendList(
          out, "[]", *static_cast<const std::vector<std::string>*>(value),
          [&](const auto& text) { return appendText(out, text, InvalidText::replace); });
    case Kind::textMap:
      return appendList(
          out, "{}", *static_cast<const std::map<std::string, std::string>*>(value),
          [&](const auto& member) { return appendMember(out, member.first, member.second); });
    case Kind::record:
      return appendRecord(out, *type.record, value);
    case Kind::records:
      return appendRecords(out, *type.record, value);
  }
  return false;
}

bool appendRecord(std::string& out, const Record& record, const void* value) {
  if (record.writeJson) return record.writeJson(value, out);
  out += '{';
  bool isFirst = true;
  for (std::size_t i = 0; i < record.fieldCount; ++i) {
    const detail::Field& field = record.fields[i];
    if (!field.isWritten) continue;
    // Only read, but found with the function that serves decoding too.
    const void* member = field.member(const_cast<void*>(value));
    if (field.type->peek) member = field.type->peek(member);
    if (!member) continue;
    if (!isFirst) out += ',';
    isFirst = false;
    appendText(out, field.key, InvalidText::replace);
    out += ':';
    if (!appendPresent(out, *field.type, member)) return false;
  }
  out += '}';
  return true;
}

bool appendValue(std::string& out, const boost::json::value& value, InvalidText invalidText,
                 int depth);

bool appendObject(std::string& out, const boost::json::object& object, InvalidText invalidText,
                  int depth) {
  if (depth == maxDepth) return false;
  return appendList(out, "{}", object, [&](const auto& member) {
    if (!appendText(out, member.key(), invalidText)) return false;
    out += ':';
    return appendValue(out, member.value(), invalidText, depth + 1);
  });
}

bool appendValue(std::string& out, const boost::json::value& value, InvalidText invalidText,
                 int depth) {
  switch (value.kind()) {
    case boost::json::kind::null:
      return appendLiteral(out, "null");
    case boost::json::kind::bool_:
      return appendLiteral(out, value.get_bool() ? "true" : "false");
    case boost::json::kind::int64:
      return appendNumber(out, value.get_int64());
    case boost::json::kind::uint64:
      return appendNumber(out, value.get_uint64());
    case boost::json::kind::double_:
      return appendReal(out, value.get_double());
    case boost::json::kind::string:
      return appendText(out, value.get_string(), invalidText);
    case boost::json::kind::array:
      if (depth == maxDepth) return false;
      return appendList(out, "[]", value.get_array(), [&](const auto& item) {
        return appendValue(out, item, invalidText, depth + 1);
      });
    case boost::json::kind::object:
      return appendObject(out, value.get_object(), invalidText, depth);
  }
  return false;
}

/// Takes back what was appended by a write that failed.
bool undoUnless(bool isWritten, std::string& out, std::size_t size) {
  if (!isWritten) out.resize(size);
  return isWritten;
}

}  // namespace

namespace detail {

bool append(std::string& out, const Type& type, const void* value) {
  const std::size_t size = out.size();
  if (type.peek) value = type.peek(value);
  if (!value) return appendLiteral(out, "null");
  return undoUnless(appendPresent(out, type, value), out, size);
}

}  // namespace detail

bool write(std::string& out, const boost::json::value& value, InvalidText invalidText) {
  const std::size_t size = out.size();
  return undoUnless(appendValue(out, value, invalidText, 0), out, size);
}

bool write(std::string& out, const boost::json::object& object, InvalidText invalidText) {
  const std::size_t size = out.size();
  return undoUnless(appendObject(out, object, invalidText, 0), out, size);
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const Sequence sequence = firstSequence(text);
    if (!sequence.isValid) return false;
    text.remove_prefix(sequence.size);
  }
  return true;
}

std::string validUtf8(std::string text) {
  if (isUtf8(text)) return text;
  std::string valid;
  for (std::string_view rest = text; !rest.empty();) {
    const Sequence sequence = firstSequence(rest);
    valid += sequence.isValid ? rest.substr(0, sequence.size) : replacement;
    rest.remove_prefix(sequence.size);
  }
  return valid;
}

}  // namespace koriva::json
