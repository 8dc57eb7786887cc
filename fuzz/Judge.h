#pragma once

#include "cost/Memory.h"
#include "fuzz/Fuzz.h"

/// \file
/// What holds for whatever is read from JSON.

namespace koriva::fuzz {

/// Reads within the promised memory, and then with less and less of it.
template <class Read>
auto readInMemory(std::size_t inputSize, const Read& read) {
  constexpr std::size_t othersMemory =
      4'096;  // what is made once and stays, such as initial values
  const cost::MemoryUse use;
  auto result = read();
  require(use.peak() <= 4'194'304 + 32 * inputSize + othersMemory, "memory is limited");
  for (std::size_t nth = 1;; ++nth) {
    const cost::FailingMemory failing(nth);
    const auto again = read();
    if (!failing.hasFailed()) return result;
    require(!again, "what got no memory is not read");
  }
}

}  // namespace koriva::fuzz
