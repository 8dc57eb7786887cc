#pragma once

#include <histedit.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

/// The line being typed at the bottom of the terminal, with history and completion: libedit, fed
/// one key at a time so that the program can do other things between two keys.
class LineEditor {
 public:
  enum class Event { none, line, end };

  /// Takes the terminal into its hands until it is destroyed. Tab completes the first word of the
  /// line to one of `words`.
  LineEditor(std::FILE* terminal, std::vector<std::string> words);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  void setPrompt(std::string prompt);

  /// Reads the key that waits on standard input. When it completes a line, `line` is that one, and
  /// it is taken off the screen.
  Event readKey(std::string& line);

  /// Takes the prompt and what is typed off the screen, until `redraw()`.
  void hide();
  void redraw();

 private:
  static char* promptOf(EditLine* editor);
  static unsigned char completeOf(EditLine* editor, int key);
  unsigned char complete();
  std::wstring typed(bool upToCursor) const;
  void eraseRows(std::size_t above);

  std::FILE* terminal_;
  std::vector<std::string> words_;
  std::string prompt_;
  EditLine* editor_;
  History* history_;
};
