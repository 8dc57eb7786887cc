#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "KorivaSDK/RequestChannel.h"
#include "models/KRConversation.h"

/// \file
/// What the answers to requests mean. A decoding turns an answer into the outcome of the
/// request, or into nothing: then the completion is never called.

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

  static const json::Coding coding;
};

}  // namespace detail

/// The whole of a record with a result code.
template <class Record>
Decoded<Record> decodeRecord(Answer& answer) {
  auto record = answer.template read<Record>();
  if (!record || !record->codeCheck()) return KRResult<Record>::failure(KRError::failed);
  return KRResult<Record>::success(*std::move(record));
}

/// The part of a record with a result code that the request is about.
template <class Record, class Part>
constexpr auto decodePart(Part Record::*part, KRError unreadable = KRError::failed,
                          KRError (*refusal)(const Record&) = nullptr) {
  return [=](Answer& answer) {
    auto record = answer.template read<Record>();
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
  return [=](Answer& answer) -> Decoded<bool> {
    const auto record = answer.template read<Record>();
    if (!record) return KRResult<bool>::failure(KRError::parsingFailed);
    return KRResult<bool>::success((*record).*member == yes);
  };
}

/// Whether the server has done it; a refusal is a success with false.
inline constexpr auto decodeBoolean = decodeWhether(&detail::ResultCode::result, 0);

/// "Success" or the server's error; nothing for an answer without a result code.
Decoded<std::string> decodeResultCode(Answer& answer);

}  // namespace koriva
