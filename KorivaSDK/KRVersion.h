#pragma once

#include "extensions/KRExport.h"

/// \file
/// The version of the headers and of the library that is running.

/// The version of these headers (semantic versioning), which the build takes from here.
#define KORIVA_SDK_VERSION_MAJOR 1
#define KORIVA_SDK_VERSION_MINOR 0  ///< grows with what is added
#define KORIVA_SDK_VERSION_PATCH 0  ///< grows with what is mended

/// The same as one integer to compare with: 10203 is 1.2.3.
#define KORIVA_SDK_VERSION \
  (KORIVA_SDK_VERSION_MAJOR * 10000 + KORIVA_SDK_VERSION_MINOR * 100 + KORIVA_SDK_VERSION_PATCH)

extern "C" {

/// The version of the library that is running, as a number: major and minor version, such as 1.0.
extern KR_EXPORT const double KorivaSDKVersionNumber;

/// The full version of the library that is running, such as "1.0.0".
extern KR_EXPORT const char* const KorivaSDKVersionString;

}  // extern "C"
