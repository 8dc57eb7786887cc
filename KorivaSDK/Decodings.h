#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "KorivaSDK/KRResult.h"
#include "extensions/JSONCoding.h"
#include "models/KRConversation.h"

/// \file
/// What the answers to requests mean. A decoding turns an acknowledgement's items into the outcome
/// of the request, or into nothing: then the completion is never called.

namespace koriva {

template <class T>
using Decoded = std::optional<KRResult<T>>;

/// The failures that most requests report for an answer of no use.
struct UsualErrors {
  static KRError unreadable() { return KRError::failed; }
  template <class Record>
  static KRError refused(const Record&) {
    return KRError::failed;
  }
};

struct UnreadableIsParsingFailed : UsualErrors {
  static KRError unreadable() { return KRError::parsingFailed; }
};

namespace detail {

template <class T>
T& unwrap(T& value) {
  return value;
}
template <class T>
T& unwrap(std::optional<T>& value) {
  return *value;
}

template <class T>
bool isPresent(const T&) {
  return true;
}
template <class T>
bool isPresent(const std::optional<T>& value) {
  return value.has_value();
}

struct ResultCode {
  std::int64_t result = 0;

  template <class R>
  static constexpr auto fields = json::fields(json::required<&R::result>("result"));
};

}  // namespace detail

/// A record with a result code, or the part of it that the request is about.
template <class Record, auto part = std::identity(), class Errors = UsualErrors>
auto decodeRecord(std::string_view items) {
  using T =
      std::remove_cvref_t<decltype(detail::unwrap(std::invoke(part, std::declval<Record&>())))>;
  auto record = json::decodeFirst<Record>(items);
  if (!record) return Decoded<T>(KRResult<T>::failure(Errors::unreadable()));
  auto& value = std::invoke(part, *record);
  if (!record->codeCheck() || !detail::isPresent(value)) {
    return Decoded<T>(KRResult<T>::failure(Errors::refused(*record)));
  }
  return Decoded<T>(KRResult<T>::success(std::move(detail::unwrap(value))));
}

inline constexpr auto decodeConversation =
    decodeRecord<KRConversationResponse, &KRConversationResponse::conversation>;

/// Whether an integer of the answer is the one that means yes.
template <class Record, std::int64_t Record::*member, std::int64_t yes>
Decoded<bool> decodeWhether(std::string_view items) {
  const auto record = json::decodeFirst<Record>(items);
  if (!record) return KRResult<bool>::failure(KRError::parsingFailed);
  return KRResult<bool>::success((*record).*member == yes);
}

/// Whether the server has done it; a refusal is a success with false.
inline constexpr auto decodeBoolean =
    decodeWhether<detail::ResultCode, &detail::ResultCode::result, 0>;

/// "Success" or the server's error; nothing for an answer without a result code.
inline Decoded<std::string> decodeResultCode(std::string_view items) {
  const auto code = json::decodeFirst<detail::ResultCode>(items);
  if (!code) return std::nullopt;
  if (code->result != 0) return KRResult<std::string>::failure(KRError(code->result));
  return KRResult<std::string>::success("Success");
}

}  // namespace koriva
