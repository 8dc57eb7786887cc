#pragma once

#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "extensions/JSONCoding.h"

namespace koriva::test {

/// A line `  input => output` of a table below tests/data, under a heading `[name]`. One without an
/// arrow gives its input back; ¶ stands for a line break; other lines are comments.
struct Row {
  std::string name;
  std::string input;
  std::string output;
};

/// In the rows `<name>` stands for the input and `<name {}>` for the output of one of the samples,
/// which are the rows above unless there are others.
inline std::vector<Row> readTable(const std::string& file, const std::vector<Row>& samples = {}) {
  std::ifstream lines(KORIVA_TEST_DATA "/" + file);
  std::vector<Row> rows;
  std::string name;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('[')) name = line.substr(1, line.size() - 2);
    if (!line.starts_with("  ")) continue;
    for (const auto& sample : samples.empty() ? rows : samples) {
      boost::replace_all(line, "<" + sample.name + ">", sample.input);
      boost::replace_all(line, "<" + sample.name + " {}>", sample.output);
    }
    boost::replace_all(line, "¶", "\n");
    const auto arrow = line.find(" => ");
    const auto input = line.substr(2, arrow - (arrow == line.npos ? 0 : 2));
    rows.push_back({name, input, arrow == line.npos ? input : line.substr(arrow + 4)});
  }
  EXPECT_FALSE(rows.empty()) << file;
  return rows;
}

using Functions = std::map<std::string, std::string (*)(std::string_view)>;

/// Checks that the functions that the rows name make the outputs of the inputs.
inline void checkTable(const std::string& file, const Functions& functions) {
  for (const auto& [name, input, output] : readTable(file)) {
    ASSERT_TRUE(functions.contains(name)) << name;
    EXPECT_EQ(functions.at(name)(input), output) << name << " of " << input;
  }
}

inline auto milliseconds(const std::string& text) {
  return std::chrono::milliseconds(std::stol(text));
}

using Steps = std::map<std::string, std::function<void(const std::string&)>>;

/// Does the steps of a script: each is a name, and what follows it.
inline void perform(const Steps& steps, std::string_view script, std::string_view between = " + ") {
  for (std::size_t at = 0, end = 0; at < script.size(); at = end + between.size()) {
    end = std::min(script.find(between, at), script.size());
    const std::string step(script.substr(at, end - at));
    const auto space = std::min(step.find(' '), step.size());
    steps.at(step.substr(0, space))(step.substr(std::min(space + 1, step.size())));
  }
}

/// The document read as a T and written again, or "error".
template <class T, auto decode = &koriva::json::decode<T>>
std::string reread(std::string_view document) {
  const auto value = decode(document);
  return value ? KRJSONEncoder{}.encode(*value) : "error";
}

}  // namespace koriva::test
