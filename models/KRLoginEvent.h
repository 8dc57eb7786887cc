#pragma once

#include <cstdint>
#include <string>

#include "extensions/JSONFields.h"

/// \file
/// What the server says of a login.

/// What the server pushes as "login". All keys are required.
struct KRLoginEvent {
  std::int64_t result = 0;  ///< the server's result code
  std::string uin;          ///< the user

  bool operator==(const KRLoginEvent&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(koriva::json::required<&R::result>("result"),
                                                      koriva::json::required<&R::uin>("uin"));
};
