#include <gmock/gmock.h>

#include <sstream>

#include "support/Script.h"

namespace koriva::test {
namespace {

std::string mistakeIn(const std::string& text, const auto& read) {
  std::istringstream stream(text);
  try {
    read(readLines(stream, "t.txt"));
    return "none";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(Table, NamesThePlaceOfAMistake) {
  const auto asTable = [](const auto& lines) { readRows(lines); };
  const std::vector<std::pair<std::string, std::string>> tables{
      {"# comment\n\n[a]\n  1 => 2\n    3\n  => <a>\n[b]\n  KRc: <a>\n  <KRc>\n", "none"},
      {"[a]\n 1 => 2\n", "t.txt:2: a row is indented by two spaces, what it goes on with by four"},
      {"[a]\n1 => 2\n", "t.txt:2: this is no heading, and nothing else stands at the margin"},
      {"[a]\n[b]\n  1\n", "t.txt:1: nothing is below this heading"},
      {"  1 => 2\n", "t.txt:1: this row has no heading"},
      {"[a]\n  <KRCal>\n", "t.txt:2: there is no such sample: <KRCal>"},
  };
  for (const auto& [text, mistake] : tables) EXPECT_EQ(mistakeIn(text, asTable), mistake);
}

TEST(Script, NamesThePlaceOfAMistake) {
  const Steps steps{{"do", {}}, {"=> *", {}}, {"later: *", {}}};
  const auto asScript = [&](const auto& lines) {
    for (const auto& script : readScripts(lines)) checkNames(steps, script.steps);
  };
  const std::vector<std::pair<std::string, std::string>> scripts{
      {"[a]\n  do => seen:\n  later it:\n    do\n  => seen\n[b]\n  do\n", "none"},
      {"[a]\n[b]\n  do\n", "t.txt:1: nothing is below this heading"},
      {"[a]\n  do\n  od\n", "t.txt:3: there is no step 'od' like this"},
      {"[a]\n  later it: later it:\n    od\n", "t.txt:3: there is no step 'od' like this"},
      {"[a]\n  later it: later it:\n  do\n", "t.txt:2: nothing is indented below this"},
      {"[a]\n  later it:\n    do => seen\n", "t.txt:3: what is seen stands in no body"},
      {"[a]\n  do\n    do\n", "t.txt:3: this is indented too far"},
  };
  for (const auto& [text, mistake] : scripts) EXPECT_EQ(mistakeIn(text, asScript), mistake);
}

}  // namespace
}  // namespace koriva::test
