#pragma once

#include <memory>

namespace koriva {

/// A shared pointer that one thread sets and any may read. Built on the free functions because
/// libstdc++ 12's std::atomic<std::shared_ptr> unlocks with relaxed order, a data race.
template <class T>
class AtomicSharedPtr {
 public:
  [[nodiscard]] std::shared_ptr<T> load() const { return std::atomic_load(&pointer_); }
  void store(std::shared_ptr<T> pointer) { std::atomic_store(&pointer_, std::move(pointer)); }

 private:
  std::shared_ptr<T> pointer_;
};

}  // namespace koriva
