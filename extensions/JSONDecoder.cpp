#include <boost/json/value.hpp>
#include <cmath>
#include <limits>
#include <new>

#include "extensions/JSONItems.h"
#include "extensions/JSONReader.h"

namespace koriva::json {
namespace {

using boost::json::error;
using boost::system::error_code;
using detail::Table;

error_code outOfMemory() { return make_error_code(boost::system::errc::not_enough_memory); }

void* open(const Type& type, void* member) { return type.open ? type.open(member) : member; }

bool putInteger(const Type& type, void* member, Integer integer) {
  constexpr auto signedMax = std::uint64_t{std::numeric_limits<std::int64_t>::max()};
  const auto [isNegative, magnitude] = integer;
  if (type.kind == Kind::signedInteger) {
    if (magnitude > signedMax + (isNegative ? 1 : 0)) return false;
    *static_cast<std::int64_t*>(open(type, member)) =
        static_cast<std::int64_t>(isNegative ? 0 - magnitude : magnitude);
  } else {
    if (isNegative && magnitude != 0) return false;
    *static_cast<std::uint64_t*>(open(type, member)) = magnitude;
  }
  return true;
}

bool putNumber(const Type& type, void* member, const Number& number) {
  if (type.kind == Kind::signedInteger || type.kind == Kind::unsignedInteger) {
    const auto integer = number.integer();
    return integer && putInteger(type, member, *integer);
  }
  if (type.kind != Kind::real) return false;
  const double value = number.real();
  if (!std::isfinite(value)) return false;
  *static_cast<double*>(open(type, member)) = value;
  return true;
}

/// Whether a text that is no shorter begins as expected. Calls of memcmp cost more than most keys.
inline bool isSame(const char* text, std::string_view expected) {
  const std::size_t size = expected.size();
  if (size < 8) return std::memcmp(text, expected.data(), size) == 0;
  for (std::size_t i = 0; i + 8 < size; i += 8) {
    if (loadBytes(text + i, 8) != loadBytes(expected.data() + i, 8)) return false;
  }
  return loadBytes(text + size - 8, 8) == loadBytes(expected.data() + size - 8, 8);
}

const Member* findMember(const Table& table, std::string_view key) {
  const auto bucket = table.buckets[(hashOf(key) * table.multiplier) >> table.bucketShift];
  if (bucket == 0) return nullptr;
  const Member& member = table.members[bucket - 1];
  return member.key.size() == key.size() && isSame(key.data(), member.key) ? &member : nullptr;
}

/// Gives a member its initial value.
void makePristine(const Table& table, const Member& member, void* record) {
  // Only read, but found with the function that serves writing too.
  void* const pristine = const_cast<void*>(table.pristine());
  member.type->assign(member.in(record), member.in(pristine));
}

/// Reads a document straight into a value.
class Decoder : public Reader {
 public:
  Decoder(std::string_view json, Room& room)
      : Reader(json), room_(room), begin_(json.data()), size_(json.size()) {}

  const char* value(const char* at, const Type& type, void* member) {
    const char first = peek(at);
    switch (type.kind) {
      case Kind::text:
        if (first != '"') break;
        return text(at + 1, *static_cast<std::string*>(open(type, member)));
      case Kind::signedInteger:
      case Kind::unsignedInteger:
      case Kind::real: {
        if (first != '-' && !isDigit(first)) break;
        Number number;
        at = this->number(at, number);
        if (at && !putNumber(type, member, number)) isWrong_ = true;
        return at;
      }
      case Kind::boolean:
        if (first != 't' && first != 'f') break;
        *static_cast<bool*>(open(type, member)) = first == 't';
        return skip(at);
      case Kind::texts:
        if (first != '[') break;
        return texts(at + 1, open(type, member));
      case Kind::textMap:
        if (first != '{') break;
        return textMap(at + 1, open(type, member));
      case Kind::record:
        if (first != '{') break;
        return record(at + 1, *type.coding->table, open(type, member));
      case Kind::records:
        if (first != '[') break;
        return records(at + 1, type, open(type, member));
    }
    return skipWrong(at);
  }

  const char* record(const char* begin, const Table& table, void* record) {
    if (table.memberCount == 0) return skipWrong(begin - 1);  // of whole documents only
    std::uint64_t present = 0;
    std::size_t next = 0;
    const char* const end = members(begin, [&](const char* at) {
      const Member* member = nullptr;
      at = key(at, table, next, member);
      if (!at) return at;
      if (!member) return skip(at);
      const auto index = static_cast<std::size_t>(member - table.members);
      const auto bit = std::uint64_t{1} << index;
      next = index + 1;
      if ((present & bit) != 0) makePristine(table, *member, record);  // the last key wins
      present |= bit;
      at = value(at, *member->type, member->in(record));
      if (isWrong_) {
        isWrong_ = false;
        makePristine(table, *member, record);
        present &= ~bit;
      }
      return at;
    });
    if (!end) return nullptr;
    if (table.isStrict && present != ~std::uint64_t{0} >> (64 - table.memberCount)) {
      isWrong_ = true;
    } else if (table.finish) {
      table.finish(record, room_);
      if (room_.isExhausted()) return failForRoom();
    }
    return end;
  }

  const char* dynamic(const char* at, boost::json::value& value) {
    switch (peek(at)) {
      case '"':
        at = text(at + 1, text_);
        if (!at) return nullptr;
        value = text_;
        return room_.take(value.get_string().capacity()) ? at : failForRoom();
      case '{':
        return object(at + 1, value.emplace_object());
      case '[':
        return array(at + 1, value.emplace_array());
      case 't':
      case 'f':
        value = *at == 't';
        return skip(at);
      case 'n':
        return skip(at);
      default:
        return dynamicNumber(at, value);
    }
  }

  /// Whether what has been read is of another type than it has to be.
  bool isWrong() const { return isWrong_; }

  const char* begin() const { return skipSpace(begin_); }

 private:
  static constexpr std::size_t blockOverhead = 32;

  const char* failForRoom() { return fail(outOfMemory()); }

  const char* text(const char* at, std::string& out) {
    const std::size_t capacity = out.capacity();
    return takeRoom(Reader::text(at, out), out, capacity);
  }

  /// Passes on the place where a text ends, once there is room for what that took.
  const char* takeRoom(const char* at, const std::string& text, std::size_t capacityBefore) {
    if (text.capacity() == capacityBefore) return at;
    return room_.take(text.capacity() + blockOverhead) ? at : failForRoom();
  }

  /// Reads a key to its value. Servers mostly send keys in the order of the table: so the next one
  /// is tried first.
  const char* key(const char* at, const Table& table, std::size_t next, const Member*& member) {
    if (next < table.memberCount) {
      const std::string_view expected = table.members[next].keyToColon();
      if (left(at) >= expected.size() && isSame(at, expected)) {
        member = &table.members[next];
        return skipSpace(at + expected.size());
      }
    }
    if (const char* const stop = plainEnd(at)) {
      member = findMember(table, {at, stop});
      return colon(stop + 1);
    }
    at = text(at, text_);
    if (at) member = findMember(table, text_);
    return colon(at);
  }

  std::size_t left(const char* at) const { return size_ - static_cast<std::size_t>(at - begin_); }

  const char* skipWrong(const char* at) {
    isWrong_ = true;
    return skip(at);
  }

  /// Makes room for one more element of a list that may be full. While it grows, it is there twice.
  template <class Reserve>
  bool grow(std::size_t count, std::size_t& capacity, std::size_t next, std::size_t elementSize,
            const Reserve& reserve) {
    if (count < capacity) return true;
    if (!room_.take(next * elementSize)) return false;
    reserve(next);
    room_.giveBack(capacity * elementSize);
    capacity = next;
    return true;
  }

  const char* records(const char* begin, const Type& type, void* list) {
    const Table& table = *type.coding->table;
    const bool isPage = depth() == 1;
    std::size_t count = 0;
    std::size_t capacity = 0;
    return elements(begin, [&](const char* at) {
      if (isWrong_ || peek(at) != '{') return skipWrong(at);
      std::size_t next = count < 64 ? 4 * count + !count : 2 * count;
      if (isPage && count != 0) {
        // What has been read of a page suggests how many elements the rest of it has.
        const auto read = static_cast<std::size_t>(at - begin);
        next = std::min(count + 1 + left(at) * count / read, 16 * count);
      }
      const auto reserve = [&](std::size_t size) { type.list->reserve(list, size); };
      if (!grow(count++, capacity, next, table.size, reserve)) return failForRoom();
      return record(at + 1, table, type.list->append(list));
    });
  }

  const char* texts(const char* begin, void* list) {
    auto& texts = *static_cast<std::vector<std::string>*>(list);
    const auto reserve = [&](std::size_t size) { texts.reserve(size); };
    std::size_t capacity = 0;
    return elements(begin, [&](const char* at) {
      if (isWrong_ || peek(at) != '"') return skipWrong(at);
      const auto next = std::max<std::size_t>(2 * texts.size(), 4);
      if (!grow(texts.size(), capacity, next, sizeof(std::string), reserve)) return failForRoom();
      const char* const stop = plainEnd(at + 1);
      if (!stop) return text(at + 1, texts.emplace_back());
      // Made at once, as most are short.
      return takeRoom(stop + 1, texts.emplace_back(at + 1, stop), std::string().capacity());
    });
  }

  const char* textMap(const char* begin, void* member) {
    constexpr std::size_t nodeSize = 128;
    auto& map = *static_cast<std::map<std::string, std::string>*>(member);
    return members(begin, [&](const char* at) {
      at = colon(text(at, text_));
      if (!at) return at;
      if (isWrong_ || peek(at) != '"') return skipWrong(at);
      if (!room_.take(nodeSize + text_.size())) return failForRoom();
      return text(at + 1, map[text_]);
    });
  }

  const char* array(const char* begin, boost::json::array& array) {
    const auto reserve = [&](std::size_t size) { array.reserve(size); };
    std::size_t capacity = 0;
    return elements(begin, [&](const char* at) {
      const std::size_t next = array.size() + array.size() / 2 + 4;
      if (!grow(array.size(), capacity, next, sizeof(boost::json::value), reserve)) {
        return failForRoom();
      }
      return dynamic(at, array.emplace_back(nullptr));
    });
  }

  const char* object(const char* begin, boost::json::object& object) {
    constexpr std::size_t maxMembers = 4'096;
    constexpr std::size_t memberSize = 128;
    return members(begin, [&](const char* at) {
      at = colon(text(at, text_));
      if (!at) return at;
      if (!room_.take(memberSize + text_.size())) return failForRoom();
      boost::json::value& member = object[text_];
      if (object.size() > maxMembers) return fail(error::object_too_large);
      member = nullptr;
      return dynamic(at, member);
    });
  }

  const char* dynamicNumber(const char* at, boost::json::value& value) {
    Number number;
    if (peek(at) == '\0') return fail();
    at = this->number(at, number);
    if (!at) return nullptr;
    constexpr auto signedMax = std::uint64_t{std::numeric_limits<std::int64_t>::max()};
    const bool isInteger = number.text.find_first_of(".eE") == std::string_view::npos;
    const auto integer = isInteger ? number.integer() : std::nullopt;
    if (integer && integer->magnitude <= signedMax + (integer->isNegative ? 1 : 0)) {
      value = static_cast<std::int64_t>(integer->isNegative ? 0 - integer->magnitude
                                                            : integer->magnitude);
    } else if (integer && !integer->isNegative) {
      value = integer->magnitude;
    } else {
      value = number.real();
      if (!std::isfinite(value.get_double())) return fail(error::not_exact);
    }
    return at;
  }

  Room& room_;
  const char* begin_;
  std::size_t size_;
  bool isWrong_ = false;
  std::string text_;  ///< a key, or what is copied from here
};

enum class Rest { none, items };

/// Reads a value by a function, and what is behind it.
template <class Read>
error_code readAll(Decoder& decoder, Rest rest, const Read& read) {
  const char* at = read(decoder.begin());
  if (at) at = rest == Rest::none ? decoder.documentEnd(at) : decoder.itemsEnd(at);
  if (!at) return decoder.error();
  return decoder.isWrong() ? detail::mismatch() : error_code();
}

error_code decodeFields(const Coding& coding, void* record, std::string_view json, Room& room,
                        Rest rest) {
  if (room.documents > maxDepth) return make_error_code(error::too_deep);
  ++room.documents;
  Decoder decoder(json, room);
  const Type type{Kind::record, &coding};
  const auto error =
      readAll(decoder, rest, [&](const char* at) { return decoder.value(at, type, record); });
  --room.documents;
  return error;
}

/// A whole document, which has room of its own.
template <class Decode>
error_code decodeAlone(std::string_view json, const Decode& decode) {
  try {
    Room room(json.size());
    return decode(room);
  } catch (const std::bad_alloc&) {
    return outOfMemory();
  }
}

}  // namespace

namespace detail {

error_code decode(const Coding& coding, void* record, std::string_view json, Room& room) {
  if (coding.table->read) return coding.table->read(record, json, room);
  return decodeFields(coding, record, json, room, Rest::none);
}

error_code decode(const Coding& coding, void* record, std::string_view json) {
  return decodeAlone(json, [&](Room& room) { return decode(coding, record, json, room); });
}

error_code decodeFirst(const Coding& coding, void* record, std::string_view items) {
  return decodeAlone(
      items, [&](Room& room) { return decodeFields(coding, record, items, room, Rest::items); });
}

error_code mismatch() { return make_error_code(error::not_object); }

}  // namespace detail

std::optional<boost::json::value> parseValue(std::string_view json) {
  boost::json::value value;
  const auto error = decodeAlone(json, [&](Room& room) {
    Decoder decoder(json, room);
    return readAll(decoder, Rest::none, [&](const char* at) { return decoder.dynamic(at, value); });
  });
  if (error) return std::nullopt;
  return value;
}

std::optional<boost::json::object> parseDictionary(std::string_view json) {
  auto value = parseValue(json);
  if (!value || !value->is_object()) return std::nullopt;
  return std::move(value->get_object());
}

}  // namespace koriva::json
