#pragma once

#include <cstdint>
#include <string>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"

/// What the server pushes as "login". All keys are required.
struct KRLoginEvent {
  std::int64_t result = 0;  ///< the server's result code
  std::string uin;          ///< the user

  bool operator==(const KRLoginEvent&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};
