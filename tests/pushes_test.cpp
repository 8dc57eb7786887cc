#include <regex>
#include <sstream>

#include "tests/support/Harness.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

using PushesTest = ServerTest;

TEST_F(PushesTest, ReachEveryDelegate) {
  const auto twice = addRecorder("a");
  sdk->addDelegate(nullptr);
  addRecorder("b");
  sdk->addDelegate(twice);
  connect();
  const auto rows = readTable("pushes.txt", readTable("records.txt"));
  const auto isHeard = [&](const std::string& event) {
    return std::ranges::any_of(
        rows, [&](const Row& row) { return row.name == event && row.output != "nothing"; });
  };
  for (const auto& row : rows) {
    const auto heard = std::regex_replace(lines(row.output), std::regex("did.*\n"), "a $&b $&a $&");
    const bool isUnknown = row.name.starts_with('!');
    std::istringstream events(row.name.substr(isUnknown ? 1 : 0));
    for (std::string event; std::getline(events, event, ',');) {
      SCOPED_TRACE(row.place + ": " + event + " " + row.input);
      if (!isUnknown && !isHeard(event)) refuse(row.place, "nobody hears of '" + event + "'");
      forgetFailures();
      located(row.place, [&] { server.push(event, row.input); });
      EXPECT_EQ(settle(), heard);
    }
  }
}

}  // namespace
