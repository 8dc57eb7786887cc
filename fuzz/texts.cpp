// The string rewriters, the printers and dynamic values.

#include <boost/json/value.hpp>

#include "extensions/JSONCoding.h"
#include "extensions/JSONPrinter.h"
#include "extensions/StringRewriters.h"
#include "fuzz/Fuzz.h"

using koriva::fuzz::require;
namespace json = koriva::json;

namespace {

void checkRewriters(std::string_view text) {
  const bool isText = json::isUtf8(text);
  require(koriva::toJsonString(text).has_value() == isText, "bytes become text if they are text");
  const std::string valid = json::validUtf8(std::string(text));
  require(json::isUtf8(valid), "repaired text is text");
  require(!isText || valid == text, "text needs no repair");

  for (const auto rewrite :
       {koriva::escapedString, koriva::unescapeString, koriva::replaceSpecialCharacters}) {
    require(json::isUtf8(rewrite(valid)), "rewritten text is text");
  }
  const std::string escaped = koriva::replaceSpecialCharacters(valid);
  require(escaped.find_first_of("\r\n\t") == std::string::npos, "no line breaks are left");
  const auto read = json::parseValue("\"" + escaped + "\"");
  require(!read || read->as_string() == valid, "an escaped text reads the same as JSON");
}

std::string written(const boost::json::value& value) {
  std::string text;
  require(json::write(text, value), "what was read can be written");
  return text;
}

void checkValues(std::string_view text) {
  if (const auto value = json::parseValue(text)) {
    const std::string compact = written(*value);
    const auto again = json::parseValue(compact);
    require(again && written(*again) == compact, "a value that was written reads the same");
    require(json::isUtf8(json::printedForm(*value)), "the printed form is text");
    if (const auto* object = value->if_object()) {
      require(koriva::toJsonString(*object) == compact, "a dictionary is written as a value is");
    }
  }
  const auto first = json::firstText(text);
  require(!json::parseValue(text) || first == text, "a value is the first of its items");
  const auto printed = json::prettyPrinted(text);
  require(printed.has_value() == first.has_value(), "what is JSON can be indented");
  if (printed) {
    require(json::prettyPrinted(*printed) == printed, "what was indented indents the same");
    const auto again = json::parseValue(*printed);
    const auto value = json::parseValue(*first);
    require(value && again && written(*value) == written(*again),
            "indentation does not change a value");
  }
}

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  checkRewriters(input);
  checkValues(input);
}
