#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <system_error>

#include "extensions/KRExport.h"

/// Why a request failed: a small value, equal by case.
class KR_EXPORT KRError {
 public:
  static const KRError ok;                    ///< 0, no error
  static const KRError failed;                ///< 1, the request failed, or any unknown code
  static const KRError expired;               ///< 2, the session token has expired
  static const KRError userNotExist;          ///< 3, there is no such user
  static const KRError invalid;               ///< 4, invalid
  static const KRError wrongType;             ///< 5, wrong type
  static const KRError parsingFailed;         ///< 6, no answer in time, or an unreadable one
  static const KRError loginConflict;         ///< 7, the user has logged in elsewhere
  static const KRError userNotFound;          ///< 8, the user was not found
  static const KRError headerDecodingFailed;  ///< 9, the header could not be decoded
  static const KRError wrongSession;          ///< 10, the session is not the user's
  static const KRError duplicate;             ///< 13, the server holds it already

  /// The error of a server's result code; `failed` for a code that names none.
  constexpr explicit KRError(std::int64_t code)
      : code_((code >= 0 && code <= 10) || code == 13 ? code : 1) {}

  /// The code, 0 to 10 or 13.
  constexpr std::int64_t code() const { return code_; }

  /// A fixed English text. `duplicate` has that of `ok`.
  std::string localizedDescription() const;

  /// The same error for code that speaks `std::error_code`; its category is named "koriva".
  operator std::error_code() const;

  bool operator==(const KRError&) const = default;

 private:
  std::int64_t code_;
};

inline constexpr KRError KRError::ok{0};
inline constexpr KRError KRError::failed{1};
inline constexpr KRError KRError::expired{2};
inline constexpr KRError KRError::userNotExist{3};
inline constexpr KRError KRError::invalid{4};
inline constexpr KRError KRError::wrongType{5};
inline constexpr KRError KRError::parsingFailed{6};
inline constexpr KRError KRError::loginConflict{7};
inline constexpr KRError KRError::userNotFound{8};
inline constexpr KRError KRError::headerDecodingFailed{9};
inline constexpr KRError KRError::wrongSession{10};
inline constexpr KRError KRError::duplicate{13};

/// Hashes by case.
template <>
struct std::hash<KRError> {
  /// The hash of the code.
  std::size_t operator()(const KRError& error) const noexcept {
    return std::hash<std::int64_t>()(error.code());
  }
};
