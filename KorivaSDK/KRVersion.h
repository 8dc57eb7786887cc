#pragma once

#include "extensions/KRExport.h"

extern "C" {

/// The library's version as a number: major and minor version, such as 1.0.
extern KR_EXPORT const double KorivaSDKVersionNumber;

/// The library's full version, such as "1.0.0".
extern KR_EXPORT const char* const KorivaSDKVersionString;

}  // extern "C"
