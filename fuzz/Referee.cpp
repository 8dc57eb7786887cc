#include "fuzz/Referee.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace koriva::fuzz {
namespace {

using boost::json::kind;
using boost::system::error_code;
using json::Coding;
using json::Kind;
using json::Room;
using json::Type;

/// Makes values of what the parser finds.
class Builder {
 public:
  static constexpr std::size_t max_array_size = std::string_view::npos;
  static constexpr std::size_t max_object_size = std::string_view::npos;
  static constexpr std::size_t max_string_size = std::string_view::npos;
  static constexpr std::size_t max_key_size = std::string_view::npos;
  using Text = boost::json::string_view;

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_comment_part(Text, error_code&) { return true; }
  bool on_comment(Text, error_code&) { return true; }
  bool on_object_begin(error_code&) { return open(kind::object); }
  bool on_object_end(std::size_t, error_code&) { return close(); }
  bool on_array_begin(error_code&) { return open(kind::array); }
  bool on_array_end(std::size_t, error_code&) { return close(); }
  bool on_key_part(Text part, std::size_t, error_code&) { return append(part); }
  bool on_key(Text part, std::size_t, error_code&) {
    append(part);
    open_.back().key = std::exchange(text_, {});
    return true;
  }
  bool on_string_part(Text part, std::size_t, error_code&) { return append(part); }
  bool on_string(Text part, std::size_t, error_code&) { return put(kind::string, part); }
  bool on_number_part(Text part, error_code&) { return append(part); }
  bool on_int64(std::int64_t, Text part, error_code&) { return put(kind::int64, part); }
  bool on_uint64(std::uint64_t, Text part, error_code&) { return put(kind::uint64, part); }
  bool on_double(double, Text part, error_code&) { return put(kind::double_, part); }
  bool on_bool(bool value, error_code&) { return put(kind::bool_, value ? "true" : "false"); }
  bool on_null(error_code&) { return put(kind::null, {}); }

  Value root;

 private:
  struct Open {
    Value value;
    std::string key;  ///< of an object: of the member that comes next
  };

  bool append(Text part) {
    text_ += part;
    return true;
  }

  bool put(kind kind, Text part) {
    append(part);
    return put(Value{kind, std::exchange(text_, {}), {}, {}});
  }

  bool put(Value value) {
    if (open_.empty()) {
      root = std::move(value);
    } else if (auto& [parent, key] = open_.back(); parent.kind == kind::object) {
      parent.members.emplace(key, std::move(value));
    } else {
      parent.elements.push_back(std::move(value));
    }
    return true;
  }

  bool open(kind kind) {
    open_.push_back({Value{kind, {}, {}, {}}, {}});
    return true;
  }

  bool close() {
    Value value = std::move(open_.back().value);
    open_.pop_back();
    return put(std::move(value));
  }

  std::vector<Open> open_;
  std::string text_;
};

/// The UTF-16 unit of an escape at this place; 0 when there is none.
unsigned escapedUnit(std::string_view json, std::size_t at) {
  if (at + 6 > json.size() || json.substr(at, 2) != "\\u") return 0;
  unsigned unit = 0;
  const char* const end = json.data() + at + 6;
  const auto result = std::from_chars(end - 4, end, unit, 16);
  return result.ec == std::errc{} && result.ptr == end ? unit : 0;
}

bool isHighSurrogate(unsigned unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(unsigned unit) { return unit >= 0xDC00 && unit < 0xE000; }

std::string withoutLoneSurrogates(std::string_view json) {
  std::string repaired(json);
  for (std::size_t i = json.find('\\'); i != std::string_view::npos; i = json.find('\\', i)) {
    const unsigned unit = escapedUnit(json, i);
    if (isHighSurrogate(unit) && isLowSurrogate(escapedUnit(json, i + 6))) {
      i += 12;
    } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
      repaired.replace(i, 6, "\\ufffd");
      i += 6;
    } else {
      i += 2;
    }
  }
  return repaired;
}

Document parse(std::string_view json, std::size_t maxDepth) {
  const std::string repaired = withoutLoneSurrogates(json);
  boost::json::parse_options options;
  options.max_depth = maxDepth;
  boost::json::basic_parser<Builder> parser(options);
  error_code error;
  const std::size_t used = parser.write_some(false, repaired.data(), repaired.size(), error);
  if (error == boost::json::error::exponent_overflow) return {std::nullopt, false};
  if (error || used != repaired.size()) return {};
  return {std::move(parser.handler().root)};
}

bool isNumber(const Value& value) {
  return value.kind == kind::int64 || value.kind == kind::uint64 || value.kind == kind::double_;
}

/// The digits of the integer that a number denotes, "0" at least; nothing when it denotes none, or
/// one of more than twenty digits.
std::optional<std::string> digitsOf(std::string_view number) {
  const auto e = std::min(number.find_first_of("eE"), number.size());
  const auto point = std::min(number.find('.'), e);
  std::string digits(number.substr(0, point));
  if (point != e) digits += number.substr(point + 1, e - point - 1);
  long long zeros = e == number.size() ? 0 : std::atoll(number.data() + e + 1);
  zeros -= static_cast<long long>(point == e ? 0 : e - point - 1);
  digits.erase(0, digits.find_first_not_of("-0"));
  if (digits.empty()) return "0";
  for (; digits.back() == '0'; ++zeros) digits.pop_back();
  if (zeros < 0 || zeros + static_cast<long long>(digits.size()) > 20) return std::nullopt;
  return digits.append(static_cast<std::size_t>(zeros), '0');
}

template <class Integer>
bool fillInteger(Integer& integer, const std::string& number) {
  auto digits = digitsOf(number);
  if (!digits) return false;
  if (number.front() == '-' && digits != "0") digits->insert(0, "-");
  const char* const end = digits->data() + digits->size();
  const auto result = std::from_chars(digits->data(), end, integer);
  return result.ec == std::errc{} && result.ptr == end;
}

bool fillReal(double& real, const Value& number) {
  real = realOf(number);
  return std::isfinite(real);
}

bool fillRecord(const Coding& coding, void* record, const Value& value, Room& room);

bool fillRecords(const Type& type, void* list, const Value& value, Room& room) {
  return std::ranges::all_of(value.elements, [&](const Value& element) {
    return fillRecord(*type.coding, type.list->append(list), element, room);
  });
}

bool fillText(std::string& text, const Value& value) {
  text = value.text;
  return value.kind == kind::string;
}

bool fillTexts(std::vector<std::string>& texts, const Value& value) {
  return std::ranges::all_of(value.elements, [&](const Value& element) {
    return fillText(texts.emplace_back(), element);
  });
}

bool fillMap(std::map<std::string, std::string>& map, const Value& value) {
  return std::ranges::all_of(value.members, [&](const auto& member) {
    return fillText(map[member.first], member.second);
  });
}

bool fillMember(const Type& type, void* member, const Value& value, Room& room) {
  if (type.open) member = type.open(member);
  switch (type.kind) {
    case Kind::text:
      return fillText(*static_cast<std::string*>(member), value);
    case Kind::signedInteger:
      return isNumber(value) && fillInteger(*static_cast<std::int64_t*>(member), value.text);
    case Kind::unsignedInteger:
      return isNumber(value) && fillInteger(*static_cast<std::uint64_t*>(member), value.text);
    case Kind::real:
      return isNumber(value) && fillReal(*static_cast<double*>(member), value);
    case Kind::boolean:
      *static_cast<bool*>(member) = value.text == "true";
      return value.kind == kind::bool_;
    case Kind::texts:
      return value.kind == kind::array &&
             fillTexts(*static_cast<std::vector<std::string>*>(member), value);
    case Kind::textMap:
      return value.kind == kind::object &&
             fillMap(*static_cast<std::map<std::string, std::string>*>(member), value);
    case Kind::record:
      return fillRecord(*type.coding, member, value, room);
    case Kind::records:
      return value.kind == kind::array && fillRecords(type, member, value, room);
  }
  return false;
}

bool fillRecord(const Coding& coding, void* record, const Value& value, Room& room) {
  if (value.kind != kind::object) return false;
  for (std::size_t i = 0; i < coding.table->memberCount; ++i) {
    const json::Member& member = coding.table->members[i];
    const Value* const said = memberOf(value, member.key);
    if (said && fillMember(*member.type, member.in(record), *said, room)) continue;
    if (coding.table->isStrict) return false;
    void* const pristine = const_cast<void*>(coding.table->pristine());
    member.type->assign(member.in(record), member.in(pristine));
  }
  if (coding.table->finish) coding.table->finish(record, room);
  return true;
}

}  // namespace

Document parse(std::string_view json) { return parse(json, 64); }

Document parseItems(std::string_view items) {
  Document list = parse("[" + std::string(items) + "]", 65);
  if (list.value && list.value->elements.empty()) list.value.reset();
  return list;
}

bool fill(const Coding& coding, void* record, const Value& value) {
  Room room(std::size_t{1} << 30);  // of memory there is enough here
  room.documents = 1;
  return fillRecord(coding, record, value, room);
}

const Value* memberOf(const Value& object, std::string_view key) {
  const auto [first, end] = object.members.equal_range(std::string(key));
  return first == end ? nullptr : &std::prev(end)->second;
}

double realOf(const Value& number) { return std::strtod(number.text.c_str(), nullptr); }

}  // namespace koriva::fuzz
