#include "KorivaSDK/KRAsync.h"

#include "tests/support/Harness.h"

namespace koriva::test {
namespace {

class AsyncTest : public ServerTest {
 protected:
  AsyncTest() : ServerTest(std::make_unique<MemoryServer>()) {}

  Detached mute(KRCompletion<bool> done) {
    done(co_await async(&KorivaSDK::muteGroup, sdk, "g1", true));
  }
  Detached deleteGroup(KRCompletion<std::string> done) {
    done(co_await async(&KorivaSDK::deleteGroup, sdk, "g1"));
  }
};

TEST_F(AsyncTest, EndsAlsoWhenNoCompletionComes) {
  mute(Done{"no socket"});
  EXPECT_EQ(console.take(), "");
  printedTo("no socket: failure 1\n");

  connect();
  peer->answer("mute_group", R"([{"result":0}])");
  peer->answer("delete_group", R"([{}])");
  mute(Done{"answered"});
  deleteGroup(Done{"unreadable"});
  const KRCallEvent stop = KRCallEvent::StopCall{KRStopCall{"c1", "1001"}};
  auto unanswered = future(&KorivaSDK::send, sdk, stop, "c1", "g1", "1001", "1002");
  auto muted = future(&KorivaSDK::muteGroup, sdk, "g1", true);
  EXPECT_THAT(printedTo("unreadable: failure 1\n"), ::testing::StartsWith("answered: true\n"));
  settle();
  EXPECT_EQ(unanswered.get().error(), KRError::failed);
  EXPECT_EQ(muted.get(), KRResult<bool>::success(true));

  auto& far = static_cast<MemoryServer&>(*peer).far;
  timing() = {};
  connect();
  far.ignore("mute_group");
  mute(Done{"released"});
  KorivaSDK::setShared(nullptr), sdk.reset();
  far.advance(5s - 1ns);
  EXPECT_EQ(console.take(), "");
  far.advance(1ns);
  EXPECT_EQ(console.take(), "released: failure 1\n");
}

TEST_F(AsyncTest, ThrowsFromTheRunLoop) {
  deleteGroup([](const auto&) { throw std::runtime_error("from a coroutine"); });
  EXPECT_EQ(awaitThrown(), "from a coroutine");
}

}  // namespace
}  // namespace koriva::test
