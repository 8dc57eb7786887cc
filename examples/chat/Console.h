#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "LineEditor.h"

/// What the user sees and types. In a terminal, lines appear above a prompt; else standard input is
/// a script and standard output a plain transcript.
class Console {
 public:
  enum class Style { plain, message, own, note, error, faint };

  /// `words` complete with Tab.
  explicit Console(std::vector<std::string> words);

  /// Whether a person sits at a terminal.
  bool isInteractive() const { return editor_ != nullptr; }

  void show(Style style, std::string_view text);
  void setPrompt(const std::string& prompt);

  /// Waits until there is something to do: input (if `wantInput`), which it takes in, `otherFd`
  /// readable or the time over. Returns whether `otherFd` is readable.
  bool wait(int otherFd, bool wantInput, std::chrono::milliseconds longest);

  /// The next line that was read.
  std::optional<std::string> nextLine();

  /// Whether all input has been read and taken.
  bool isAtEnd() const { return ended_ && lines_.empty(); }

  /// Finds the oldest line shown that contains the text and was not found before.
  bool findShown(std::string_view text);

 private:
  void readInput();
  void readScript();

  bool coloured_;
  std::unique_ptr<LineEditor> editor_;
  std::deque<std::string> lines_;
  bool ended_ = false;
  std::string partOfLine_;
  std::deque<std::string> shown_;
};
