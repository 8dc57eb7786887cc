#include "extensions/JSONPrinter.h"

#include <boost/json/value.hpp>

#include "extensions/JSONCoding.h"

namespace koriva::json {
namespace {

using Value = boost::json::value;

/// Prints containers one member a line, or all on one line and in square brackets.
class Printer {
 public:
  Printer(std::string& out, bool isOverLines) : out_(out), isOverLines_(isOverLines) {}

  void print(const Value& value) {
    if (const auto* object = value.if_object()) {
      print(*object);
    } else if (const auto* array = value.if_array()) {
      printItems(*array, "[]", [this](const Value& item) { print(item); });
    } else if (!write(out_, value, InvalidText::replace)) {
      out_ += "null";
    }
  }

  void print(const boost::json::object& object) {
    printItems(object, isOverLines_ ? "{}" : "[]", [this](const auto& member) {
      print(Value(member.key()));
      out_ += ": ";
      print(member.value());
    });
  }

 private:
  template <class Items, class PrintItem>
  void printItems(const Items& items, std::string_view brackets, const PrintItem& printItem) {
    out_ += brackets.front();
    ++depth_;
    bool isFirst = true;
    for (const auto& item : items) {
      if (!isFirst) out_ += isOverLines_ ? "," : ", ";
      isFirst = false;
      breakLine();
      printItem(item);
    }
    --depth_;
    if (!isFirst) breakLine();
    out_ += brackets.back();
  }

  void breakLine() {
    if (isOverLines_) out_.append("\n").append(2 * depth_, ' ');
  }

  std::string& out_;
  bool isOverLines_;
  std::size_t depth_ = 0;
};

}  // namespace

std::optional<std::string> prettyPrinted(std::string_view items) {
  const auto value = parseFirst(items);
  if (!value) return std::nullopt;
  std::string printed;
  Printer(printed, true).print(*value);
  return printed;
}

std::string printedForm(const boost::json::value& value) {
  std::string printed;
  Printer(printed, false).print(value);
  return printed;
}

}  // namespace koriva::json
