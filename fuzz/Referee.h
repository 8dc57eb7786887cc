#pragma once

#include <boost/json/kind.hpp>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "extensions/JSONFields.h"

/// \file
/// What JSON says, read by another parser than the library's, and what a record must become by it.

namespace koriva::fuzz {

/// A JSON value.
struct Value {
  boost::json::kind kind = boost::json::kind::null;
  std::string text;  ///< of a string; a number or boolean as it stands in the document
  std::vector<Value> elements;
  std::multimap<std::string, Value> members;  ///< equal keys in the order of the document

  bool operator==(const Value&) const = default;
};

struct Document {
  std::optional<Value> value;  ///< nothing when the document is not JSON
  bool isKnown = true;         ///< false for exponents that are too large for this parser
};

Document parse(std::string_view json);

/// The items of a packet, as an array that is not empty.
Document parseItems(std::string_view items);

/// Gives a fresh record what the value says; false when the record cannot be read from it.
bool fill(const json::Coding& coding, void* record, const Value& value);

/// The double nearest to a JSON number.
double realOf(const Value& number);

/// The value of the last of equal keys; null when there is none.
const Value* memberOf(const Value& object, std::string_view key);

}  // namespace koriva::fuzz
