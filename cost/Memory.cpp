#include "cost/Memory.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

std::size_t allocations = 0;
std::size_t live = 0;
std::size_t peak = 0;
std::size_t largeUntilFailure = 0;  ///< 0: none fails

bool isToFail(std::size_t size) {
  return size >= koriva::cost::FailingMemory::large && largeUntilFailure != 0 &&
         --largeUntilFailure == 0;
}

void* allocate(std::size_t size) noexcept {
  void* const memory = isToFail(size) ? nullptr : std::malloc(size);
  if (!memory) return nullptr;
  ++allocations;
  live += malloc_usable_size(memory);
  peak = std::max(peak, live);
  return memory;
}

void release(void* memory) noexcept {
  live -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = allocate(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

// Calls the one above, but for the address sanitizer's.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }

void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }

namespace koriva::cost {

MemoryUse::MemoryUse() : allocations_(::allocations), live_(::live) { ::peak = ::live; }

std::size_t MemoryUse::allocations() const { return ::allocations - allocations_; }

std::size_t MemoryUse::peak() const { return ::peak - live_; }

FailingMemory::FailingMemory(std::size_t nth) { largeUntilFailure = nth; }

FailingMemory::~FailingMemory() { largeUntilFailure = 0; }

// A method, as it is only true as long as the memory fails.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
bool FailingMemory::hasFailed() const { return largeUntilFailure == 0; }

}  // namespace koriva::cost
