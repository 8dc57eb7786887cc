#include <bit>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/error.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_stack.hpp>
#include <charconv>
#include <cmath>
#include <limits>

#include "extensions/JSONCoding.h"
#include "extensions/JSONPrinter.h"

namespace koriva::json {
namespace {

using boost::json::error;
using boost::system::error_code;
using detail::Field;
using detail::Kind;
using detail::Record;
using detail::Rest;
using detail::Type;

/// How deep values may nest, and documents within the texts of a document.
constexpr std::size_t maxDepth = 64;

struct Integer {
  bool isNegative;
  std::uint64_t magnitude;
};

Integer integerOf(std::int64_t value) {
  const auto bits = static_cast<std::uint64_t>(value);
  return {value < 0, value < 0 ? 0 - bits : bits};
}

bool timesTen(std::uint64_t& value, std::int64_t power) {
  for (; power > 0; --power) {
    if (value > std::numeric_limits<std::uint64_t>::max() / 10) return false;
    value *= 10;
  }
  return true;
}

/// The integer that a JSON number with a fraction or an exponent denotes, computed without a
/// detour through double; nothing when it denotes none of 64 bits.
std::optional<Integer> exactInteger(std::string_view number) {
  const bool isNegative = number.front() == '-';
  if (isNegative) number.remove_prefix(1);
  std::int64_t exponent = 0;
  if (const auto e = number.find_first_of("eE"); e != std::string_view::npos) {
    std::string_view digits = number.substr(e + 1);
    if (digits.front() == '+') digits.remove_prefix(1);
    const auto [end, failure] =
        std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
    if (failure != std::errc{}) return std::nullopt;
    number = number.substr(0, e);
  }
  if (const auto point = number.find('.'); point != std::string_view::npos) {
    exponent -= static_cast<std::int64_t>(number.size() - point - 1);
  }
  std::uint64_t magnitude = 0;
  std::int64_t zeros = 0;
  for (const char c : number) {
    if (c == '.') continue;
    if (c == '0') {
      ++zeros;
      continue;
    }
    if (magnitude != 0 && !timesTen(magnitude, zeros)) return std::nullopt;
    zeros = 0;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (!timesTen(magnitude, 1) || magnitude > std::numeric_limits<std::uint64_t>::max() - digit) {
      return std::nullopt;
    }
    magnitude += digit;
  }
  if (magnitude == 0) return Integer{isNegative, 0};
  exponent += zeros;
  if (exponent < 0 || !timesTen(magnitude, exponent)) return std::nullopt;
  return Integer{isNegative, magnitude};
}

/// The double nearest to a JSON number: Boost 1.81 misrounds, and serves only where the standard
/// library reports what overflows and underflows.
double nearestDouble(std::string_view number, double misrounded) {
  double value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  return result.ec == std::errc{} ? value : misrounded;
}

void* open(const Type& type, void* member) { return type.open ? type.open(member) : member; }

bool putInteger(const Type& type, void* member, Integer integer) {
  constexpr auto signedMax = std::uint64_t{std::numeric_limits<std::int64_t>::max()};
  const auto [isNegative, magnitude] = integer;
  switch (type.kind) {
    case Kind::signedInteger:
      if (magnitude > signedMax + (isNegative ? 1 : 0)) return false;
      *static_cast<std::int64_t*>(open(type, member)) =
          static_cast<std::int64_t>(isNegative ? 0 - magnitude : magnitude);
      return true;
    case Kind::unsignedInteger:
      if (isNegative && magnitude != 0) return false;
      *static_cast<std::uint64_t*>(open(type, member)) = magnitude;
      return true;
    case Kind::real: {
      const auto value = static_cast<double>(magnitude);
      *static_cast<double*>(open(type, member)) = isNegative ? -value : value;
      return true;
    }
    default:
      return false;
  }
}

bool putReal(const Type& type, void* member, double value) {
  if (type.kind != Kind::real || !std::isfinite(value)) return false;
  *static_cast<double*>(open(type, member)) = value;
  return true;
}

bool putBoolean(const Type& type, void* member, bool value) {
  if (type.kind != Kind::boolean) return false;
  *static_cast<bool*>(open(type, member)) = value;
  return true;
}

void putDefault(const Field& field, void* record) {
  const Type& type = *field.type;
  void* member = field.member(record);
  if (const auto* text = std::get_if<std::string_view>(&field.fallback)) {
    if (type.kind == Kind::text) *static_cast<std::string*>(open(type, member)) = *text;
  } else if (const auto* integer = std::get_if<std::int64_t>(&field.fallback)) {
    putInteger(type, member, integerOf(*integer));
  } else if (const auto* real = std::get_if<double>(&field.fallback)) {
    putReal(type, member, *real);
  } else if (const auto* boolean = std::get_if<bool>(&field.fallback)) {
    putBoolean(type, member, *boolean);
  }
}

/// Most keys are short enough to be compared by their ends.
bool isSameKey(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  if (size < 8 || size > 16) return a == b;
  return detail::loadBytes(a.data(), 8) == detail::loadBytes(b.data(), 8) &&
         detail::loadBytes(a.data() + size - 8, 8) == detail::loadBytes(b.data() + size - 8, 8);
}

const Field* findField(const Record& record, std::string_view key) {
  if (record.fieldCount == 0) return nullptr;
  const auto bucket =
      record.buckets[(detail::hashOf(key) * record.multiplier) >> record.bucketShift];
  if (bucket == 0) return nullptr;
  const Field& field = record.fields[bucket - 1];
  return isSameKey(field.key, key) ? &field : nullptr;
}

/// Receives the events of the parser and writes what they say straight into a value, or into a
/// stack of dynamic values.
class Handler {
 public:
  static constexpr std::size_t max_array_size = std::string_view::npos;
  static constexpr std::size_t max_object_size = std::string_view::npos;
  static constexpr std::size_t max_string_size = std::string_view::npos;
  static constexpr std::size_t max_key_size = std::string_view::npos;
  using Text = boost::json::string_view;

  Handler(const Type& type, void* value) : type_(&type), member_(value) {}

  /// Dynamic values are collected where typed reading skips, so that it pays nothing for them.
  explicit Handler(boost::json::value_stack& values) : skipped_(1), values_(&values) {}

  /// Keeps nothing, and so only finds out whether the text is JSON.
  Handler() : skipped_(1), isCheck_(true) {}

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_comment_part(Text, error_code&) { return true; }
  bool on_comment(Text, error_code&) { return true; }
  bool on_number_part(Text, error_code&) { return true; }

  bool on_object_begin(error_code& ec) { return begin(Kind::record, Kind::textMap, ec); }
  bool on_array_begin(error_code& ec) { return begin(Kind::records, Kind::texts, ec); }

  bool on_object_end(std::size_t count, error_code& ec) {
    if (skipped_ == 0) return top().kind == Kind::record ? endRecord(ec) : pop();
    if (values_) values_->push_object(count);
    --skipped_;
    return true;
  }

  bool on_array_end(std::size_t count, error_code&) {
    if (skipped_ == 0) return pop();
    if (values_) values_->push_array(count);
    --skipped_;
    return true;
  }

  bool on_key_part(Text part, std::size_t, error_code&) {
    if (values_) values_->push_chars(part);
    if (skipped_ == 0) key_ += part;
    return true;
  }

  bool on_key(Text part, std::size_t, error_code&) {
    if (skipped_ != 0) {
      if (values_) values_->push_key(part);
      return true;
    }
    if (key_.empty()) {
      useKey(part);
    } else {
      key_ += part;
      useKey(key_);
      key_.clear();
    }
    return true;
  }

  bool on_string_part(Text part, std::size_t, error_code& ec) {
    if (values_) values_->push_chars(part);
    if (!isInText_) {
      isInText_ = true;
      if (!beginText(ec)) return false;
    }
    if (text_) *text_ += part;
    return true;
  }

  bool on_string(Text part, std::size_t, error_code& ec) {
    if (values_) values_->push_string(part);
    if (!isInText_ && !beginText(ec)) return false;
    isInText_ = false;
    if (text_) *text_ += part;
    return true;
  }

  bool on_int64(std::int64_t value, Text, error_code& ec) {
    if (values_) values_->push_int64(value);
    return put(ec, [&](const Type& type, void* member) {
      return putInteger(type, member, integerOf(value));
    });
  }

  bool on_uint64(std::uint64_t value, Text, error_code& ec) {
    if (values_) values_->push_uint64(value);
    return put(ec, [&](const Type& type, void* member) {
      return putInteger(type, member, {false, value});
    });
  }

  bool on_double(double misrounded, Text number, error_code& ec) {
    if (values_ || isCheck_) {
      const double value = nearestDouble(number, misrounded);
      if (!std::isfinite(value)) return fail(ec, error::not_exact);
      if (values_) values_->push_double(value);
      return true;
    }
    return put(ec, [&](const Type& type, void* member) {
      if (type.kind == Kind::real) return putReal(type, member, nearestDouble(number, misrounded));
      const auto integer = exactInteger(number);
      return integer && putInteger(type, member, *integer);
    });
  }

  bool on_bool(bool value, error_code& ec) {
    if (values_) values_->push_bool(value);
    return put(ec, [&](const Type& type, void* member) { return putBoolean(type, member, value); });
  }

  bool on_null(error_code& ec) {
    if (values_) values_->push_null();
    return put(ec, [](const Type&, void*) { return false; });
  }

 private:
  /// A record, list or map that is being read.
  struct Level {
    Kind kind;
    std::uint8_t field;    ///< of a record: the one whose value is being read
    const Record* record;  ///< of a record or of a list's elements
    void* value;
    std::uint64_t present;  ///< of a record: one bit a field that has its value
  };

  Level& top() { return levels_[depth_ - 1]; }

  bool pop() {
    --depth_;
    return true;
  }

  void push(Kind kind, const Record* record, void* value) {
    levels_[depth_++] = {kind, 0, record, value, 0};
  }

  static bool fail(error_code& ec, error reason) {
    ec = make_error_code(reason);
    return false;
  }

  /// Whether the next value belongs to `type_` and `member_`: a record's or the root's does.
  bool isAtMember() const { return depth_ == 0 || levels_[depth_ - 1].kind == Kind::record; }

  bool begin(Kind ofRecords, Kind ofTexts, error_code& ec) {
    if (skipped_ != 0) {
      ++skipped_;
      return true;
    }
    if (isAtMember()) {
      if (!type_) {
        skipped_ = 1;
        return true;
      }
      if (type_->kind == ofRecords) {
        push(ofRecords, type_->record, open(*type_, member_));
        return true;
      }
      if (type_->kind == ofTexts) {
        push(ofTexts, nullptr, open(*type_, member_));
        return true;
      }
    } else if (ofRecords == Kind::record && top().kind == Kind::records) {
      const Record& record = *top().record;
      push(Kind::record, &record, record.append(top().value));
      return true;
    }
    return mismatch(1, ec);
  }

  void useKey(std::string_view key) {
    Level& level = top();
    if (level.kind == Kind::textMap) {
      text_ = &(*static_cast<std::map<std::string, std::string>*>(level.value))[std::string(key)];
      return;
    }
    const Field* field = findField(*level.record, key);
    if (!field) {
      type_ = nullptr;
      return;
    }
    type_ = field->type;
    member_ = field->member(level.value);
    level.field = static_cast<std::uint8_t>(field - level.record->fields);
    const auto bit = std::uint64_t{1} << level.field;
    if ((level.present & bit) != 0) makePristine(level);  // the last of equal keys wins
    level.present |= bit;
  }

  /// Finds the text that the string now beginning goes to; none when it is skipped.
  bool beginText(error_code& ec) {
    std::string* const mapped = text_;
    text_ = nullptr;
    if (skipped_ != 0) return true;
    if (isAtMember()) {
      if (!type_) return true;
      if (type_->kind != Kind::text) return mismatch(0, ec);
      text_ = static_cast<std::string*>(open(*type_, member_));
      text_->clear();  // of its default
    } else if (top().kind == Kind::texts) {
      auto& texts = *static_cast<std::vector<std::string>*>(top().value);
      if (texts.capacity() == 0) texts.reserve(4);
      text_ = &texts.emplace_back();
    } else if (top().kind == Kind::textMap) {
      text_ = mapped;
      text_->clear();
    } else {
      return mismatch(0, ec);
    }
    return true;
  }

  template <class Put>
  bool put(error_code& ec, const Put& put) {
    if (skipped_ != 0) return true;
    if (isAtMember()) {
      if (!type_ || put(*type_, member_)) return true;
    }
    return mismatch(0, ec);
  }

  bool endRecord(error_code& ec) {
    const Level& level = top();
    const Record& record = *level.record;
    if ((record.required & ~level.present) != 0) {
      pop();
      return mismatch(0, ec);
    }
    for (auto absent = record.defaulted & ~level.present; absent != 0; absent &= absent - 1) {
      putDefault(record.fields[std::countr_zero(absent)], level.value);
    }
    if (record.afterDecoding) record.afterDecoding(level.value);
    return pop();
  }

  /// The value now at hand is of the wrong type: gives the innermost member that it is part of
  /// its default, and skips what is left of that member's value, of which `opened` levels are
  /// not on our stack.
  bool mismatch(std::size_t opened, error_code& ec) {
    for (; !isAtMember(); pop()) ++opened;
    if (depth_ == 0) return fail(ec, error::not_object);
    Level& level = top();
    makePristine(level);
    level.present &= ~(std::uint64_t{1} << level.field);
    skipped_ = opened;
    return true;
  }

  /// Gives the member that is being read its initial value.
  static void makePristine(const Level& level) {
    const Field& field = level.record->fields[level.field];
    // Only read, but found with the function that serves writing too.
    void* pristine = const_cast<void*>(level.record->pristine());
    field.type->assign(field.member(level.value), field.member(pristine));
  }

  const Type* type_ = nullptr;  ///< null: the value of an unknown key
  void* member_ = nullptr;
  std::string* text_ = nullptr;
  std::size_t skipped_ = 0;  ///< levels open in a value that is skipped
  std::size_t depth_ = 0;
  boost::json::value_stack* values_ = nullptr;
  bool isCheck_ = false;
  std::string key_;
  bool isInText_ = false;
  Level levels_[maxDepth];
};

/// Of the text, leaves what has been read.
template <class... Target>
error_code parseOnce(std::string_view& json, Rest rest, Target&... target) {
  boost::json::parse_options options;
  options.max_depth = maxDepth;
  boost::json::basic_parser<Handler> parser(options, target...);
  error_code ec;
  const std::size_t used = parser.write_some(false, json.data(), json.size(), ec);
  const auto left = json.substr(used);
  json = json.substr(0, used);
  if (ec || left.empty() || (rest == Rest::afterComma && left.front() == ',')) return ec;
  return make_error_code(error::extra_data);
}

bool isHighSurrogate(unsigned unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(unsigned unit) { return unit >= 0xDC00 && unit < 0xE000; }

/// The UTF-16 unit of an escape at this place; 0 when there is none.
unsigned escapedUnit(std::string_view json, std::size_t at) {
  if (at + 6 > json.size() || json[at] != '\\' || json[at + 1] != 'u') return 0;
  unsigned unit = 0;
  const char* const end = json.data() + at + 6;
  const auto result = std::from_chars(end - 4, end, unit, 16);
  return result.ec == std::errc{} && result.ptr == end ? unit : 0;
}

void empty(const Type& type, void* value) { type.reset(value); }
void empty(boost::json::value_stack& values) { values.reset(); }
void empty() {}

// Once the value is complete, what follows is no reason to read it again: documents within
// documents would be read 2, 4, 8 ... times.
template <class... Target>
error_code parse(std::string_view& json, Rest rest, Target&... target) {
  const auto all = json;
  const error_code ec = parseOnce(json, rest, target...);
  if (!ec || ec == error::not_object || ec == error::extra_data) return ec;
  const auto repaired = withoutLoneSurrogates(all);
  if (!repaired) return ec;
  empty(target...);
  std::string_view text = *repaired;
  const error_code second = parseOnce(text, rest, target...);
  json = all.substr(0, text.size());  // a repair leaves everything in its place
  return second;
}

/// Counts the documents that are being read within one another on this thread.
class Nesting {
 public:
  Nesting() { ++count_; }
  ~Nesting() { --count_; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
  bool isTooDeep() const { return count_ > maxDepth + 1; }

 private:
  static thread_local std::size_t count_;
};
thread_local std::size_t Nesting::count_ = 0;

}  // namespace

namespace detail {

error_code decode(Rest rest, const Type& type, void* value, std::string_view json) {
  const Nesting nesting;
  if (nesting.isTooDeep()) return make_error_code(error::too_deep);
  return parse(json, rest, type, value);
}

error_code mismatch() { return make_error_code(error::not_object); }

}  // namespace detail

std::optional<boost::json::value> parseValue(std::string_view json) {
  boost::json::value_stack values;
  values.reset();
  if (parse(json, Rest::none, values)) return std::nullopt;
  return values.release();
}

std::optional<std::string_view> firstText(std::string_view items) {
  if (parse(items, Rest::afterComma)) return std::nullopt;
  return items;
}

std::optional<std::string> withoutLoneSurrogates(std::string_view text) {
  std::optional<std::string> repaired;
  for (std::size_t i = text.find('\\'); i != std::string_view::npos; i = text.find('\\', i)) {
    const unsigned unit = escapedUnit(text, i);
    if (isHighSurrogate(unit) && isLowSurrogate(escapedUnit(text, i + 6))) {
      i += 12;
    } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
      if (!repaired) repaired = text;
      repaired->replace(i, 6, "\\ufffd");
      i += 6;
    } else {
      i += 2;
    }
  }
  return repaired;
}

std::optional<boost::json::object> parseDictionary(std::string_view json) {
  auto value = parseValue(json);
  if (!value || !value->is_object()) return std::nullopt;
  return std::move(value->get_object());
}

}  // namespace koriva::json
