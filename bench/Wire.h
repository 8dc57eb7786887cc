#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// \file
/// What the programs that talk over the loopback interface have in common.

namespace bench {

using Clock = std::chrono::steady_clock;

/// Ends the program with a message.
[[noreturn]] void fail(const std::string& what);

/// Ends the program with a message if it has not ended by itself after two minutes.
void limitTime();

/// How long to wait until a new connection has nothing more to do.
inline constexpr auto quietTime = std::chrono::seconds(1);

/// Allows as many connections as the system does.
void raiseFileLimit();

/// A file of the folder data.
std::string readData(const std::string& name);

double residentKib();

using Figures = std::initializer_list<std::pair<const char*, double>>;

/// One JSON object on one line.
std::string toJson(Figures figures);

/// PROGRAM URL MODE [--option NUMBER]...
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> arguments);

  [[nodiscard]] const std::string& url() const { return arguments_[0]; }
  [[nodiscard]] const std::string& mode() const { return arguments_[1]; }
  [[nodiscard]] std::uint16_t port() const;
  /// The value of an option that must be there.
  [[nodiscard]] std::size_t number(std::string_view option) const;

 private:
  std::vector<std::string> arguments_;
};

/// What has passed since it was made: time, and CPU time of the process.
class Stopwatch {
 public:
  [[nodiscard]] double microseconds() const;
  [[nodiscard]] double cpuMicroseconds() const;

 private:
  static double cpuNow();

  Clock::time_point begin_ = Clock::now();
  double cpuBegin_ = cpuNow();
};

/// Times things that happen again and again, after a warm-up of a tenth as many.
class Meter {
 public:
  explicit Meter(std::size_t count);

  /// Notes that one has ended; true when all have.
  bool add(Clock::time_point begin);

  [[nodiscard]] double medianUs() { return percentileUs(0.5); }
  [[nodiscard]] double p99Us() { return percentileUs(0.99); }
  [[nodiscard]] double rate() const { return static_cast<double>(count_) / elapsedUs_ * 1e6; }
  [[nodiscard]] double cpuUs() const { return cpuUs_ / static_cast<double>(count_); }

 private:
  double percentileUs(double part);

  std::size_t count_;
  std::size_t warmUpLeft_;
  std::optional<Stopwatch> stopwatch_;
  std::vector<std::uint32_t> nanoseconds_;
  double elapsedUs_ = 0;
  double cpuUs_ = 0;
};

}  // namespace bench
