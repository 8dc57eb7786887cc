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
  for (const auto& [place, names, items, printed] : rows) {
    const auto heard = std::regex_replace(lines(printed), std::regex("did.*\n"), "a $&b $&a $&");
    std::istringstream events(names);
    for (std::string event; std::getline(events, event, ',');) {
      SCOPED_TRACE(place + ": " + event + " " + items);
      if (!isAlone(event)) refuse(place, "this table is about no event '" + event + "'");
      located(place, [&] { server.push(event, items); });
      EXPECT_EQ(settle(), heard);
    }
  }
}

}  // namespace
