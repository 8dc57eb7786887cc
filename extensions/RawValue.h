#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

/// \file
/// Enumerations from and to their values on the wire.

/// What carries no prefix: calling styles, text and JSON helpers.
namespace koriva {

/// The cases of the enumeration `E`, listed once, next to the enumeration:
/// ```
/// template <>
/// inline constexpr auto koriva::cases<Colour> = std::array{Colour::red, Colour::blue};
/// ```
/// An enumeration with text raw values lists `std::pair<E, std::string_view>` instead.
template <class E>
inline constexpr auto cases = nullptr;

namespace detail {
template <class E>
inline constexpr bool hasTexts =
    !std::is_same_v<typename std::remove_cvref_t<decltype(cases<E>)>::value_type, E>;
}

/// What an enumeration's raw values are: std::int64_t, or std::string_view (of static text).
template <class E>
using RawValue = std::conditional_t<detail::hasTexts<E>, std::string_view, std::int64_t>;

/// The raw value of a case, the one that travels on the wire.
template <class E>
constexpr RawValue<E> rawValue(E value) {
  if constexpr (detail::hasTexts<E>) {
    for (const auto& [listed, text] : cases<E>) {
      if (listed == value) return text;
    }
    return {};
  } else {
    return static_cast<std::int64_t>(value);
  }
}

/// The case with this raw value; nothing when there is none. Texts match exactly.
template <class E>
constexpr std::optional<E> fromRawValue(RawValue<E> raw) {
  for (const auto& listed : cases<E>) {
    if constexpr (detail::hasTexts<E>) {
      if (listed.second == raw) return listed.first;
    } else {
      if (static_cast<std::int64_t>(listed) == raw) return listed;
    }
  }
  return std::nullopt;
}

}  // namespace koriva
