#pragma once

#include <functional>
#include <utility>
#include <variant>

#include "KorivaSDK/KRError.h"

/// \file
/// What requests end with.

/// The outcome of a request: a value, or the reason why there is none.
template <class T>
class KRResult {
 public:
  /// An outcome with a value.
  static KRResult success(T value) { return KRResult(std::in_place_index<0>, std::move(value)); }

  /// An outcome without one.
  static KRResult failure(KRError error) { return KRResult(std::in_place_index<1>, error); }

  /// Whether there is a value.
  bool isSuccess() const { return outcome_.index() == 0; }

  /// The same as isSuccess(). Of a `KRResult<bool>` too: what it holds is `value()`.
  explicit operator bool() const { return isSuccess(); }

  /// The value. Throws std::bad_variant_access when there is none.
  const T& value() const& { return std::get<0>(outcome_); }
  T& value() & { return std::get<0>(outcome_); }               ///< The same for writing.
  T&& value() && { return std::get<0>(std::move(outcome_)); }  ///< The same for taking.

  /// The reason of a failure; `KRError::ok` of a success.
  KRError error() const { return isSuccess() ? KRError::ok : std::get<1>(outcome_); }

  bool operator==(const KRResult&) const = default;

 private:
  template <std::size_t Index, class V>
  KRResult(std::in_place_index_t<Index> index, V&& value)
      : outcome_(index, std::forward<V>(value)) {}

  std::variant<T, KRError> outcome_;
};

/// Called with a request's outcome, at most once, on the thread that drives KRRunLoop::main().
template <class T>
using KRCompletion = std::function<void(KRResult<T>)>;
