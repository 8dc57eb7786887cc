#pragma once

/// Marks what a shared build of the library exports; everything else is hidden.
#define KR_EXPORT __attribute__((visibility("default")))
