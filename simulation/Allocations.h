#pragma once

#include <cstddef>

namespace koriva::simulation {

/// How many pieces of memory have been allocated with `new` and not been freed.
std::size_t allocations();

}  // namespace koriva::simulation
