#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "extensions/JSONCoding.h"
#include "extensions/JSONText.h"

/// \file
/// How records travel. The source of a record's family says so in a table:
/// ```
/// constinit const Coding KRStopCall::coding =
///     lenient<Field<"call_id", &KRStopCall::callId>, Field<"uin", &KRStopCall::uin>>;
/// ```
/// Members may be texts, std::int64_t, std::uint64_t, double, bool, lists of texts or of records,
/// maps from text to text, records, and std::optional of any of these; lists and maps have no
/// initial elements. Table order is writing order; an absent optional is not written.
///
/// A record that is only written calls its descriptor `encoding`, so that it cannot be read.

namespace koriva::json {

/// What a document and those within its texts may take together: 4 MiB and 32 times the document,
/// of which three times are for the text that is being read, which takes room only afterwards.
class Room {
 public:
  explicit Room(std::size_t documentSize)
      : bytes_(4'194'304 + 29 * static_cast<std::int64_t>(documentSize)) {}

  /// False once there is none left.
  bool take(std::size_t bytes) {
    bytes_ -= static_cast<std::int64_t>(bytes);
    return !isExhausted();
  }
  void giveBack(std::size_t bytes) { bytes_ += static_cast<std::int64_t>(bytes); }
  bool isExhausted() const { return bytes_ < 0; }

  /// How many documents are being read within one another.
  std::size_t documents = 0;

 private:
  std::int64_t bytes_;
};

enum class Kind : std::uint8_t {
  text,
  signedInteger,
  unsignedInteger,
  real,
  boolean,
  texts,
  textMap,
  record,
  records,
};

struct Elements {
  const void* first;
  std::size_t count;
};

/// How a list of records grows and is walked.
struct List {
  void (*reserve)(void* list, std::size_t count);
  void* (*append)(void* list);
  Elements (*elements)(const void* list);
};

/// What the coder must know of a member's type.
struct Type {
  Kind kind = Kind::text;
  /// Of a record, or of the elements of a list of records.
  const Coding* coding = nullptr;
  const List* list = nullptr;
  /// Makes room in an optional member and returns where its value goes; null for other types.
  void* (*open)(void* member) = nullptr;
  /// The value inside an optional, null when absent; null for other types.
  const void* (*peek)(const void* member) = nullptr;
  void (*assign)(void* member, const void* from) = nullptr;
};

struct Member {
  std::string_view key;  ///< stands in the text `,"key":`
  void* (*in)(void* record) = nullptr;
  const Type* type = nullptr;
  bool isWritten = true;

  std::string_view keyToColon() const { return {key.data(), key.size() + 2}; }
  std::string_view commaToColon() const { return {key.data() - 2, key.size() + 4}; }
};

namespace detail {

struct Table {
  const Member* members = nullptr;
  std::size_t memberCount = 0;
  const std::uint8_t* buckets = nullptr;  ///< index + 1; 0 is no member
  unsigned bucketShift = 0;
  std::uint64_t multiplier = 1;
  bool isStrict = false;  ///< all members are required
  std::size_t size = 0;
  const void* (*pristine)() = nullptr;
  void (*finish)(void* record, Room& room) = nullptr;
  bool (*write)(const void* record, std::string& out) = nullptr;
  /// Reads a whole document that says the record in other words.
  boost::system::error_code (*read)(void* record, std::string_view json, Room& room) = nullptr;
};

}  // namespace detail

/// Looks at the length, the first and the last eight bytes only, and leaves the mixing to the
/// multiplier of the table, which is chosen at compile time such that its keys do not collide.
constexpr std::uint64_t hashOf(std::string_view key) {
  const char* bytes = key.data();
  const std::size_t size = key.size();
  std::uint64_t head = 0;
  std::uint64_t tail = size;
  if (size >= 8) {
    head = loadBytes(bytes, 8);
    tail ^= loadBytes(bytes + size - 8, 8);
  } else if (size >= 4) {
    head = loadBytes(bytes, 4);
    tail ^= loadBytes(bytes + size - 4, 4) << 8;
  } else if (size > 0) {
    head = loadBytes(bytes, 1) | loadBytes(bytes + size / 2, 1) << 8 |
           loadBytes(bytes + size - 1, 1) << 16;
  }
  return head ^ std::rotl(tail, 23);
}

namespace detail {

boost::system::error_code decode(const Coding& coding, void* record, std::string_view json,
                                 Room& room);
boost::system::error_code decodeFirst(const Coding& coding, void* record, std::string_view items);
/// The error of a document that is JSON, but not what was wanted.
boost::system::error_code mismatch();
/// Appends a member's value; false when it holds what JSON cannot say.
bool append(std::string& out, const Type& type, const void* value);

template <class R>
R recordOf(void (*finish)(R&, Room&));
template <class R>
R recordOf(bool (*write)(const R&, std::string&));
template <class Document, class R>
Document documentOf(bool (*convert)(Document&, R&));

template <class R, class M>
R ownerOf(M R::*);
template <class R, class M>
M memberOf(M R::*);

template <auto Pointer>
void* addressOf(void* record) {
  using R = decltype(ownerOf(Pointer));
  return &(static_cast<R*>(record)->*Pointer);
}

/// Never destroyed, so that decoding is safe during static destruction too.
template <class R>
const void* pristine() {
  static const R* const record = new R{};
  return record;
}

template <class T>
struct Unwrapped {
  using Value = T;
  static constexpr bool isOptional = false;
};
template <class T>
struct Unwrapped<std::optional<T>> {
  using Value = T;
  static constexpr bool isOptional = true;
};

template <class T>
struct ListOf {
  using Element = void;
};
template <class T>
struct ListOf<std::vector<T>> {
  using Element = T;
};

template <class R>
inline constexpr List listOf{
    [](void* list, std::size_t count) { static_cast<std::vector<R>*>(list)->reserve(count); },
    [](void* list) -> void* { return &static_cast<std::vector<R>*>(list)->emplace_back(); },
    [](const void* list) {
      const auto& records = *static_cast<const std::vector<R>*>(list);
      return Elements{records.data(), records.size()};
    }};

template <class T>
constexpr Type makeType() {
  using Value = typename Unwrapped<T>::Value;
  using Element = typename ListOf<Value>::Element;
  Type type;
  type.assign = [](void* member, const void* from) {
    *static_cast<T*>(member) = *static_cast<const T*>(from);
  };
  if constexpr (Unwrapped<T>::isOptional) {
    type.open = [](void* member) -> void* { return &static_cast<T*>(member)->emplace(); };
    type.peek = [](const void* member) -> const void* {
      const auto& value = *static_cast<const T*>(member);
      return value ? &*value : nullptr;
    };
  }
  if constexpr (std::is_same_v<Value, std::string>) {
    type.kind = Kind::text;
  } else if constexpr (std::is_same_v<Value, std::int64_t>) {
    type.kind = Kind::signedInteger;
  } else if constexpr (std::is_same_v<Value, std::uint64_t>) {
    type.kind = Kind::unsignedInteger;
  } else if constexpr (std::is_same_v<Value, double>) {
    type.kind = Kind::real;
  } else if constexpr (std::is_same_v<Value, bool>) {
    type.kind = Kind::boolean;
  } else if constexpr (std::is_same_v<Value, std::vector<std::string>>) {
    type.kind = Kind::texts;
  } else if constexpr (std::is_same_v<Value, std::map<std::string, std::string>>) {
    type.kind = Kind::textMap;
  } else if constexpr (!std::is_void_v<Element>) {
    type.kind = Kind::records;
    type.coding = &codingOf<Element>();
    type.list = &listOf<Element>;
  } else {
    type.kind = Kind::record;
    type.coding = &codingOf<Value>();
  }
  return type;
}

template <class T>
inline constexpr Type typeOf = makeType<T>();

template <std::size_t N>
struct Key {
  char text[N + 4] = {',', '"'};
  consteval Key(const char (&key)[N]) { std::copy_n("\":", 3, std::copy_n(key, N - 1, text + 2)); }
};

/// A perfect hash of the keys of N members.
template <std::size_t N>
struct Buckets {
  static_assert(N <= 64, "presence of the members is tracked in 64 bits");
  static constexpr unsigned bits =
      static_cast<unsigned>(std::bit_width(std::bit_ceil(4 * N + 1)) - 1);
  std::array<std::uint8_t, std::size_t{1} << bits> indices{};
  std::uint64_t multiplier = 0x9E3779B97F4A7C15U;

  constexpr bool fill(const std::array<Member, N>& members) {
    indices = {};
    for (std::size_t i = 0; i < N; ++i) {
      auto& bucket = indices[(hashOf(members[i].key) * multiplier) >> (64 - bits)];
      if (bucket != 0) return false;
      bucket = static_cast<std::uint8_t>(i + 1);
    }
    return true;
  }
};

/// Never defined: as it is not constexpr, compilers refuse a table that gets to it, and name it.
void keysAreEqualOrAlikeInLengthFirstAndLastBytes();

template <std::size_t N>
constexpr Buckets<N> makeBuckets(const std::array<Member, N>& members) {
  Buckets<N> buckets;
  for (int attempts = 0; !buckets.fill(members); ++attempts) {
    if (attempts == 10'000) keysAreEqualOrAlikeInLengthFirstAndLastBytes();
    buckets.multiplier = (buckets.multiplier * 6364136223846793005U + 1442695040888963407U) | 1;
  }
  return buckets;
}

template <class... Fields>
inline constexpr std::array<Member, sizeof...(Fields)> membersOf{Fields::member...};
template <class... Fields>
inline constexpr auto bucketsOf = makeBuckets(membersOf<Fields...>);

template <class R>
constexpr Table makeTable() {
  Table table;
  table.size = sizeof(R);
  table.pristine = &pristine<R>;
  return table;
}

template <bool isStrict, class First, class... Rest>
inline constexpr Table tableOf = [] {
  auto table = makeTable<typename First::Record>();
  table.members = membersOf<First, Rest...>.data();
  table.memberCount = 1 + sizeof...(Rest);
  table.buckets = bucketsOf<First, Rest...>.indices.data();
  table.bucketShift = 64 - Buckets<1 + sizeof...(Rest)>::bits;
  table.multiplier = bucketsOf<First, Rest...>.multiplier;
  table.isStrict = isStrict;
  return table;
}();

template <auto finish, const Coding& base>
inline constexpr Table finishedTable = [] {
  Table table = *base.table;
  table.finish = [](void* record, Room& room) {
    finish(*static_cast<decltype(recordOf(finish))*>(record), room);
  };
  return table;
}();

template <auto write>
constexpr Table makeWrittenTable() {
  using R = decltype(recordOf(write));
  auto table = makeTable<R>();
  table.write = [](const void* value, std::string& out) {
    return write(*static_cast<const R*>(value), out);
  };
  return table;
}
template <auto write>
inline constexpr Table writtenTable = makeWrittenTable<write>();

template <auto convert, auto write>
inline constexpr Table convertedTable = [] {
  auto table = makeWrittenTable<write>();
  table.read = [](void* value, std::string_view json, Room& room) {
    decltype(documentOf(convert)) document;
    auto error = decode(document.coding, &document, json, room);
    auto& record = *static_cast<decltype(recordOf(write))*>(value);
    return error || convert(document, record) ? error : mismatch();
  };
  return table;
}();

}  // namespace detail

/// A key, which is written without escapes, and the member that travels under it.
template <detail::Key key, auto Pointer>
struct Field {
  using Record = decltype(detail::ownerOf(Pointer));
  static constexpr Member member{{key.text + 2, sizeof key.text - 5},
                                 &detail::addressOf<Pointer>,
                                 &detail::typeOf<decltype(detail::memberOf(Pointer))>};
};

/// The same for a member that is read, but never written.
template <detail::Key key, auto Pointer>
struct ReadOnly : Field<key, Pointer> {
  static constexpr Member member = [] {
    auto field = Field<key, Pointer>::member;
    field.isWritten = false;
    return field;
  }();
};

/// Fields that cannot fail their record: when a key is absent, null or of another type, the member
/// keeps its initial value.
template <class... Fields>
inline constexpr Coding lenient{&detail::tableOf<false, Fields...>};

/// Fields without which their record cannot be read.
template <class... Fields>
inline constexpr Coding required{&detail::tableOf<true, Fields...>};

/// The same fields, and a function `void (R&, Room&)` that runs once they have been read. It may
/// read documents within texts, by decodeWithin().
template <auto finish, const Coding& base>
inline constexpr Coding finishedBy{&detail::finishedTable<finish, base>};

/// A value that is written by `bool (const R&, std::string&)`, which appends one JSON value or
/// returns false.
template <auto write>
inline constexpr Coding writtenBy{&detail::writtenTable<write>};

/// A value that is written so, and read, as a whole document only, as what another record says:
/// `bool (Document&, R&)`.
template <auto convert, auto write>
inline constexpr Coding convertedBy{&detail::convertedTable<convert, write>};

/// Reads a document that stands in a text of another one.
template <class T>
std::optional<T> decodeWithin(Room& room, std::string_view json) {
  std::optional<T> record(std::in_place);
  if (detail::decode(T::coding, &*record, json, room)) record.reset();
  return record;
}

/// Appends any value that a field may have.
template <class T>
bool appendValue(std::string& out, const T& value) {
  return detail::append(out, detail::typeOf<T>, &value);
}

}  // namespace koriva::json
