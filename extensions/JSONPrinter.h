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

/// The part of the items that is the first of them, values inside a JSON array that is given
/// without the brackets; nothing when there is none or it is not JSON. Nothing is built on the way.
std::optional<std::string_view> firstText(std::string_view items);

/// The first of the items, spread over lines and indented by two spaces, or without any white space
/// when that would be more than 64 KiB; nothing when there is none or it is not JSON.
std::optional<std::string> prettyPrinted(std::string_view items);

/// The form in which values appear in console lines: `["key": value, "key2": "text"]` for a
/// dictionary, `["a", "b"]` for a list.
std::string printedForm(const boost::json::value& value);

/// JSON with U+FFFD for halves of surrogate pairs, which JavaScript peers send when they cut a text
/// in the middle of an emoji; nothing when there are none. Everything keeps its place.
std::optional<std::string> withoutLoneSurrogates(std::string_view json);

bool isUtf8(std::string_view text);

/// The text with U+FFFD in place of bytes that are not UTF-8.
std::string validUtf8(std::string text);

}  // namespace koriva::json
