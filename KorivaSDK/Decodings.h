#pragma once

#include <cstdint>
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

namespace detail {

template <class T>
T* pointerTo(T& part) {
  return &part;
}
template <class T>
T* pointerTo(std::optional<T>& part) {
  return part ? &*part : nullptr;
}

struct ResultCode {
  std::int64_t result = 0;

  template <class R>
  static constexpr auto fields = json::fields(json::required<&R::result>("result"));
};

}  // namespace detail

/// The whole of a record with a result code.
template <class Record>
Decoded<Record> decodeRecord(std::string_view items) {
  auto record = json::decodeFirst<Record>(items);
  if (!record || !record->codeCheck()) return KRResult<Record>::failure(KRError::failed);
  return KRResult<Record>::success(*std::move(record));
}

/// The part of a record with a result code that the request is about.
template <class Record, class Part>
constexpr auto decodePart(Part Record::*part, KRError unreadable = KRError::failed,
                          KRError (*refusal)(const Record&) = nullptr) {
  return [=](std::string_view items) {
    auto record = json::decodeFirst<Record>(items);
    auto* value = record ? detail::pointerTo((*record).*part) : nullptr;
    using Result = KRResult<std::remove_pointer_t<decltype(value)>>;
    if (!record) return std::optional(Result::failure(unreadable));
    if (value && record->codeCheck()) return std::optional(Result::success(std::move(*value)));
    return std::optional(Result::failure(refusal ? refusal(*record) : KRError::failed));
  };
}

inline constexpr auto decodeConversation = decodePart(&KRConversationResponse::conversation);

/// Whether an integer of the answer is the one that means yes.
template <class Record>
constexpr auto decodeWhether(std::int64_t Record::*member, std::int64_t yes) {
  return [=](std::string_view items) -> Decoded<bool> {
    const auto record = json::decodeFirst<Record>(items);
    if (!record) return KRResult<bool>::failure(KRError::parsingFailed);
    return KRResult<bool>::success((*record).*member == yes);
  };
}

/// Whether the server has done it; a refusal is a success with false.
inline constexpr auto decodeBoolean = decodeWhether(&detail::ResultCode::result, 0);

/// "Success" or the server's error; nothing for an answer without a result code.
inline Decoded<std::string> decodeResultCode(std::string_view items) {
  const auto code = json::decodeFirst<detail::ResultCode>(items);
  if (!code) return std::nullopt;
  if (code->result != 0) return KRResult<std::string>::failure(KRError(code->result));
  return KRResult<std::string>::success("Success");
}

}  // namespace koriva
