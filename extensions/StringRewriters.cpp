#include "extensions/StringRewriters.h"

#include <boost/json/value.hpp>
#include <initializer_list>
#include <utility>

#include "extensions/JSONCoding.h"
#include "extensions/JSONPrinter.h"

namespace koriva {
namespace {

struct Step {
  std::string_view find;
  std::string_view replacement;
};

std::string rewritten(std::string_view text, std::initializer_list<Step> steps) {
  std::string result(text);
  for (const Step& step : steps)
    result = replaceAll(std::move(result), step.find, step.replacement);
  return result;
}

}  // namespace

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

std::string escapedString(std::string_view text) {
  return rewritten(text, {{R"(")", R"(\")"},
                          {R"(/)", R"(\/)"},
                          {R"(\n)", R"(\\\n)"},
                          {R"(\u{8})", R"(\\\b)"},
                          {R"(\u{12})", R"(\\\f)"},
                          {R"(\r)", R"(\\\r)"},
                          {R"(\t)", R"(\\\t)"}});
}

std::string unescapeString(std::string_view text) {
  if (text.find('\\') == std::string_view::npos) return std::string(text);
  return rewritten(text, {{R"(\")", "\""},
                          {R"(\/)", "/"},
                          {R"(\n)", "\n"},
                          {R"(\u{8})", "\b"},
                          {R"(\u{12})", "\x12"},
                          {R"(\r)", "\r"},
                          {R"(\t)", "\t"}});
}

std::string replaceSpecialCharacters(std::string_view text) {
  return rewritten(
      text,
      {{R"(\)", R"(\\)"}, {R"(")", R"(\")"}, {"\r", R"(\r)"}, {"\n", R"(\n)"}, {"\t", R"(\t)"}});
}

std::optional<std::string> toJsonString(const boost::json::object& dictionary) {
  std::string text;
  if (!json::write(text, dictionary)) return std::nullopt;
  return text;
}

std::optional<std::string> toJsonString(std::string_view bytes) {
  if (!json::isUtf8(bytes)) return std::nullopt;
  return std::string(bytes);
}

}  // namespace koriva
