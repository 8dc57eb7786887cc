#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "extensions/JSONFields.h"

/// \file
/// Blocked contacts.

/// A contact was blocked or unblocked. All keys are required.
struct KRBlock {
  std::string group_id;     ///< the conversation
  std::string blocked_uin;  ///< the contact

  bool operator==(const KRBlock&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&R::group_id>("group_id"),
                           koriva::json::required<&R::blocked_uin>("blocked_uin"));
};

/// A blocked contact. All keys are required.
struct KRBlockContact {
  std::string uin;       ///< the contact
  std::string group_id;  ///< the conversation

  bool operator==(const KRBlockContact&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::required<&R::uin>("uin"), koriva::json::required<&R::group_id>("group_id"));
};

/// The acknowledgement of "blocked_list". All keys are required.
struct KRBlockContactList {
  std::int64_t result = 0;           ///< the server's result code
  std::vector<KRBlockContact> list;  ///< the blocked contacts

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRBlockContactList&) const = default;

  /// The JSON keys.
  template <class R>
  static constexpr auto fields = koriva::json::fields(koriva::json::required<&R::result>("result"),
                                                      koriva::json::required<&R::list>("list"));
};
