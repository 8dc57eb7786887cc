#include "extensions/StringRewriters.h"

#include <algorithm>
#include <array>
#include <boost/json/value.hpp>
#include <utility>

#include "extensions/JSONEncoder.h"

namespace koriva {
namespace {

struct Step {
  std::string_view find;
  std::string_view replacement;
};

/// Literal replacements. One pass is enough: no replacement holds, or makes with its neighbours,
/// anything that another step looks for.
template <std::size_t N>
class Rewriter {
 public:
  constexpr explicit Rewriter(const Step (&steps)[N]) {
    for (std::size_t i = 0; i < N; ++i) {
      steps_[i] = steps[i];
      isFirst_[static_cast<unsigned char>(steps[i].find.front())] = true;
    }
  }

  std::string operator()(std::string_view text) const {
    std::string result;
    result.reserve(text.size());
    while (true) {
      const auto plain = std::find_if(text.begin(), text.end(), [this](char c) {
        return isFirst_[static_cast<unsigned char>(c)];
      });
      result.append(text.begin(), plain);
      text.remove_prefix(static_cast<std::size_t>(plain - text.begin()));
      if (text.empty()) return result;
      const auto step = std::find_if(steps_.begin(), steps_.end(), [text](const Step& candidate) {
        return text.starts_with(candidate.find);
      });
      const bool isFound = step != steps_.end();
      result += isFound ? step->replacement : text.substr(0, 1);
      text.remove_prefix(isFound ? step->find.size() : 1);
    }
  }

 private:
  std::array<Step, N> steps_;
  std::array<bool, 256> isFirst_{};
};

}  // namespace

std::string escapedString(std::string_view text) {
  static constexpr Rewriter rewrite({Step{R"(")", R"(\")"},
                                     {R"(/)", R"(\/)"},
                                     {R"(\n)", R"(\\\n)"},
                                     {R"(\u{8})", R"(\\\b)"},
                                     {R"(\u{12})", R"(\\\f)"},
                                     {R"(\r)", R"(\\\r)"},
                                     {R"(\t)", R"(\\\t)"}});
  return rewrite(text);
}

std::string unescapeString(std::string_view text) {
  static constexpr Rewriter rewrite({Step{R"(\")", "\""},
                                     {R"(\/)", "/"},
                                     {R"(\n)", "\n"},
                                     {R"(\u{8})", "\b"},
                                     {R"(\u{12})", "\x12"},
                                     {R"(\r)", "\r"},
                                     {R"(\t)", "\t"}});
  if (text.find('\\') == std::string_view::npos) return std::string(text);
  return rewrite(text);
}

std::string replaceSpecialCharacters(std::string_view text) {
  static constexpr Rewriter rewrite({Step{R"(\)", R"(\\)"},
                                     {R"(")", R"(\")"},
                                     {"\r", R"(\r)"},
                                     {"\n", R"(\n)"},
                                     {"\t", R"(\t)"}});
  return rewrite(text);
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
