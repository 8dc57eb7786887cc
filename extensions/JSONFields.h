#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

/// \file
/// A record says once how it travels as JSON, in a table after its members:
/// ```
/// struct KRStopCall {
///   std::string callId;
///   std::string uin;
///
///   template <class R>
///   static constexpr auto fields = koriva::json::fields(
///       koriva::json::lenient<&R::callId>("call_id"), koriva::json::lenient<&R::uin>("uin"));
/// };
/// ```
/// `R` is the record itself. The table is a template so that only those pay for it, in compile
/// time, who read or write the record.
///
/// Members may be texts, std::int64_t, std::uint64_t, double, bool, lists of texts or of records,
/// maps from text to text, records, and std::optional of any of these; lists and maps have no
/// initial elements. Table order is writing order; an absent optional is not written.
///
/// Where a table does not say enough, a record declares one or more of these static functions
/// (private ones need `friend struct koriva::json::Access;`):
/// - `void afterDecoding(T&)` runs once the members of a T have been read; it may decode again.
/// - `bool writeJson(const T&, std::string& out)` appends one JSON value instead of the table's
///   object; false when there is none.
/// - `using Document = ...;` and `std::optional<T> fromDocument(const Document&)`: a T is read, as
///   a whole document only, by reading a Document and converting it; nothing is a failure.

namespace koriva::json {

namespace detail {
enum class Rest;
struct Record;
}  // namespace detail

/// The tables' way to private hooks and tables: `friend struct koriva::json::Access;`.
struct Access {
  template <class T>
  static constexpr bool hasFields = requires {
    T::template fields<T>;
  };

  template <class T>
  static constexpr const auto& fields() {
    return T::template fields<T>;
  }
  template <class T>
  static constexpr detail::Record makeRecord();
  template <class T>
  static auto read(detail::Rest rest, std::string_view json);
};

namespace detail {

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

/// What the coder must know of a member's type.
struct Type {
  Kind kind = Kind::text;
  /// Of a record, or of the elements of a list of records.
  const Record* record = nullptr;
  /// Makes room in an optional member and returns where its value goes; null for other types.
  void* (*open)(void* member) = nullptr;
  /// The value inside an optional, null when absent; null for other types.
  const void* (*peek)(const void* member) = nullptr;
  void (*assign)(void* member, const void* from) = nullptr;
  void (*reset)(void* value) = nullptr;
};

/// A default other than the member's own.
using Default = std::variant<std::monostate, std::string_view, std::int64_t, double, bool>;

struct Field {
  std::string_view key;
  void* (*member)(void* record) = nullptr;
  const Type* type = nullptr;
  Default fallback;
  bool isRequired = false;
  bool isWritten = true;

  /// The same field, read but never written.
  constexpr Field readOnly() const {
    Field field = *this;
    field.isWritten = false;
    return field;
  }
};

constexpr std::uint64_t loadBytes(const char* bytes, std::size_t count) {
  std::uint64_t value = 0;
  if (std::is_constant_evaluated() || std::endian::native != std::endian::little) {
    for (std::size_t i = 0; i < count; ++i) {
      value |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
  } else {
    std::memcpy(&value, bytes, count);
  }
  return value;
}

/// Looks at the length, the first and the last eight bytes only, and leaves the mixing to the
/// multiplier of the table; fields() proves at compile time that this tells its keys apart.
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

/// A table of N fields and the perfect hash of their keys.
template <std::size_t N>
struct Table {
  static_assert(N <= 64, "presence of the fields is tracked in 64 bits");
  static constexpr unsigned bucketBits =
      static_cast<unsigned>(std::bit_width(std::bit_ceil(4 * N + 1)) - 1);

  std::array<Field, N> fields{};
  std::array<std::uint8_t, std::size_t{1} << bucketBits> buckets{};  ///< index + 1; 0 is no field
  std::uint64_t multiplier = 0x9E3779B97F4A7C15U;
  std::uint64_t required = 0;   ///< one bit a field
  std::uint64_t defaulted = 0;  ///< one bit a field
};

template <std::size_t N>
constexpr bool fillBuckets(Table<N>& table, const std::array<std::uint64_t, N>& hashes) {
  table.buckets = {};
  for (std::size_t i = 0; i < N; ++i) {
    auto& bucket = table.buckets[(hashes[i] * table.multiplier) >> (64 - Table<N>::bucketBits)];
    if (bucket != 0) return false;
    bucket = static_cast<std::uint8_t>(i + 1);
  }
  return true;
}

template <class R, class M>
R ownerOf(M R::*);
template <class R, class M>
M memberOf(M R::*);

template <auto Member>
void* addressOf(void* record) {
  using R = decltype(ownerOf(Member));
  return &(static_cast<R*>(record)->*Member);
}

struct Elements {
  const void* first;
  std::size_t count;
};

/// What the coder must know of a record.
struct Record {
  const Field* fields = nullptr;
  std::size_t fieldCount = 0;
  const std::uint8_t* buckets = nullptr;
  unsigned bucketShift = 0;
  std::uint64_t multiplier = 1;
  std::uint64_t required = 0;
  std::uint64_t defaulted = 0;
  std::size_t size = 0;
  const void* (*pristine)() = nullptr;
  void (*afterDecoding)(void* record) = nullptr;
  bool (*writeJson)(const void* record, std::string& out) = nullptr;
  void* (*append)(void* list) = nullptr;
  Elements (*elements)(const void* list) = nullptr;
};

/// Never destroyed, so that decoding is safe during static destruction too.
template <class R>
const void* pristine() {
  static const R* const record = new R{};
  return record;
}

}  // namespace detail

template <class R>
constexpr detail::Record Access::makeRecord() {
  detail::Record record;
  record.size = sizeof(R);
  record.pristine = &detail::pristine<R>;
  if constexpr (hasFields<R>) {
    const auto& table = fields<R>();
    record.fields = table.fields.data();
    record.fieldCount = table.fields.size();
    record.buckets = table.buckets.data();
    record.bucketShift = 64 - std::remove_cvref_t<decltype(table)>::bucketBits;
    record.multiplier = table.multiplier;
    record.required = table.required;
    record.defaulted = table.defaulted;
  } else {
    static_assert(
        requires { &R::writeJson; }, "a record has a table of fields or writes itself");
  }
  if constexpr (requires { &R::afterDecoding; }) {
    record.afterDecoding = [](void* value) { R::afterDecoding(*static_cast<R*>(value)); };
  }
  if constexpr (requires { &R::writeJson; }) {
    record.writeJson = [](const void* value, std::string& out) {
      return R::writeJson(*static_cast<const R*>(value), out);
    };
  }
  record.append = [](void* list) -> void* {
    return &static_cast<std::vector<R>*>(list)->emplace_back();
  };
  record.elements = [](const void* list) {
    const auto& records = *static_cast<const std::vector<R>*>(list);
    return detail::Elements{records.data(), records.size()};
  };
  return record;
}

namespace detail {

template <class R>
inline constexpr Record recordOf = Access::makeRecord<R>();

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

template <class T>
constexpr Type makeType() {
  using Value = typename Unwrapped<T>::Value;
  using Element = typename ListOf<Value>::Element;
  Type type;
  type.assign = [](void* member, const void* from) {
    *static_cast<T*>(member) = *static_cast<const T*>(from);
  };
  type.reset = [](void* value) { *static_cast<T*>(value) = T{}; };
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
    type.record = &recordOf<Element>;
  } else {
    static_assert(std::is_class_v<Value>, "not a type that travels as JSON");
    type.kind = Kind::record;
    type.record = &recordOf<Value>;
  }
  return type;
}

template <class T>
inline constexpr Type typeOf = makeType<T>();

template <auto Member>
constexpr Field makeField(std::string_view key) {
  using M = decltype(memberOf(Member));
  Field field;
  field.key = key;
  field.member = &addressOf<Member>;
  field.type = &typeOf<M>;
  return field;
}

template <class T>
constexpr Default makeDefault(const T& value) {
  if constexpr (!std::is_arithmetic_v<T>) {
    return std::string_view(value);
  } else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
    return static_cast<std::int64_t>(value);
  } else {
    return value;
  }
}

/// Never defined nor called: as it is not constexpr, compilers refuse a table that gets to it, and
/// name it. A `throw` would do the same, but not where applications do without exceptions.
void keysAreEqualOrAlikeInLengthFirstAndLastBytes();

}  // namespace detail

/// A field that cannot fail its record: when the key is absent, null or of another type, the
/// member keeps its initial value.
template <auto Member>
constexpr detail::Field lenient(std::string_view key) {
  return detail::makeField<Member>(key);
}

/// A lenient field whose default differs from the member's initial value. The default is a text,
/// an integer, a double or a bool, as the member is.
template <auto Member, class D>
constexpr detail::Field lenient(std::string_view key, const D& fallback) {
  detail::Field field = detail::makeField<Member>(key);
  field.fallback = detail::makeDefault(fallback);
  return field;
}

/// A field without which its record cannot be read.
template <auto Member>
constexpr detail::Field required(std::string_view key) {
  detail::Field field = detail::makeField<Member>(key);
  field.isRequired = true;
  return field;
}

/// The table of a record, in writing order.
template <class... Fields>
constexpr auto fields(const Fields&... list) {
  constexpr std::size_t count = sizeof...(Fields);
  detail::Table<count> table{{list...}};
  std::array<std::uint64_t, count> hashes{};
  for (std::size_t i = 0; i < count; ++i) {
    const detail::Field& field = table.fields[i];
    hashes[i] = detail::hashOf(field.key);
    if (field.isRequired) table.required |= std::uint64_t{1} << i;
    if (field.fallback.index() != 0) table.defaulted |= std::uint64_t{1} << i;
  }
  for (int attempts = 0; !detail::fillBuckets(table, hashes); ++attempts) {
    if (attempts == 10'000) detail::keysAreEqualOrAlikeInLengthFirstAndLastBytes();
    table.multiplier = (table.multiplier * 6364136223846793005U + 1442695040888963407U) | 1;
  }
  return table;
}

}  // namespace koriva::json
