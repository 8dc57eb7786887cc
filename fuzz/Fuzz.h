#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace koriva::fuzz {

/// What a target does with one input.
void run(std::string_view input);

/// Ends the process unless the condition holds, which makes the input a find.
inline void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "Does not hold: %s\n", what);
  std::abort();
}

}  // namespace koriva::fuzz
