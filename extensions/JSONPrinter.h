#pragma once

#include <boost/json/fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

/// \file Ways of showing JSON, and the repair of texts; not installed.

namespace koriva {

/// The text with every occurrence of `find`, from the left, replaced. In linear time.
std::string replaceAll(std::string text, std::string_view find, std::string_view replacement);

}  // namespace koriva

namespace koriva::json {

/// The first of the values inside a JSON array, given without the brackets, spread over lines and
/// indented by two spaces; nothing when there is none or it is not JSON.
std::optional<std::string> prettyPrinted(std::string_view items);

/// The form in which values appear in console lines: `["key": value, "key2": "text"]` for a
/// dictionary, `["a", "b"]` for a list.
std::string printedForm(const boost::json::value& value);

bool isUtf8(std::string_view text);

/// The text with U+FFFD in place of bytes that are not UTF-8.
std::string validUtf8(std::string text);

}  // namespace koriva::json
