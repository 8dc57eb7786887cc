#include "LineEditor.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <utility>

namespace {

constexpr int kHistorySize = 500;

std::size_t columnsOf(std::FILE* terminal) {
  winsize size{};
  const bool known = ioctl(fileno(terminal), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

std::wstring widened(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  const std::size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
  wide.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
  return wide;
}

/// How many rows below the first one a text ends, as the terminal wraps it.
std::size_t rowsBelow(std::wstring_view text, std::size_t columns) {
  std::size_t rows = 0;
  std::size_t column = 0;
  for (const wchar_t character : text) {
    const int known = wcwidth(character);
    const std::size_t width = known < 0 ? 2 : static_cast<std::size_t>(known);  // shown as ^X
    if (column + width > columns) {
      ++rows;
      column = 0;
    }
    column += width;
    if (column == columns) {
      ++rows;
      column = 0;
    }
  }
  return rows;
}

}  // namespace

LineEditor::LineEditor(std::FILE* terminal, std::vector<std::string> words)
    : terminal_(terminal),
      words_(std::move(words)),
      editor_(el_init("koriva_chat", stdin, terminal, terminal)),
      history_(history_init()) {
  HistEvent event;
  history(history_, &event, H_SETSIZE, kHistorySize);
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_SIGNAL, 1);  // so that Ctrl-C and Ctrl-Z leave a usable terminal
  el_set(editor_, EL_HIST, history, history_);
  el_set(editor_, EL_PROMPT, promptOf);
  el_set(editor_, EL_ADDFN, "complete", "Complete a command", completeOf);
  el_set(editor_, EL_BIND, "^I", "complete", nullptr);
  el_set(editor_, EL_UNBUFFERED, 1);
}

LineEditor::~LineEditor() {
  hide();
  el_set(editor_, EL_UNBUFFERED, 0);
  el_end(editor_);
  history_end(history_);
}

void LineEditor::setPrompt(std::string prompt) {
  hide();
  prompt_ = std::move(prompt);
  redraw();
}

LineEditor::Event LineEditor::readKey(std::string& line) {
  int length = 0;
  const char* text = el_gets(editor_, &length);
  if (!text || length <= 0) return Event::none;
  std::string_view read(text, static_cast<std::size_t>(length));
  if (read == "\4") return Event::end;  // Ctrl-D on an empty line
  if (read.back() != '\n') return Event::none;

  read.remove_suffix(1);
  line = read;
  HistEvent event;
  if (!line.empty()) history(history_, &event, H_ENTER, line.c_str());
  eraseRows(rowsBelow(typed(false), columnsOf(terminal_)) + 1);
  el_set(editor_, EL_UNBUFFERED, 0);
  el_set(editor_, EL_UNBUFFERED, 1);  // begins a new line
  return Event::line;
}

void LineEditor::hide() { eraseRows(rowsBelow(typed(true), columnsOf(terminal_))); }

void LineEditor::redraw() { el_set(editor_, EL_REFRESH); }

char* LineEditor::promptOf(EditLine* editor) {
  LineEditor* self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return self->prompt_.data();
}

unsigned char LineEditor::completeOf(EditLine* editor, int) {
  LineEditor* self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return self->complete();
}

unsigned char LineEditor::complete() {
  const LineInfo* info = el_line(editor_);
  const std::string_view begun(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
  std::string common;
  int found = 0;
  for (const std::string& word : words_) {
    if (begun.empty() || !word.starts_with(begun)) continue;
    const auto [end, ignored] =
        std::mismatch(common.begin(), common.end(), word.begin(), word.end());
    common = found++ == 0 ? word : std::string(common.begin(), end);
  }
  if (found == 1) common += ' ';
  if (common.size() <= begun.size()) return CC_REFRESH_BEEP;
  el_insertstr(editor_, common.c_str() + begun.size());
  return CC_REFRESH;
}

/// The prompt and the line behind it, without the end of a complete line.
std::wstring LineEditor::typed(bool upToCursor) const {
  std::wstring text = widened(prompt_);
  const LineInfoW* info = el_wline(editor_);
  text.append(info->buffer, upToCursor ? info->cursor : info->lastchar);
  if (text.ends_with(L'\n')) text.pop_back();
  return text;
}

void LineEditor::eraseRows(std::size_t above) {
  if (above > 0) std::fprintf(terminal_, "\033[%zuA", above);
  std::fputs("\r\033[J", terminal_);
  std::fflush(terminal_);
}
