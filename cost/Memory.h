#pragma once

#include <cstddef>

/// \file
/// What is asked of `operator new`, in programs that link Memory.cpp and have one thread.

namespace koriva::cost {

/// What has been used since the construction. One at a time.
class MemoryUse {
 public:
  MemoryUse();

  std::size_t allocations() const;
  /// The most bytes in use at one time, beyond what was in use already.
  std::size_t peak() const;

 private:
  std::size_t allocations_;
  std::size_t live_;
};

/// As long as it lives, the nth request for a large block fails. One at a time.
class FailingMemory {
 public:
  static constexpr std::size_t large = std::size_t{16} << 10;

  explicit FailingMemory(std::size_t nth);
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  bool hasFailed() const;
};

}  // namespace koriva::cost
