#pragma once

#include <boost/json/fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "extensions/KRExport.h"

/// \file
/// The escapes of message texts.

namespace koriva {

/// Escapes the attachments text of an outgoing message. Seven literal replacements, each over the
/// whole text, in this order: quotation mark and solidus get a backslash; the two characters `\n`,
/// the texts `\u{8}` and `\u{12}`, and the two characters `\r` and `\t` become three backslashes
/// and `n`, `b`, `f`, `r`, `t`. Real control characters stay.
KR_EXPORT std::string escapedString(std::string_view text);

/// Undoes escapes in a received message text. Seven literal replacements, in this order: `\"`,
/// `\/`, `\n`, `\u{8}`, `\u{12}` (U+0012), `\r`, `\t`. Not the inverse of escapedString().
KR_EXPORT std::string unescapeString(std::string_view text);

/// Escapes the text of an outgoing message: backslash, quotation mark, carriage return, line feed
/// and tab, in this order. Other control characters stay.
KR_EXPORT std::string replaceSpecialCharacters(std::string_view text);

/// The dictionary as compact JSON; nothing when it holds what is not JSON: NaN, infinity or text
/// that is not UTF-8.
KR_EXPORT std::optional<std::string> toJsonString(const boost::json::object& dictionary);

/// The bytes as text; nothing when they are not UTF-8. They are not checked to be JSON.
KR_EXPORT std::optional<std::string> toJsonString(std::string_view bytes);

}  // namespace koriva
