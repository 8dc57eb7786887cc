#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "extensions/JSONFields.h"

/// \file
/// Documents as somebody makes them who wants their reading to be expensive.

namespace koriva::cost {

/// Text of about so many bytes, and a multiple of it: exactly so many times as much is repeated in
/// it, so that lists which double their room are as full in both.
using Growing = std::function<std::string(std::size_t size, std::size_t factor)>;

struct Shape {
  std::string name;
  Growing text;
};

/// JSON values, and what begins like one.
const std::vector<Shape>& values();

/// Objects of a record: with the values in its members, with its keys many times, and with many
/// small records where there is a list of them.
std::vector<Shape> objectsOf(const json::Coding& coding);

/// A few bytes from which the record can be read.
std::string smallest(const json::Coding& coding);

/// The same, with something else around.
Shape within(const std::string& name, const std::string& begin, const Shape& shape,
             const std::string& end);

/// A text that says the shape, quoted such that quotations of quotations grow by little.
Shape quoted(const Shape& shape);

/// Something many times, between a beginning and an end.
Growing repeated(std::string begin, std::string unit, std::string end);

}  // namespace koriva::cost
