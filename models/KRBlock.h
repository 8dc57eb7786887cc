#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"

/// A contact was blocked or unblocked. All keys are required.
struct KRBlock {
  std::string group_id;     ///< the conversation
  std::string blocked_uin;  ///< the contact

  bool operator==(const KRBlock&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A blocked contact. All keys are required.
struct KRBlockContact {
  std::string uin;       ///< the contact
  std::string group_id;  ///< the conversation

  bool operator==(const KRBlockContact&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The acknowledgement of "blocked_list". All keys are required.
struct KRBlockContactList {
  std::int64_t result = 0;           ///< the server's result code
  std::vector<KRBlockContact> list;  ///< the blocked contacts

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRBlockContactList&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
