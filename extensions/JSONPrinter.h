#pragma once

#include <boost/json/fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

/// \file Ways of showing JSON, and the repair of texts; not installed.

namespace koriva::json {

/// JSON text spread over lines, indented by two spaces; nothing when it is not JSON.
std::optional<std::string> prettyPrinted(std::string_view json);

/// The form in which dictionaries appear in console lines: `["key": value, "key2": "text"]`.
std::string printedForm(const boost::json::object& dictionary);

bool isUtf8(std::string_view text);

/// The text with U+FFFD in place of bytes that are not UTF-8.
std::string validUtf8(std::string text);

}  // namespace koriva::json
