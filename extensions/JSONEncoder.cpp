#include "extensions/JSONEncoder.h"

#include <array>
#include <boost/json/value.hpp>
#include <charconv>
#include <cmath>
#include <utility>

#include "extensions/JSONFields.h"

namespace koriva::json {
namespace {

using detail::Table;

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

bool appendRecord(std::string& out, const Table& table, const void* value);

template <class Items, class Append>
bool appendList(std::string& out, std::string_view brackets, const Items& items,
                const Append& append, std::string_view comma = ",") {
  out += brackets.front();
  bool isFirst = true;
  for (const auto& item : items) {
    if (!std::exchange(isFirst, false)) out += comma;
    if (!append(item)) return false;
  }
  out += brackets.back();
  return true;
}

bool appendMember(std::string& out, std::string_view key, std::string_view value) {
  appendText(out, key);
  out += ':';
  return appendText(out, value);
}

bool appendRecords(std::string& out, const Type& type, const void* list) {
  const Table& table = *type.coding->table;
  const auto [first, count] = type.list->elements(list);
  out += '[';
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) out += ',';
    if (!appendRecord(out, table, static_cast<const char*>(first) + i * table.size)) return false;
  }
  out += ']';
  return true;
}

bool appendPresent(std::string& out, const Type& type, const void* value) {
  switch (type.kind) {
    case Kind::text:
      return appendText(out, *static_cast<const std::string*>(value));
    case Kind::signedInteger:
      return appendNumber(out, *static_cast<const std::int64_t*>(value));
    case Kind::unsignedInteger:
      return appendNumber(out, *static_cast<const std::uint64_t*>(value));
    case Kind::real:
      return appendReal(out, *static_cast<const double*>(value));
    case Kind::boolean:
      return appendLiteral(out, *static_cast<const bool*>(value) ? "true" : "false");
    case Kind::texts:
      return appendList(out, "[]", *static_cast<const std::vector<std::string>*>(value),
                        [&](const auto& text) { return appendText(out, text); });
    case Kind::textMap:
      return appendList(
          out, "{}", *static_cast<const std::map<std::string, std::string>*>(value),
          [&](const auto& member) { return appendMember(out, member.first, member.second); });
    case Kind::record:
      return appendRecord(out, *type.coding->table, value);
    case Kind::records:
      return appendRecords(out, type, value);
  }
  return false;
}

bool appendRecord(std::string& out, const Table& table, const void* value) {
  if (table.write) return table.write(value, out);
  out += '{';
  bool isFirst = true;
  for (std::size_t i = 0; i < table.memberCount; ++i) {
    const Member& field = table.members[i];
    if (!field.isWritten) continue;
    // Only read, but found with the function that serves decoding too.
    const void* member = field.in(const_cast<void*>(value));
    if (field.type->peek) member = field.type->peek(member);
    if (!member) continue;
    out += field.commaToColon().substr(std::exchange(isFirst, false) ? 1 : 0);
    if (!appendPresent(out, *field.type, member)) return false;
  }
  out += '}';
  return true;
}

/// How dynamic values are written.
struct Style {
  InvalidText invalidText = InvalidText::refuse;
  std::string_view braces = "{}";
  std::string_view colon = ":";
  std::string_view comma = ",";
};

bool appendDynamic(std::string& out, const boost::json::value& value, const Style& style,
                   std::size_t depth);

bool appendObject(std::string& out, const boost::json::object& object, const Style& style,
                  std::size_t depth = 0) {
  const auto appendMember = [&](const auto& member) {
    if (!appendText(out, member.key(), style.invalidText)) return false;
    out += style.colon;
    return appendDynamic(out, member.value(), style, depth + 1);
  };
  return depth < maxDepth && appendList(out, style.braces, object, appendMember, style.comma);
}

bool appendArray(std::string& out, const boost::json::array& array, const Style& style,
                 std::size_t depth) {
  const auto appendElement = [&](const auto& element) {
    return appendDynamic(out, element, style, depth + 1);
  };
  return depth < maxDepth && appendList(out, "[]", array, appendElement, style.comma);
}

bool appendDynamic(std::string& out, const boost::json::value& value, const Style& style,
                   std::size_t depth = 0) {
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
      return appendText(out, value.get_string(), style.invalidText);
    case boost::json::kind::array:
      return appendArray(out, value.get_array(), style, depth);
    case boost::json::kind::object:
      return appendObject(out, value.get_object(), style, depth);
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

bool append(std::string& out, const Coding& coding, const void* record) {
  const std::size_t size = out.size();
  return undoUnless(appendRecord(out, *coding.table, record), out, size);
}

}  // namespace detail

bool write(std::string& out, const boost::json::value& value, InvalidText invalidText) {
  const std::size_t size = out.size();
  return undoUnless(appendDynamic(out, value, {invalidText}), out, size);
}

bool write(std::string& out, const boost::json::object& object, InvalidText invalidText) {
  const std::size_t size = out.size();
  return undoUnless(appendObject(out, object, {invalidText}), out, size);
}

std::string printedForm(const boost::json::value& value) {
  std::string printed;
  appendDynamic(printed, value, {InvalidText::replace, "[]", ": ", ", "});
  return printed;
}

}  // namespace koriva::json
