#include "simulation/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t count = 0;  // lives have one thread

}  // namespace

std::size_t koriva::simulation::allocations() { return count; }

void* operator new(std::size_t size) {
  void* memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  ++count;
  return memory;
}

void operator delete(void* memory) noexcept {
  if (memory != nullptr) --count;
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
