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
  for (const auto& [names, items, printed] : readTable("pushes.txt", readTable("records.txt"))) {
    const auto heard = std::regex_replace(lines(printed), std::regex("did.*\n"), "a $&b $&a $&") +
                       "settled: Success\n";
    std::istringstream events(names);
    for (std::string event; events >> event;) {
      SCOPED_TRACE(event + " " + items);
      console.take();
      server.push(event, items);
      settle();
      EXPECT_EQ(console.take(), heard);
    }
  }
}

}  // namespace
