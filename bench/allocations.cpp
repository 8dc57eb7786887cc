// In a file of its own, so that the compiler does not see through the allocations it replaces.
#include <cstdlib>
#include <new>

// Not atomic: benchmarks have one thread, and counting must cost next to nothing.
static std::size_t allocations = 0;

std::size_t allocationCount() { return allocations; }

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
