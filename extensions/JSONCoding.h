#pragma once

#include <boost/json/fwd.hpp>
#include <boost/system/result.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "extensions/KRExport.h"

/// \file
/// Records from and to JSON, and JSON of any content.

/// A JSON object of any content. `#include <boost/json/object.hpp>` to build or to read one.
using KRDictionary = boost::json::object;

/// Records from and to JSON.
namespace koriva::json {

namespace detail {
struct Table;
}

/// How a record travels: its keys, and what else there is to know.
struct Coding {
  const detail::Table* table;  ///< known to the library alone
};

namespace detail {

KR_EXPORT boost::system::error_code decode(const Coding& coding, void* record,
                                           std::string_view json);
KR_EXPORT bool append(std::string& out, const Coding& coding, const void* record);

template <class T>
concept Travels = requires {
  T::coding;
}
|| requires { T::encoding; };

template <class T>
constexpr const Coding& codingOf() {
  static_assert(Travels<T>, "this type is no record that travels as JSON");
  if constexpr (requires { T::coding; }) {
    return T::coding;
  } else {
    return T::encoding;
  }
}

}  // namespace detail

/// Reads a record from JSON text.
///
/// Integers are exact: `1.0` and `1e2` are integers, `1.5`, `true` and what is out of range are
/// not. The last of equal keys wins, unknown keys are skipped. Lone surrogate escapes become
/// U+FFFD. Errors are those of boost::json::error, among them `not_object` when a document is JSON
/// but not what the record needs, `too_deep` beyond 64 levels of nesting, and `extra_data`; and
/// `boost::system::errc::not_enough_memory` when there is none, or the record would take more than
/// 4 MiB and 32 times the document.
template <class T>
boost::system::result<T> decode(std::string_view json) {
  static_assert(
      !requires { T::encoding; }, "records of this type are only written");
  boost::system::result<T> record(boost::system::in_place_value);
  if (const auto error = detail::decode(detail::codingOf<T>(), &*record, json)) record = error;
  return record;
}

/// Appends a record as compact JSON. Bytes that are not UTF-8 become U+FFFD. False, with nothing
/// appended, when the record holds NaN or infinity, which JSON cannot say.
template <class T>
bool append(std::string& out, const T& record) {
  return detail::append(out, detail::codingOf<T>(), &record);
}

/// Reads any JSON value; nothing when the text is not JSON, nests deeper than 64 levels, holds an
/// object of more than 4,096 members or a number beyond what a double can be, or when there is no
/// memory or the value would take more than 4 MiB and 32 times the text. Doubles are correctly
/// rounded.
KR_EXPORT std::optional<boost::json::value> parseValue(std::string_view json);

/// Reads a JSON object; nothing when the text is not one that parseValue() reads.
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
