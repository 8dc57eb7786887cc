#include "tests/support/Harness.h"
#include "tests/support/Samples.h"

using namespace koriva::test;

namespace {

struct Push {
  std::string event;
  std::string items;               ///< after the event's name
  std::vector<std::string> calls;  ///< what each delegate hears
  std::string printed = "";        ///< what else is on the console, before
};

using samples::conversation;
using samples::message;

// clang-format off
const std::string notJson = "KorivaSDK - getDataFromAck failed with error: binary data is not JSON\n";
const std::string keys = R"({"group_id":"g1","uin":"1","device_id":"d","identity_key":"i","base_key":"b","one_time_pre_key":"o"})";
const std::string deleted = R"({"group_id":"g1","group_name":"gn","group_avatar":"ga"})";
const std::string block = R"({"group_id":"g1","blocked_uin":"2"})";
const std::string update = R"({"name":"The group","avatar_url":"ava","owner_uin":"1","group_id":"g1",)"
    R"("pull_all":["3"],"push_all":["4"],"blocked_all":["5"])";
const std::string answer = R"({"call_id":"c1","callee_uin":"2","answer":1})";
const std::string candidate = R"({"candidate":"c","sdp_mid":"0","sdp_mline_index":1})";

std::string updated() {
  KRConversation group;
  group.name = "The group", group.avatarUrl = "ava", group.ownerUin = "1", group.groupID = "g1";
  group.removedUins = {"3"}, group.blockedUins = {"5"};
  return "didUpdateGroup " + text(group) + R"(["4"]["6"])";
}

std::string called(const std::string& event, const std::string& record) {
  return "didReceiveCall {\"" + event + "\":" + record + "}";
}

std::string eventOf(int type) {
  return R"({"sender_uin":"s","receiver_uin":"r","type":)" + std::to_string(type) +
         R"(,"data":"{}","group_id":"g1","call_id":"c1"})";
}

const std::vector<Push> pushes{
    {"message", message, {"didReceive " + message}},
    {"message", message + R"(,{"$binary":"abc"},5)", {"didReceive " + message}},
    {"message", R"({"status":"3","message":5,"seen_uins":["1",2]})", {"didReceive " + text(KRMessage())}},
    {"message", R"({"message":{"$binary":"abc"}})", {}, notJson},
    {"update_message", message, {R"(didReceiveGroupEvent {"groupID":"g1","kind":{"type":0}} updated )" + message}},
    {"delete_message", message, {R"(didReceiveGroupEvent {"groupID":"g1","kind":{"type":0}} deleted )" + message}},
    {"user_status", R"({"user_status":{"uin":"1","online_status":9,"message_status":"m"}})",
     {R"(didUpdateUserStatus {"uin":"1","online_status":9,"message_status":"m"})"}},
    {"user_status", R"({"user_status":{"uin":1,"online_status":1,"message_status":""}})", {}},
    {"user_status", R"({"uin":"1","online_status":1,"message_status":""})", {}},
    {"delete_group", R"({"group_id":"g1"})", {"didDeleteGroup g1"}},
    {"delete_group", R"({"group_id":"g1","more":{"$binary":"abc"}})", {"didDeleteGroup g1"}},
    {"delete_group", R"({"group_id":5})", {}},
    {"group", conversation, {"didReceiveNewGroup " + conversation}},
    {"group", R"({"type":"2","occupants_uins":{},"last_message":5,"status_list":[{"uin":"1"}]})",
     {"didReceiveNewGroup " + text(KRConversation())}},
    {"update_group", update + R"(,"unblocked_all":["6"]})", {updated()}},
    {"update_group", update + "}", {}},
    {"update_group", update + R"(,"unblocked_all":[6]})", {}},
    {"error", R"({"error":7})", {"didReceiveError 7"}},
    {"error", R"({"error":99})", {"didReceiveError 1"}},
    {"error", R"({"error":"7"})", {}},
    {"login", R"({"result":2,"uin":"1"})", {"didReceiveError 2"}},
    {"login", R"({"result":0,"uin":"1"})", {}},
    {"login", R"({"result":2})", {}},
    {"start_call", "{\"call\":" + samples::call + "}", {called("start_call", samples::call)}},
    {"start_call", samples::call, {}},
    {"answer_call", answer, {called("answer_call", answer)}},
    {"stop_call", R"({"call_id":"c1","uin":"2"})", {called("stop_call", R"({"call_id":"c1","uin":"2"})")}},
    {"stop_call", R"({"call_id":1,"uin":null})", {called("stop_call", R"({"call_id":"","uin":""})")}},
    {"ice_sdp", R"({"sdp":"v=0","type":1})", {called("ice_sdp", R"({"sdp":"v=0","type":1})")}},
    {"ice_candidate", candidate, {called("ice_candidate", candidate)}},
    {"event", eventOf(9), {called("event", eventOf(9)), R"(didReceiveGroupEvent {"groupID":"g1","kind":{"type":9}})"}},
    {"event", eventOf(10), {called("event", eventOf(10)), R"(didReceiveGroupEvent {"groupID":"g1","kind":{"type":10}})"}},
    {"event", eventOf(3), {called("event", eventOf(3))}},
    {"delete_conversation", R"({"group_id":"g1"})", {}, "delete_conversation\n"},
    {"delete_conversation", R"("any data")", {}, "delete_conversation\n"},
    {"delete_conversation", "", {}},
    {"delete_conversation", R"("NO ACK")", {}},
    {"start_secret_chat", keys, {"didStart " + keys}},
    {"start_secret_chat", block, {}},
    {"accept_secret_chat", keys, {"didAccept " + keys}},
    {"accept_secret_chat", block, {}},
    {"delete_secret_chat", deleted, {"didDelete " + deleted}},
    {"delete_secret_chat", block, {}},
    {"block_user", block, {"didBlockContact " + block}},
    {"block_user", R"({"group_id":"g1"})", {}},
    {"unblock_user", block, {"didUnblockContact " + block}},
    {"unblock_user", R"({"group_id":"g1","blocked_uin":2})", {}},
    {"reconnect", "", {}},
    {"reconnect_error", R"("text")", {}},
    {"no such event", "{}", {}},
};
// clang-format on

/// The table, and for each of its events payloads that are of no use to any.
std::vector<Push> allPushes() {
  auto all = pushes;
  for (const auto& [event, items, calls, printed] : pushes) {
    if (calls.empty()) continue;
    for (const auto* item : {"", "\"text\"", "null", "5", "true", "[{}]", "\"NO ACK\",{}"}) {
      all.push_back({event, item, {}});
    }
    const bool isRead = event != "error" && event != "delete_group";
    all.push_back({event, R"({"$binary":"abc"})", {}, isRead ? notJson : ""});
  }
  return all;
}

class PushesTest : public ServerTest {
 protected:
  /// What a push leads to, up to the one that follows it.
  std::string seen(const std::string& event, const std::string& items) {
    console.take();
    server.push(event, items);
    server.push("delete_conversation", "0");
    server.push("unblock_user", R"({"group_id":"end","blocked_uin":""})");
    EXPECT_TRUE(awaitText(R"(didUnblockContact {"group_id":"end")"));
    auto lines = console.take();
    lines.resize(lines.rfind("delete_conversation\n"));
    return lines;
  }

  static std::string heard(const std::vector<std::string>& names, const std::string& call) {
    std::string lines;
    for (const auto& name : names) lines += name + " " + call + "\n";
    return lines;
  }
};

TEST_F(PushesTest, ReachEveryDelegate) {
  const auto twice = addRecorder("a");
  sdk->addDelegate(nullptr);
  addRecorder("b");
  sdk->addDelegate(twice);
  connect();
  for (const auto& [event, items, calls, printed] : allPushes()) {
    SCOPED_TRACE(event + " " + items);
    auto expected = printed;
    for (const auto& call : calls) expected += heard({"a", "b", "a"}, call);
    EXPECT_EQ(seen(event, items), expected);
  }
}

const std::string error = R"({"error":7})";
const std::string didReceive = "didReceiveError 7";

TEST_F(PushesTest, ReachTheOthersWhenADelegateThrows) {
  const auto a = addRecorder("a");
  const auto b = addRecorder("b");
  addRecorder("c");
  connect();
  for (int round = 0; round < 2; ++round) {
    a->act = [] { throw std::runtime_error("first"); };
    b->act = [] { throw std::runtime_error("second"); };
    server.push("error", error);
    EXPECT_EQ(awaitThrown(), "first");
    EXPECT_EQ(console.take(), heard({"a", "b", "c"}, didReceive));
  }
}

TEST_F(PushesTest, GoToTheDelegatesOfTheMoment) {
  const auto first = addRecorder("first");
  const auto second = addRecorder("second");
  sdk->addDelegate(second);
  connect();
  first->act = [&] {
    sdk->removeDelegate(second);
    sdk->removeDelegate(std::make_shared<Recorder>("first"));
    addRecorder("third");
  };
  EXPECT_EQ(seen("error", error), heard({"first", "second", "second"}, didReceive));
  EXPECT_EQ(second.use_count(), 1);
  EXPECT_EQ(seen("error", error), heard({"first", "third"}, didReceive));
}

}  // namespace
