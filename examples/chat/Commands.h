#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Chat.h"
#include "Console.h"

/// Carries out the lines that the user types: commands, and texts to send.
class Commands {
 public:
  /// A line that is waited for may take this long.
  Commands(Console& console, Chat& chat, std::chrono::seconds patience);

  /// All of them, such as "/open".
  static std::vector<std::string> names();

  void run(const std::string& line);

  /// Lets the next lines wait until a line with this text is shown.
  void waitFor(std::string text);

  /// Whether the next line may be run. A wait that takes too long ends everything as a failure.
  bool isReady();

  bool isOver() const { return exitCode_.has_value(); }
  int exitCode() const { return exitCode_.value_or(0); }
  void quit(int exitCode = 0) { exitCode_ = exitCode; }

 private:
  using Clock = std::chrono::steady_clock;
  using Words = std::vector<std::string>;

  struct Command {
    std::string_view name;
    std::string_view arguments;
    std::string_view help;
    void (*run)(Commands& commands, const Words& words);
    std::size_t most;
    std::size_t least = 0;
  };

  static const std::vector<Command>& table();
  void runCommand(const std::string& line);
  void help();

  Console& console_;
  Chat& chat_;
  std::chrono::seconds patience_;
  std::optional<std::string> awaited_;
  Clock::time_point deadline_;
  std::optional<int> exitCode_;
};
