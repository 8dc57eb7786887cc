#include "bench/Allocations.h"

// glibc's own functions, which those below take the place of.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

namespace {

// Not atomic: where allocations are counted there is one thread, and it must cost next to nothing.
std::size_t count = 0;

}  // namespace

std::size_t allocationCount() { return count; }

extern "C" void* malloc(std::size_t size) {
  ++count;
  return __libc_malloc(size);
}

extern "C" void* realloc(void* memory, std::size_t size) {
  ++count;
  return __libc_realloc(memory, size);
}
