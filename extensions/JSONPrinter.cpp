#include "extensions/JSONPrinter.h"

#include <boost/json/value.hpp>

#include "extensions/JSONCoding.h"

namespace koriva::json {
namespace {

using Value = boost::json::value;

void print(std::string& out, const Value& value) {
  const auto printItems = [&out](const auto& items, const auto& printItem) {
    out += '[';
    bool isFirst = true;
    for (const auto& item : items) {
      if (!isFirst) out += ", ";
      isFirst = false;
      printItem(item);
    }
    out += ']';
  };
  if (const auto* object = value.if_object()) {
    printItems(*object, [&out](const auto& member) {
      print(out, Value(member.key()));
      out += ": ";
      print(out, member.value());
    });
  } else if (const auto* array = value.if_array()) {
    printItems(*array, [&out](const Value& item) { print(out, item); });
  } else if (!write(out, value, InvalidText::replace)) {
    out += "null";
  }
}

constexpr std::size_t maxIndented = std::size_t{64} << 10;

std::size_t endOfText(std::string_view json, std::size_t begin) {
  std::size_t at = begin + 1;
  while (json[at] != '"') at += json[at] == '\\' ? 2 : 1;
  return at + 1;
}

/// JSON with other white space, indented or none; nothing when it would be longer than the limit.
std::optional<std::string> laidOut(std::string_view json, bool isIndented, std::size_t limit) {
  std::string out;
  if (!isIndented) out.reserve(json.size());
  std::size_t depth = 0;
  char before = ' ';
  for (std::size_t i = 0, end = 0; i < json.size(); i = end) {
    const char c = json[i];
    end = c == '"' ? endOfText(json, i) : i + 1;
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    const bool isFirst = before == '[' || before == '{';
    const bool closes = c == ']' || c == '}';
    if (closes) --depth;
    if (isIndented && (before == ',' || isFirst != closes)) out.append("\n").append(2 * depth, ' ');
    if (out.size() + (end - i) > limit) return std::nullopt;
    out.append(json, i, end - i);
    if (isIndented && c == ':') out += ' ';
    if (c == '[' || c == '{') ++depth;
    before = c;
  }
  return out;
}

}  // namespace

std::optional<std::string> prettyPrinted(std::string_view items) {
  auto text = firstText(items);
  if (!text) return std::nullopt;
  const auto repaired = withoutLoneSurrogates(*text);
  if (repaired) text = *repaired;
  if (auto indented = laidOut(*text, true, maxIndented)) return indented;
  return laidOut(*text, false, text->size());
}

std::string printedForm(const boost::json::value& value) {
  std::string printed;
  print(printed, value);
  return printed;
}

}  // namespace koriva::json
