#pragma once

#include <boost/json/fwd.hpp>
#include <boost/system/result.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "extensions/JSONFields.h"
#include "extensions/KRExport.h"

/// \file
/// Records from and to JSON, and JSON of any content.

/// A JSON object of any content. `#include <boost/json/object.hpp>` to build or to read one.
using KRDictionary = boost::json::object;

/// Records from and to JSON.
namespace koriva::json {

namespace detail {

/// What may follow a value: nothing, or a comma and anything.
enum class Rest { none, afterComma };

/// Reads JSON text into a value that is as it was made.
KR_EXPORT boost::system::error_code decode(Rest rest, const Type& type, void* value,
                                           std::string_view json);
KR_EXPORT bool append(std::string& out, const Type& type, const void* value);
/// The error of a document that is JSON, but not what was wanted.
KR_EXPORT boost::system::error_code mismatch();

// A function of its own, not a branch of read(), so that compilers make the record in its place.
template <class T>
boost::system::result<T> readPlainly(Rest rest, std::string_view json) {
  boost::system::result<T> value(boost::system::in_place_value);
  if (const auto error = decode(rest, typeOf<T>, &*value, json)) value = error;
  return value;
}

}  // namespace detail

template <class T>
auto Access::read(detail::Rest rest, std::string_view json) {
  if constexpr (requires { &T::fromDocument; }) {
    using Result = boost::system::result<T>;
    const auto document = read<typename T::Document>(rest, json);
    if (!document) return Result(document.error());
    auto value = T::fromDocument(*document);
    return value ? Result(*std::move(value)) : Result(detail::mismatch());
  } else {
    return detail::readPlainly<T>(rest, json);
  }
}

/// Reads a record, or any other type that a field may have, from JSON text.
///
/// Integers are exact: `1.0` and `1e2` are integers, `1.5`, `true` and what is out of range are
/// not. The last of equal keys wins, unknown keys are skipped. Lone surrogate escapes become
/// U+FFFD. Errors are those of boost::json::error, among them `not_object` when a document is JSON
/// but not what the record needs, `too_deep` beyond 64 levels of nesting, and `extra_data`.
template <class T>
boost::system::result<T> decode(std::string_view json) {
  return Access::read<T>(detail::Rest::none, json);
}

/// Reads the first of the values inside a JSON array, given without the brackets
/// (`{"a":1},2`). What follows it must begin with a comma and is not read.
template <class T>
boost::system::result<T> decodeFirst(std::string_view items) {
  return Access::read<T>(detail::Rest::afterComma, items);
}

/// Appends a record, or any other type that a field may have, as compact JSON. Bytes that are not
/// UTF-8 become U+FFFD. False, with nothing appended, when the value holds NaN or infinity, which
/// JSON cannot say.
template <class T>
bool append(std::string& out, const T& value) {
  return detail::append(out, detail::typeOf<T>, &value);
}

/// What to do with texts that are not UTF-8.
enum class InvalidText {
  refuse,   ///< write nothing
  replace,  ///< write U+FFFD for what is wrong
};

/// Appends a dynamic value as compact JSON. False, with nothing appended, when it holds NaN or
/// infinity, is nested deeper than 64 levels, or holds text that is refused.
KR_EXPORT bool write(std::string& out, const boost::json::value& value,
                     InvalidText invalidText = InvalidText::refuse);

/// The same for a dictionary.
KR_EXPORT bool write(std::string& out, const boost::json::object& dictionary,
                     InvalidText invalidText = InvalidText::refuse);

/// Reads any JSON value; nothing when the text is not JSON. Doubles are correctly rounded.
KR_EXPORT std::optional<boost::json::value> parseValue(std::string_view json);

/// Reads a JSON object; nothing when the text is not one.
KR_EXPORT std::optional<boost::json::object> parseDictionary(std::string_view json);

}  // namespace koriva::json

/// Reads records from JSON; holds no state.
struct KRJSONDecoder {
  /// The record that the bytes describe; see koriva::json::decode.
  template <class T>
  boost::system::result<T> decode(std::string_view bytes) const {
    return koriva::json::decode<T>(bytes);
  }
};

/// Writes records as JSON; holds no state.
struct KRJSONEncoder {
  /// The record as compact JSON; empty when it holds NaN or infinity. See koriva::json::append.
  template <class T>
  std::string encode(const T& record) const {
    std::string json;
    koriva::json::append(json, record);
    return json;
  }
};
