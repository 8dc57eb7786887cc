#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"

/// The acknowledgement of "create_link". All keys are required.
struct KRGroupLinkResponse {
  std::int64_t result = 0;  ///< the server's result code
  std::string link;         ///< the invitation link

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRGroupLinkResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// The acknowledgement of "list_link". All keys are required.
struct KRListGroupLinkResponse {
  std::int64_t result = 0;         ///< the server's result code
  std::vector<std::string> links;  ///< the group's invitation links

  /// Whether the request succeeded.
  bool codeCheck() const { return result == 0; }

  bool operator==(const KRListGroupLinkResponse&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
