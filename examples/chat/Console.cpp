#include "Console.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr std::size_t kRememberedLines = 1000;

/// In the order of Console::Style.
constexpr std::array<const char*, 6> kColours = {"",         "\033[36m", "\033[32m",
                                                 "\033[33m", "\033[31m", "\033[2m"};

/// Reads what is there. Returns false at the end of the input.
bool readAvailable(int fd, std::string& into) {
  std::array<char, 4096> buffer;
  const ssize_t count = read(fd, buffer.data(), buffer.size());
  if (count > 0) into.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
}

/// Cuts the first line off the text.
std::optional<std::string> takeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  if (end == text.npos) return std::nullopt;
  std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

/// What peers write must not steer the terminal, nor look like further lines of the transcript.
std::string harmless(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const bool isC1 =
        byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0;
    if (byte == '\n') {
      result += "\n    ";
    } else if (isC1) {
      result += '?';
      ++at;
    } else {
      result += byte < 0x20 || byte == 0x7F ? '?' : text[at];
    }
  }
  return result;
}

void useUtf8() {
  const char* locale = std::setlocale(LC_CTYPE, "");
  if (!locale || MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");
}

}  // namespace

Console::Console(std::vector<std::string> words) {
  const bool hasScreen = isatty(STDOUT_FILENO) == 1;
  coloured_ = hasScreen && !std::getenv("NO_COLOR");
  useUtf8();
  if (hasScreen && isatty(STDIN_FILENO) == 1) {
    editor_ = std::make_unique<LineEditor>(stdout, std::move(words));
  }
}

void Console::show(Style style, std::string_view text) {
  shown_.push_back(harmless(text));
  if (shown_.size() > kRememberedLines) shown_.pop_front();

  const char* colour = coloured_ ? kColours[static_cast<std::size_t>(style)] : "";
  const char* end = *colour ? "\033[0m" : "";
  if (editor_) editor_->hide();
  std::printf("%s%s%s\n", colour, shown_.back().c_str(), end);
  std::fflush(stdout);
  if (editor_) editor_->redraw();
}

void Console::setPrompt(const std::string& prompt) {
  if (editor_) editor_->setPrompt(prompt);
}

bool Console::wait(int otherFd, bool wantInput, std::chrono::milliseconds longest) {
  std::array<pollfd, 2> fds = {
      {{otherFd, POLLIN, 0}, {wantInput && !ended_ ? STDIN_FILENO : -1, POLLIN, 0}}};
  if (poll(fds.data(), fds.size(), static_cast<int>(longest.count())) < 0) return false;
  if (fds[1].revents != 0) readInput();
  if (fds[1].revents & (POLLHUP | POLLERR)) ended_ = editor_ || ended_;
  return fds[0].revents != 0;
}

std::optional<std::string> Console::nextLine() {
  if (lines_.empty()) return std::nullopt;
  std::string line = std::move(lines_.front());
  lines_.pop_front();
  return line;
}

bool Console::findShown(std::string_view text) {
  const auto found = std::find_if(shown_.begin(), shown_.end(), [&](const std::string& line) {
    return line.find(text) != line.npos;
  });
  if (found == shown_.end()) return false;
  shown_.erase(found);
  return true;
}

void Console::readInput() {
  if (!editor_) return readScript();
  std::string line;
  switch (editor_->readKey(line)) {
    case LineEditor::Event::none:
      break;
    case LineEditor::Event::line:
      lines_.push_back(std::move(line));
      break;
    case LineEditor::Event::end:
      ended_ = true;
      break;
  }
}

void Console::readScript() {
  ended_ = !readAvailable(STDIN_FILENO, partOfLine_);
  if (ended_ && !partOfLine_.empty()) partOfLine_ += '\n';
  while (auto line = takeLine(partOfLine_)) lines_.push_back(std::move(*line));
}
