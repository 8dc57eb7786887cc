#pragma once

/// \file
/// What a shared build exports.

/// Marks what a shared build of the library exports; everything else is hidden.
#define KR_EXPORT __attribute__((visibility("default")))
