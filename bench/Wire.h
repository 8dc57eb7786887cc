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

/// Writes a line to standard output, which is for results alone: what libraries write there goes
/// nowhere.
void say(const std::string& line);

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

/// Counts what happens again and again: `--warm-up` of them, then the `--count` that are measured.
class Counter {
 public:
  explicit Counter(const Arguments& arguments);

  /// Notes that one has ended; true when all have.
  bool add();

  /// Those of the warm-up as well.
  [[nodiscard]] std::size_t total() const { return warmUp_ + count_; }
  [[nodiscard]] double rate() const { return static_cast<double>(count_) / elapsedUs_ * 1e6; }
  [[nodiscard]] double cpuUs() const { return cpuUs_ / static_cast<double>(count_); }
  [[nodiscard]] std::string figures() const;

 protected:
  [[nodiscard]] std::size_t count() const { return count_; }
  [[nodiscard]] bool isMeasuring() const { return ended_ >= warmUp_ && ended_ < total(); }

 private:
  const std::size_t count_;
  const std::size_t warmUp_;
  std::size_t ended_ = 0;
  std::optional<Stopwatch> stopwatch_;
  double elapsedUs_ = 0;
  double cpuUs_ = 0;
};

/// Also takes the time of each.
class Meter : public Counter {
 public:
  explicit Meter(const Arguments& arguments);

  bool add(Clock::time_point begin);
  std::string figures();

 private:
  double percentileUs(double part);

  std::vector<std::uint32_t> nanoseconds_;
};

}  // namespace bench
