#include "extensions/JSONItems.h"

#include <utility>

#include "extensions/JSONReader.h"

namespace koriva::json {
namespace {

/// Writes JSON with other white space, indented or none, while it is read.
class Printer {
 public:
  Printer(std::string_view items, bool isIndented, std::size_t limit)
      : items_(items), reader_(items), isIndented_(isIndented), limit_(limit) {
    if (!isIndented) out_.reserve(limit);
  }

  /// Reads the items; null when they are not JSON, or the first would be longer than the limit.
  const char* print() {
    const char* const end = value(reader_.skipSpace(items_.data()));
    return end && !hasReachedLimit() ? reader_.itemsEnd(end) : nullptr;
  }

  bool hasReachedLimit() const { return out_.size() > limit_; }
  std::string printed() && { return std::move(out_); }

 private:
  const char* value(const char* at) {
    if (hasReachedLimit()) return nullptr;
    switch (reader_.peek(at)) {
      case '"':
        return text(at + 1);
      case '{':
        return sequence('{', '}', [&](const auto& beginOne) {
          return reader_.members(at + 1, [&](const char* key) {
            beginOne();
            const char* const member = reader_.colon(text(key));
            out_ += isIndented_ ? ": " : ":";
            return member ? value(member) : nullptr;
          });
        });
      case '[':
        return sequence('[', ']', [&](const auto& beginOne) {
          return reader_.elements(at + 1, [&](const char* element) {
            beginOne();
            return value(element);
          });
        });
      default: {
        const char* const end = reader_.skip(at);
        if (end) out_.append(at, end);
        return end;
      }
    }
  }

  template <class Read>
  const char* sequence(char opening, char closing, const Read& read) {
    out_ += opening;
    depth_ += 2;
    bool isEmpty = true;
    const char* const end = read([&] {
      if (!std::exchange(isEmpty, false)) out_ += ',';
      breakLine();
    });
    depth_ -= 2;
    if (!isEmpty) breakLine();
    out_ += closing;
    return end;
  }

  void breakLine() {
    if (isIndented_) out_.append("\n").append(depth_, ' ');
  }

  const char* text(const char* at) {
    const char* const end = reader_.text(at, text_);
    if (end) appendText(out_, text_);
    return end;
  }

  std::string_view items_;
  Reader reader_;
  bool isIndented_;
  std::size_t limit_;
  std::size_t depth_ = 0;
  std::string text_;
  std::string out_;
};

}  // namespace

bool areItems(std::string_view text) {
  Reader reader(text);
  const char* const at = reader.skip(reader.skipSpace(text.data()));
  return at && reader.itemsEnd(at);
}

std::optional<std::string> firstText(std::string_view items) {
  Reader reader(items);
  const char* const at = reader.skipSpace(items.data());
  if (reader.peek(at) != '"') return std::nullopt;
  std::string text;
  const char* const end = reader.text(at + 1, text);
  return end && reader.itemsEnd(end) ? std::optional(std::move(text)) : std::nullopt;
}

bool isFirstText(std::string_view items, std::string_view text) {
  constexpr std::size_t longestEscape = 6;
  Reader reader(items);
  const char* const at = reader.skipSpace(items.data());
  if (reader.peek(at) != '"') return false;
  const char* const end = reader.skipText(at + 1);
  if (!end || static_cast<std::size_t>(end - at) > longestEscape * text.size() + 2) return false;
  return firstText(items) == text;
}

std::optional<std::string> prettyPrinted(std::string_view items) {
  constexpr std::size_t maxIndented = std::size_t{64} << 10;
  Printer indented(items, true, maxIndented);
  if (indented.print()) return std::move(indented).printed();
  if (!indented.hasReachedLimit()) return std::nullopt;
  Printer compact(items, false, items.size());
  if (compact.print()) return std::move(compact).printed();
  return std::nullopt;
}

}  // namespace koriva::json
