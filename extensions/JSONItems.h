#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "extensions/JSONFields.h"

/// \file
/// The items of packets: values inside a JSON array that is given without the brackets; not
/// installed. Of the first of them something is made; the others are only checked to be JSON.

namespace koriva::json {

/// Reads the first of the items, or says what decode() says when it cannot.
template <class T>
boost::system::result<T> decodeFirst(std::string_view items) {
  boost::system::result<T> record(boost::system::in_place_value);
  if (const auto error = detail::decodeFirst(T::coding, &*record, items)) record = error;
  return record;
}

/// Whether there are items, and all of them are JSON.
bool areItems(std::string_view text);

/// The first of the items, when that is a text and all of them are JSON.
std::optional<std::string> firstText(std::string_view items);

/// Whether the first of the items is this text.
bool isFirstText(std::string_view items, std::string_view text);

/// The first of the items, spread over lines and indented by two spaces, or without any white space
/// when that would be more than 64 KiB; nothing when the items are not JSON.
std::optional<std::string> prettyPrinted(std::string_view items);

}  // namespace koriva::json
