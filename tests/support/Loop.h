#pragma once

#include <chrono>
#include <cstdlib>
#include <semaphore>

#include "KorivaSDK/KRRunLoop.h"
#include "KorivaSDK/State.h"

namespace koriva::test {

using namespace std::chrono_literals;

/// What has to come may take so long, on the slowest of machines.
inline constexpr auto patience = 60s;

/// Limits that no test meets by being slow, and no wait between attempts.
inline constexpr socketio::Limits patient{.connect = 1h, .acknowledgement = 1h, .redial = 0ms};

inline std::counting_semaphore<> wakeUps(0);

/// Gives the network a thread of its own when KORIVA_TEST_ATTACHED is set.
inline bool attached() {
  static const bool done = std::getenv("KORIVA_TEST_ATTACHED") != nullptr &&
                           KRRunLoop::main().attach([] { wakeUps.release(); });
  return done;
}

/// Drives the run loop for a moment. When attached, polls only after a wake-up.
inline void drive() {
  if (!attached()) return KRRunLoop::main().runFor(2ms);
  if (wakeUps.try_acquire_for(2ms)) KRRunLoop::main().poll();
}

/// Drives the run loop until the condition holds; false when it never does.
[[nodiscard]] bool runUntil(const auto& condition) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (; !condition(); drive()) {
    if (std::chrono::steady_clock::now() > end) return false;
  }
  return true;
}

}  // namespace koriva::test
