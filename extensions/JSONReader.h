#pragma once

#include <boost/json/error.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "extensions/JSONText.h"

/// \file The reading of JSON text; not installed.

namespace koriva::json {

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// A number of 64 bits, and its sign.
struct Integer {
  bool isNegative;
  std::uint64_t magnitude;
};

/// A JSON number, as it stands in the text.
struct Number {
  std::string_view text;
  std::uint64_t digits = 0;  ///< its value without sign, when it is short
  bool isShort = false;      ///< at most 19 digits, no fraction and no exponent

  bool isNegative() const { return text.front() == '-'; }
  /// The integer that the number denotes, as in `1e2`; nothing when it denotes none of 64 bits.
  std::optional<Integer> integer() const;
  /// The nearest double; infinity beyond the largest.
  double real() const;
};

/// Goes through JSON text once. Its functions get the place where something begins and return the
/// one behind it, or null when that is no JSON; error() says what is wrong then. Nothing is read
/// beyond the end.
class Reader {
 public:
  explicit Reader(std::string_view text) : end_(text.data() + text.size()) {}

  boost::system::error_code error() const { return error_; }

  /// How many lists and objects are open.
  std::size_t depth() const { return depth_; }

  /// Ends the reading; null.
  const char* fail(boost::system::error_code error) {
    error_ = error;
    return nullptr;
  }
  const char* fail(boost::json::error reason = boost::json::error::syntax) {
    return fail(make_error_code(reason));
  }

  /// The character at a place; NUL, which is part of no JSON, at the end.
  char peek(const char* at) const { return at != end_ ? *at : '\0'; }

  const char* skipSpace(const char* at) const {
    while (at != end_ && *at <= ' ' && (*at == ' ' || *at == '\n' || *at == '\t' || *at == '\r'))
      ++at;
    return at;
  }

  /// From a key's end, or null, to its value.
  const char* colon(const char* at) {
    if (!at) return nullptr;
    at = skipSpace(at);
    return peek(at) == ':' ? skipSpace(at + 1) : fail();
  }

  /// The members of an object, from behind its brace on: `readMember` reads one from behind the
  /// quotation mark of its key on.
  template <class ReadMember>
  const char* members(const char* at, ReadMember readMember) {
    return sequence(at, '}', [&](const char* member) {
      return peek(member) == '"' ? readMember(member + 1) : fail();
    });
  }

  /// The elements of an array, from behind its bracket on.
  template <class ReadElement>
  const char* elements(const char* at, ReadElement readElement) {
    return sequence(at, ']', readElement);
  }

  /// From behind a text's quotation mark to that at its end, when nothing between them is escaped;
  /// null otherwise.
  const char* plainEnd(const char* at) const {
    bool isAscii = true;
    const char* const stop = endOfPlain(at, end_, isAscii);
    return peek(stop) == '"' && (isAscii || isUtf8({at, stop})) ? stop : nullptr;
  }

  /// A text from behind its quotation mark on. It takes the place of what is in `out`.
  const char* text(const char* at, std::string& out) {
    const char* const stop = plainEnd(at);
    if (!stop) return escapedText(at, &out);
    out.assign(at, stop);
    return stop + 1;
  }

  /// A text of which nothing is kept.
  const char* skipText(const char* at) {
    const char* const stop = plainEnd(at);
    return stop ? stop + 1 : escapedText(at, nullptr);
  }

  /// A number; what is behind it is not looked at.
  const char* number(const char* at, Number& number);

  /// "true", "false" or "null".
  const char* literal(const char* at, std::string_view literal) {
    return std::string_view(at, end_).starts_with(literal) ? at + literal.size() : fail();
  }

  /// A value of any kind, of which nothing is kept.
  const char* skip(const char* at);

  /// What is left after the one value of a document: nothing but white space.
  const char* documentEnd(const char* at) {
    at = skipSpace(at);
    return at == end_ ? at : fail(boost::json::error::extra_data);
  }

  /// What is left after the first of several items: commas, and what `readItem` reads.
  template <class ReadItem>
  const char* itemsEnd(const char* at, ReadItem readItem) {
    while (peek(at = skipSpace(at)) == ',') {
      at = readItem(skipSpace(at + 1));
      if (!at) return nullptr;
    }
    return at == end_ ? at : fail();
  }
  const char* itemsEnd(const char* at) {
    return itemsEnd(at, [this](const char* item) { return skip(item); });
  }

 private:
  template <class ReadOne>
  const char* sequence(const char* at, char closing, ReadOne readOne) {
    if (depth_ == maxDepth) return fail(boost::json::error::too_deep);
    ++depth_;
    at = skipSpace(at);
    if (peek(at) != closing) {
      while (true) {
        at = readOne(at);
        if (!at) return nullptr;
        at = skipSpace(at);
        if (peek(at) != ',') break;
        at = skipSpace(at + 1);
      }
      if (peek(at) != closing) return fail();
    }
    --depth_;
    return at + 1;
  }

  const char* escapedText(const char* at, std::string* out);
  const char* escape(const char* at, char* buffer, std::size_t& used);

  const char* end_;
  std::size_t depth_ = 0;
  boost::system::error_code error_;
};

}  // namespace koriva::json
