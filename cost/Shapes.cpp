#include "cost/Shapes.h"

#include <algorithm>
#include <cstdio>

namespace koriva::cost {
namespace {

using json::Coding;
using json::Kind;

/// `unit` makes the text that stands at a position; all are equally long.
template <class Unit>
Growing series(std::string begin, Unit unit, std::string end) {
  return
      [begin = std::move(begin), unit, end = std::move(end)](std::size_t size, std::size_t factor) {
        const std::size_t count = std::max<std::size_t>(size / unit(0).size(), 1) * factor;
        std::string text = begin;
        for (std::size_t i = 0; i < count; ++i) text += unit(i);
        return text += end;
      };
}

std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

/// Keys of equal length, with equal first and last bytes.
Growing collidingKeys(const std::string& value) {
  const auto member = [value](std::size_t i) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%09zu", i);
    return ",\"message_" + std::string(digits) + "_message\":" + value;
  };
  return series("{\"\":" + value, member, "}");
}

std::size_t leavesOf(const Coding& coding, bool isNested) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < coding.table->memberCount; ++i) {
    const Coding* const inner = coding.table->members[i].type->coding;
    count += isNested && inner ? leavesOf(*inner, true) : 1;
  }
  return count;
}

/// An object with all members, each of which is the value; nested: not those that hold records.
std::string objectOf(const Coding& coding, const std::string& value, bool isNested) {
  std::string object = "{";
  for (std::size_t i = 0; i < coding.table->memberCount; ++i) {
    const auto& [key, in, type, isWritten] = coding.table->members[i];
    object.append(i == 0 ? "\"" : ",\"").append(key).append("\":");
    if (!isNested || !type->coding) {
      object += value;
    } else if (type->kind == Kind::record) {
      object += objectOf(*type->coding, value, true);
    } else {
      object.append("[").append(objectOf(*type->coding, value, true)).append("]");
    }
  }
  object += "}";
  return object;
}

Shape inMembers(const Coding& coding, const Shape& shape, bool isNested) {
  const std::size_t leaves = leavesOf(coding, isNested);
  return {shape.name + (isNested ? " in nested members" : " in members"),
          [&coding, isNested, leaves, text = shape.text](std::size_t size, std::size_t factor) {
            return objectOf(coding, text(size / leaves, factor), isNested);
          }};
}

std::string smallestValue(const json::Type& type) {
  switch (type.kind) {
    case Kind::text:
      return "\"1e-300\"";  // a creation time of many digits
    case Kind::signedInteger:
    case Kind::unsignedInteger:
    case Kind::real:
      return "8";
    case Kind::boolean:
      return "true";
    case Kind::texts:
      return "[\"\"]";
    case Kind::textMap:
      return "{\"\":\"\"}";
    case Kind::record:
      return smallest(*type.coding);
    case Kind::records:
      return "[" + smallest(*type.coding) + "]";
  }
  return {};
}

}  // namespace

Growing repeated(std::string begin, std::string unit, std::string end) {
  return series(
      std::move(begin), [unit](std::size_t) { return unit; }, std::move(end));
}

std::string smallest(const Coding& coding) {
  std::string object = "{";
  for (std::size_t i = 0; i < coding.table->memberCount; ++i) {
    const json::Member& member = coding.table->members[i];
    object.append(i == 0 ? "\"" : ",\"").append(member.key).append("\":");
    object += smallestValue(*member.type);
  }
  object += "}";
  return object;
}

const std::vector<Shape>& values() {
  const auto lists = [](std::size_t depth) { return times(depth, "[") + times(depth, "]"); };
  const std::string deepObject = times(55, "{\"a\":") + "{}" + times(55, "}");
  static const std::vector<Shape> all{
      {"lists", repeated("[[]", ",[]", "]")},
      {"objects", repeated("[{}", ",{}", "]")},
      {"objects before a number", repeated("[{}", ",{}", ",1]")},
      {"texts", repeated("[\"\"", ",\"\"", "]")},
      {"texts before a number", repeated("[\"\"", ",\"\"", ",1]")},
      {"longer texts", repeated("[\"\"", ",\"0123456789abcdef\"", "]")},
      {"numbers", repeated("[0", ",0", "]")},
      {"reals", repeated("[0", ",2.2250738585072011e-308", "]")},
      {"nulls", repeated("[null", ",null", "]")},
      {"space", repeated("[", " ", "]")},
      {"deep lists", repeated("[0", "," + lists(56), "]")},
      {"deepest lists", repeated("[0", "," + lists(63), "]")},
      {"deep objects", repeated("[0", "," + deepObject, "]")},
      {"too deep lists", repeated("", "[", "")},
      {"too deep objects", repeated("", "{\"a\":", "")},
      {"colliding keys of texts", collidingKeys("\"\"")},
      {"colliding keys of lists", collidingKeys("[]")},
      {"colliding keys before a number",
       [](std::size_t size, std::size_t factor) {
         auto text = collidingKeys("\"\"")(size, factor);
         text.back() = ',';
         text += "\"a\":1}";
         return text;
       }},
      {"duplicate keys", repeated("{\"a\":\"\"", ",\"a\":\"0123456789abcdef\"", "}")},
      {"duplicate keys of lists", repeated("{\"a\":\"\"", ",\"a\":[[]]", "}")},
      {"long key", repeated("{\"", "a", "\":\"\"}")},
      {"long key of escapes", repeated("{\"", "\\u0041", "\":\"\"}")},
      {"long text", repeated("\"", "a", "\"")},
      {"text without end", repeated("\"", "a", "")},
      {"text of other scripts", repeated("\"", "\xC3\xA9", "\"")},
      {"escapes", repeated("\"", "\\u0041", "\"")},
      {"short escapes", repeated("\"", "\\\"", "\"")},
      {"escaped controls", repeated("\"", "\\u0001", "\"")},
      {"surrogates", repeated("\"", "\\ud83d\\ude00", "\"")},
      {"lone surrogates", repeated("\"", "\\ud83d", "\"")},
      {"texts of escapes", repeated("[\"\"", ",\"\\u0041\"", "]")},
      {"digits", repeated("1", "1", "")},
      {"zeros", repeated("1", "0", "")},
      {"digits behind the point", repeated("0.1", "1", "")},
      {"zeros behind the point", repeated("0.", "0", "1")},
      {"digits of an exponent", repeated("1e1", "1", "")},
      {"zeros of an exponent", repeated("1e", "0", "1")},
      {"digits of a negative exponent", repeated("1e-1", "1", "")},
      {"zeros and their exponent", repeated("1", "0", "e-9")},
  };
  return all;
}

std::vector<Shape> objectsOf(const Coding& coding) {
  std::vector<Shape> shapes;
  const bool hasNested = leavesOf(coding, true) != leavesOf(coding, false);
  for (const Shape& value : values()) {
    shapes.push_back(value);
    if (coding.table->memberCount == 0) continue;
    shapes.push_back(inMembers(coding, value, false));
    if (hasNested) shapes.push_back(inMembers(coding, value, true));
  }
  for (std::size_t i = 0; i < coding.table->memberCount; ++i) {
    const json::Type& type = *coding.table->members[i].type;
    const std::string key(coding.table->members[i].key);
    const std::string member = "\"" + key + "\":";
    const std::string value = smallestValue(type);
    shapes.push_back({"duplicates of " + key, repeated("{\"\":0", "," + member + value, "}")});
    shapes.push_back({"right and wrong duplicates of " + key,
                      repeated("{\"\":0", "," + member + value + "," + member + "null", "}")});
    if (type.kind != Kind::records) continue;
    const std::string record = smallest(*type.coding);
    shapes.push_back({"small " + key, repeated("{" + member + "[{}", "," + record, "]}")});
  }
  return shapes;
}

Shape within(const std::string& name, const std::string& begin, const Shape& shape,
             const std::string& end) {
  return {name + " of " + shape.name,
          [begin, text = shape.text, end](std::size_t size, std::size_t factor) {
            return begin + text(size, factor) + end;
          }};
}

Shape quoted(const Shape& shape) {
  return {"quoted " + shape.name, [text = shape.text](std::size_t size, std::size_t factor) {
            std::string quotation = "\"";
            for (const char c : text(size, factor)) {
              if (c == '"') {
                quotation += "\\u0022";
              } else if (c == '\\') {
                quotation += "\\u005c";
              } else {
                quotation += c;
              }
            }
            quotation += '"';
            return quotation;
          }};
}

}  // namespace koriva::cost
