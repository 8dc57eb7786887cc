#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "simulation/Journal.h"

namespace koriva::simulation {

using Steps = std::vector<std::size_t>;

/// Lives one life, in this process.
void live(std::uint64_t seed, const Steps& steps, Journal& journal);

/// A process that lives lives, and may be ended by one of them.
class Worker {
 public:
  /// What it does; its standard output goes nowhere. A trial says nothing at all, and gives up
  /// soon.
  explicit Worker(std::function<void(Journal&)> work, bool isTrial = false);
  ~Worker() { journal_.unmake(); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  [[nodiscard]] int process() const { return process_; }
  [[nodiscard]] const Journal& journal() const { return journal_; }
  /// Waits for its end. False when something was found; the journal says what.
  bool wait();
  /// The same, with what waiting for it gave.
  bool ended(int status);
  void kill();

 private:
  Journal& journal_ = Journal::make();
  int process_ = 0;
};

/// Those of the steps that suffice to break the invariant.
Steps shrink(std::uint64_t seed, Steps steps, const std::string& invariant);

}  // namespace koriva::simulation
