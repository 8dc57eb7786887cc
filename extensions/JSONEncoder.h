#pragma once

#include <boost/json/fwd.hpp>
#include <string>

#include "extensions/JSONText.h"

/// \file The writing of dynamic values; not installed.

namespace koriva::json {

/// Appends a dynamic value as compact JSON. False, with nothing appended, when it holds NaN or
/// infinity, is nested deeper than 64 levels, or holds text that is refused.
bool write(std::string& out, const boost::json::value& value,
           InvalidText invalidText = InvalidText::refuse);

/// The same for a dictionary.
bool write(std::string& out, const boost::json::object& dictionary,
           InvalidText invalidText = InvalidText::refuse);

/// The form in which values appear in console lines: `["key": value, "key2": "text"]` for a
/// dictionary, `["a", "b"]` for a list. It ends where a value cannot be written.
std::string printedForm(const boost::json::value& value);

}  // namespace koriva::json
