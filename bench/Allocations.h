#pragma once

#include <cstddef>

/// How often the program has asked for memory.
std::size_t allocationCount();
