#pragma once

#include <memory>
#include <type_traits>
#include <utility>
#include <variant>

namespace koriva {

/// The access that all tagged variants share. `Self` holds its cases in a `std::variant` named
/// `value`.
template <class Self>
struct TaggedVariant {
  /// The payload when `Case` is the one held, else null. Lives as long as the case is held.
  template <class Case>
  const Case* as() const {
    return std::get_if<Case>(&static_cast<const Self*>(this)->value);
  }

  /// The same for writing.
  template <class Case>
  Case* as() {
    return std::get_if<Case>(&static_cast<Self*>(this)->value);
  }

  bool operator==(const TaggedVariant&) const = default;
};

/// Whether `Case` is one of the alternatives of `Variant`.
template <class Case, class Variant>
inline constexpr bool isCaseOf = false;
template <class Case, class... Cases>
inline constexpr bool isCaseOf<Case, std::variant<Cases...>> = (std::is_same_v<Case, Cases> || ...);

/// One of the alternatives of `Variant`.
template <class Case, class Variant>
concept CaseOf = isCaseOf<Case, Variant>;

/// Makes one visitor of several lambdas: `std::visit(koriva::Overloaded{...}, kind.value)`.
template <class... Lambdas>
struct Overloaded : Lambdas... {
  using Lambdas::operator()...;
};
/// Of what it is made.
template <class... Lambdas>
Overloaded(Lambdas...) -> Overloaded<Lambdas...>;

/// A value kept on the heap, so that a record can hold a record of its own type. Copies and
/// compares deeply; an empty or moved-from box reads as a default `T`.
template <class T>
class Box {
 public:
  Box() = default;
  /// Holds this value.
  Box(T value) : value_(std::make_unique<T>(std::move(value))) {}
  /// Copies the value.
  Box(const Box& other) : value_(other.value_ ? std::make_unique<T>(*other.value_) : nullptr) {}
  /// Takes the value and leaves the other empty.
  Box(Box&&) noexcept = default;
  /// Copies the value.
  Box& operator=(const Box& other) {
    value_ = Box(other).value_;
    return *this;
  }
  /// Takes the value and leaves the other empty.
  Box& operator=(Box&&) noexcept = default;
  ~Box();

  /// The value.
  const T& operator*() const {
    static const T& none = *new T();  // never destroyed: boxes may be read until the process ends
    return value_ ? *value_ : none;
  }

  /// The value, for writing.
  T& operator*() {
    if (!value_) value_ = std::make_unique<T>();
    return *value_;
  }

  const T* operator->() const { return &**this; }  ///< The value's members.
  T* operator->() { return &**this; }              ///< The same for writing.

  friend bool operator==(const Box& left, const Box& right) { return *left == *right; }

 private:
  std::unique_ptr<T> value_;
};

// Defaulted within the class it is constexpr from C++23 on, and then needs all of `T` there.
template <class T>
Box<T>::~Box() = default;

}  // namespace koriva
