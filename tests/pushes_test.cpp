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
  const auto isAlone = [&](const std::string& event) {
    return std::ranges::find(rows, event, &Row::name) != rows.end();
  };
  for (const auto& row : rows) {
    const auto heard = std::regex_replace(lines(row.output), std::regex("did.*\n"), "a $&b $&a $&");
    std::istringstream events(row.name);
    for (std::string event; std::getline(events, event, ',');) {
      SCOPED_TRACE(row.place + ": " + event + " " + row.input);
      if (!isAlone(event)) refuse(row.place, "this table is about no event '" + event + "'");
      located(row.place, [&] { server.push(event, row.input); });
      EXPECT_EQ(settle(), heard);
    }
  }
}

}  // namespace
