// The string rewriters, the printers and dynamic values.

#include <algorithm>
#include <boost/json/value.hpp>
#include <cmath>
#include <cstdint>

#include "extensions/JSONEncoder.h"
#include "extensions/JSONItems.h"
#include "extensions/StringRewriters.h"
#include "fuzz/Judge.h"
#include "fuzz/Referee.h"

using koriva::fuzz::Document;
using koriva::fuzz::require;
using koriva::fuzz::Value;
namespace json = koriva::json;

namespace {

bool isUtf8(std::string_view text) {
  std::string quoted(text);
  const auto isSpecial = [](char c) { return (c >= 0 && c < ' ') || c == '"' || c == '\\'; };
  std::ranges::replace_if(quoted, isSpecial, '.');
  return koriva::fuzz::parse("\"" + quoted + "\"").value.has_value();
}

void checkRewriters(std::string_view text) {
  const bool isText = isUtf8(text);
  require(json::isUtf8(text) == isText, "text is told from bytes");
  require(koriva::toJsonString(text).has_value() == isText, "bytes become text if they are text");
  const std::string valid = json::validUtf8(std::string(text));
  require(isUtf8(valid), "repaired text is text");
  require(!isText || valid == text, "text needs no repair");

  for (const auto rewrite :
       {koriva::escapedString, koriva::unescapeString, koriva::replaceSpecialCharacters}) {
    require(json::isUtf8(rewrite(valid)), "rewritten text is text");
  }
  const std::string escaped = koriva::replaceSpecialCharacters(valid);
  require(escaped.find_first_of("\r\n\t") == std::string::npos, "no line breaks are left");
  const auto read = json::parseValue("\"" + escaped + "\"");
  require(!read || read->as_string() == valid, "an escaped text reads the same as JSON");

  std::string quoted;
  json::appendText(quoted, text);
  const auto unquoted = koriva::fuzz::parse(quoted).value;
  require(unquoted && unquoted->text == valid, "a quoted text reads the same as JSON");
}

bool isFinite(const Value& value) {
  if (value.kind == boost::json::kind::double_) return std::isfinite(koriva::fuzz::realOf(value));
  const auto isMemberFinite = [](const auto& member) { return isFinite(member.second); };
  return std::ranges::all_of(value.elements, isFinite) &&
         std::ranges::all_of(value.members, isMemberFinite);
}

bool isSame(const boost::json::value& read, const Value& wanted) {
  if (read.kind() != wanted.kind) return false;
  switch (wanted.kind) {
    case boost::json::kind::null:
      return true;
    case boost::json::kind::bool_:
      return read.get_bool() == (wanted.text == "true");
    case boost::json::kind::int64:
      return read.get_int64() == std::strtoll(wanted.text.c_str(), nullptr, 10);
    case boost::json::kind::uint64:
      return read.get_uint64() == std::strtoull(wanted.text.c_str(), nullptr, 10);
    case boost::json::kind::double_: {
      const double real = koriva::fuzz::realOf(wanted);
      return read.get_double() == real && std::signbit(read.get_double()) == std::signbit(real);
    }
    case boost::json::kind::string:
      return read.get_string() == wanted.text;
    case boost::json::kind::array:
      return std::ranges::equal(read.get_array(), wanted.elements, isSame);
    case boost::json::kind::object:
      // Each key that is wanted has its value, and each that is there was wanted.
      return std::ranges::all_of(wanted.members,
                                 [&](const auto& member) {
                                   const auto* there = read.get_object().if_contains(member.first);
                                   return there && isSame(*there, *memberOf(wanted, member.first));
                                 }) &&
             std::ranges::all_of(read.get_object(), [&](const auto& member) {
               return memberOf(wanted, member.key()) != nullptr;
             });
  }
  return false;
}

std::string written(const boost::json::value& value) {
  std::string text;
  require(json::write(text, value), "what was read can be written");
  return text;
}

void checkValue(std::string_view text) {
  const Document document = koriva::fuzz::parse(text);
  const auto value =
      koriva::fuzz::readInMemory(text.size(), [text] { return json::parseValue(text); });
  if (document.isKnown) {
    const bool isReadable = document.value && isFinite(*document.value);
    require(value.has_value() == isReadable, "what can be read is read, and nothing else");
    require(!value || isSame(*value, *document.value), "a value is what JSON says");
  }
  if (!value) return;
  const std::string compact = written(*value);
  const auto again = json::parseValue(compact);
  require(again && written(*again) == compact, "a value that was written reads the same");
  require(json::isUtf8(json::printedForm(*value)), "the printed form is text");
  if (const auto* object = value->if_object()) {
    require(koriva::toJsonString(*object) == compact, "a dictionary is written as a value is");
  }
}

void checkItems(std::string_view items) {
  const Document list = koriva::fuzz::parseItems(items);
  if (!list.isKnown) return;
  require(json::areItems(items) == list.value.has_value(), "items are told from what is none");
  const auto printed = json::prettyPrinted(items);
  require(printed.has_value() == list.value.has_value(), "what is JSON can be indented");
  require(printed || !json::isFirstText(items, ""), "there is no text where there are no items");
  if (!printed) return;
  const Value& wanted = list.value->elements.front();
  const bool isText = wanted.kind == boost::json::kind::string;
  require(json::isFirstText(items, wanted.text) == isText, "a text is what JSON says");
  require(koriva::fuzz::parse(*printed).value == wanted, "indentation does not change a value");
  require(json::prettyPrinted(*printed) == printed, "what was indented indents the same");
}

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  checkRewriters(input);
  checkValue(input);
  checkItems(input);
}
