#include <sstream>

#include "tests/support/Harness.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

class PushesTest : public ServerTest {
 protected:
  /// What a push leads to, up to the one that follows it.
  std::string seen(const std::string& event, const std::string& items) {
    console.take();
    server.push(event, items);
    server.push("delete_conversation", "0");
    server.push("unblock_user", R"({"group_id":"end","blocked_uin":""})");
    EXPECT_TRUE(awaitText(R"(didUnblockContact {"group_id":"end")"));
    auto printed = console.take();
    printed.resize(printed.rfind("delete_conversation\n"));
    return printed;
  }

  /// The lines, those of delegates once for each.
  static std::string heard(const std::vector<std::string>& names, const std::string& lines) {
    std::string all;
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
      if (!line.starts_with("did")) all += line + "\n";
      for (const auto& name : names) all += line.starts_with("did") ? name + " " + line + "\n" : "";
    }
    return all;
  }
};

TEST_F(PushesTest, ReachEveryDelegate) {
  const auto twice = addRecorder("a");
  sdk->addDelegate(nullptr);
  addRecorder("b");
  sdk->addDelegate(twice);
  connect();
  for (const auto& [names, items, printed] : readTable("pushes.txt", readTable("records.txt"))) {
    std::istringstream events(names);
    for (std::string event; events >> event;) {
      SCOPED_TRACE(event + " " + items);
      EXPECT_EQ(seen(event, items), heard({"a", "b", "a"}, lines(printed)));
    }
  }
}

}  // namespace
