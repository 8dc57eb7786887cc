#pragma once

#include <concepts>
#include <memory>
#include <string>

#include "KorivaSDK/KRLog.h"

namespace koriva {

struct LogSink;

/// Where lines of a level go at the moment: to the application's sink or, without one, to standard
/// output. From any thread.
class Log {
 public:
  explicit Log(KRLogLevel level);

  [[nodiscard]] bool hasSink() const { return sink_ != nullptr; }

  /// Whether anybody wants a line.
  [[nodiscard]] bool isOn() const;

  /// A push token or key as the line may tell it: whole on standard output alone.
  [[nodiscard]] std::string secret(std::string text) const;

  void write(std::string line) const;

 private:
  KRLogLevel level_;
  std::shared_ptr<const LogSink> sink_;
};

/// A line for the sink, or for standard output without one, whole and flushed.
void printLine(KRLogLevel level, std::string line);

/// The same for one that is made, for a Log, only where it is wanted.
template <std::invocable<const Log&> Make>
void printLine(KRLogLevel level, const Make& make) {
  const Log log(level);
  if (log.isOn()) log.write(make(log));
}

/// A line for the sink alone.
void logLine(KRLogLevel level, std::string line);

}  // namespace koriva
