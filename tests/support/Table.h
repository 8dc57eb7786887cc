#pragma once

#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <chrono>
#include <fstream>
#include <istream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "extensions/JSONCoding.h"

namespace koriva::test {

/// A line of a file below tests/data. Comments begin with #.
struct Line {
  std::string place;  ///< the file and the number
  std::size_t indent;
  std::string text;
};

/// Ends the test that reads a file in which something is wrong.
[[noreturn]] inline void refuse(const std::string& place, const std::string& what) {
  throw std::runtime_error(place + ": " + what);
}

/// Gives what the function gives, and adds the place to what it throws.
auto located(const std::string& place, const auto& function) {
  try {
    return function();
  } catch (const std::exception& error) {
    refuse(place, error.what());
  }
}

/// What a map holds for a name that a file tells.
const auto& named(const auto& map, const std::string& name) {
  const auto found = map.find(name);
  if (found == map.end()) throw std::out_of_range("there is no '" + name + "'");
  return found->second;
}

inline std::vector<Line> readLines(std::istream& stream, const std::string& file) {
  std::vector<Line> lines;
  int number = 0;
  for (std::string text; std::getline(stream, text);) {
    ++number;
    const auto indent = text.find_first_not_of(' ');
    if (indent == text.npos || text.front() == '#') continue;
    lines.push_back({file + ":" + std::to_string(number), indent, text.substr(indent)});
  }
  return lines;
}

inline std::vector<Line> readLines(const std::string& file) {
  std::ifstream stream(KORIVA_TEST_DATA "/" + file);
  auto lines = readLines(stream, file);
  if (lines.empty()) refuse(file, "there is nothing in it");
  return lines;
}

/// The name in a line `[name]`.
inline std::string headingOf(const Line& line) {
  if (!line.text.starts_with('[') || !line.text.ends_with(']')) {
    refuse(line.place, "this is no heading, and nothing else stands at the margin");
  }
  return line.text.substr(1, line.text.size() - 2);
}

/// A row `  input => output` of a table, under a heading `[name]`. One without an arrow gives its
/// input back, and one may begin with it; ¶ stands for a line break. Rows `  KRName: input` have
/// names of their own. Rows and headings go on in lines that are indented by four; what is indented
/// further begins with spaces.
struct Row {
  std::string place;
  std::string name;
  std::string input;
  std::string output;
};

/// Lines that begin with an arrow or a plus are set off by a space, others go on where the last one
/// ended.
inline std::vector<Line> joined(const std::vector<Line>& lines) {
  std::vector<Line> result;
  for (const auto& line : lines) {
    if (line.indent == 0 || line.indent == 2) {
      result.push_back(line);
    } else if (line.indent < 4 || result.empty()) {
      refuse(line.place, "a row is indented by two spaces, what it goes on with by four");
    } else {
      const bool isSetOff = line.text.starts_with("=> ") || line.text.starts_with("+ ");
      result.back().text += std::string(isSetOff ? 1 : line.indent - 4, ' ') + line.text;
    }
  }
  return result;
}

/// In the rows `<name>` stands for the input of one of the samples, which are the rows above unless
/// there are others.
inline std::vector<Row> readRows(const std::vector<Line>& lines,
                                 const std::vector<Row>& samples = {}) {
  std::vector<Row> rows;
  std::string name;
  std::string emptyPlace;
  const auto refuseEmpty = [&] {
    if (!emptyPlace.empty()) refuse(emptyPlace, "nothing is below this heading");
  };
  for (const auto& line : joined(lines)) {
    const auto& [place, indent, text] = line;
    if (indent == 0) {
      name = headingOf(line);
      refuseEmpty();
      emptyPlace = place;
      continue;
    }
    emptyPlace.clear();
    if (name.empty()) refuse(place, "this row has no heading");
    std::string row = (text.starts_with("=> ") ? " " : "") + text;
    for (const auto& sample : samples.empty() ? rows : samples) {
      boost::replace_all(row, "<" + sample.name + ">", sample.input);
    }
    if (row.find("<KR") != row.npos) refuse(place, "there is no such sample: " + row);
    boost::replace_all(row, "¶", "\n");
    const auto colon = row.find(": ");
    const bool isNamed = row.starts_with("KR") && colon < row.find_first_of(" \"[{");
    const auto ownName = isNamed ? row.substr(0, colon) : name;
    if (isNamed) row.erase(0, colon + 2);
    const auto arrow = row.find(" => ");
    const auto input = row.substr(0, arrow);
    const auto output = arrow == row.npos ? input : row.substr(arrow + 4);
    if (output.empty()) refuse(place, "nothing is behind the arrow");
    rows.push_back({place, ownName, input, output});
  }
  refuseEmpty();
  return rows;
}

inline std::vector<Row> readTable(const std::string& file, const std::vector<Row>& samples = {}) {
  return readRows(readLines(file), samples);
}

using Functions = std::map<std::string, std::string (*)(std::string_view)>;

/// Checks that the functions that the rows name make the outputs of the inputs.
inline void checkTable(const std::string& file, const Functions& functions,
                       const std::vector<Row>& samples = {}) {
  for (const auto& row : readTable(file, samples)) {
    const auto made = located(row.place, [&] { return named(functions, row.name)(row.input); });
    EXPECT_EQ(made, row.output) << row.place << ": " << row.name << " of " << row.input;
  }
}

/// The document read as a T and written again, or "error".
template <class T, auto decode = &koriva::json::decode<T>>
std::string reread(std::string_view document) {
  const auto value = decode(document);
  return value ? KRJSONEncoder{}.encode(*value) : "error";
}

}  // namespace koriva::test
