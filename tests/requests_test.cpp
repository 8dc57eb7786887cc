#include <malloc.h>

#include "tests/support/Harness.h"
#include "tests/support/Samples.h"

using namespace koriva::test;

namespace {

/// What the server answers, and what is printed then; nothing when nothing is called.
struct Answer {
  std::string items;
  std::string printed;
};
using Answers = std::vector<Answer>;

/// The failure line of a request names its own event, another one, or is not printed.
const std::string own = "own";
const std::string none;

struct Request {
  std::string event;
  std::string payload;
  void (*send)(KorivaSDK& sdk, const Done& done);
  std::optional<Answers> answers = std::nullopt;  ///< nothing when none is asked for
  std::string failing = own;
  std::string trace = "";  ///< printed before the emission

  std::string noData() const {
    const auto& name = failing == own ? event : failing;
    return (name == none ? "" : "KorivaSDK - " + name + " failed with error: Parsing error\n");
  }
};

std::string success(const std::string& value) { return "done: " + value + "\n"; }
std::string failure(int code) { return "done: failure " + std::to_string(code) + "\n"; }

using samples::conversation;
using samples::message;

// clang-format off
const Answers resultCode{
    {R"([{"result":0}])", success("Success")},
    {R"([{"result":0},{"result":2}])", success("Success")},
    {R"([{"result":0},{"$binary":"only the first item counts"}])", success("Success")},
    {R"([{"result":2}])", failure(2)}, {R"([{"result":13}])", failure(13)},
    {R"([{"result":11}])", failure(1)}, {R"([{"result":-1}])", failure(1)},
    {R"([{"result":"0"}])", ""}, {R"([{"result":0.5}])", ""}, {R"([{"result":false}])", ""},
    {R"([{}])", ""}, {R"([[{"result":0}]])", ""}, {R"(["text"])", ""}, {R"([null])", ""}};

Answers yesOrNo(const std::string& key, const std::string& yes) {
  const auto start = "[{\"" + key + "\":";
  return {{start + yes + "}]", success("true")}, {start + "5}]", success("false")},
          {start + "\"" + yes + "\"}]", failure(6)}, {start + "true}]", failure(6)},
          {start + "null}]", failure(6)}, {"[{}]", failure(6)}, {"[[0]]", failure(6)},
          {"[0]", failure(6)}, {R"(["text"])", failure(6)}, {"[null]", failure(6)}};
}
const Answers boolean = yesOrNo("result", "0");

const Answers conversationResponse{
    {R"([{"result":0,"group":)" + conversation + "}]", success(conversation)},
    {R"([{"result":2,"group":)" + conversation + "}]", failure(1)},
    {R"([{"result":0}])", failure(1)}, {R"([{"result":0,"group":5}])", failure(1)},
    {R"(["text"])", failure(1)}, {"[[]]", failure(1)}};

Answers messageResponse(int unreadable, int duplicate) {
  return {{R"([{"result":0,"message":)" + message + "}]", success(message)},
          {R"([{"result":13}])", failure(duplicate)},
          {R"([{"result":13,"message":{}}])", failure(duplicate)},
          {R"([{"result":2,"message":{}}])", failure(1)}, {R"([{"result":0}])", failure(1)},
          {R"(["text"])", failure(unreadable)}, {"[null]", failure(unreadable)}};
}

Answer tokenAnswer(const std::string& item, const std::string& text) {
  return {"[" + item + "]",
          "KorivaSDK - register_profile_token result: " + text + "\n" + success(text)};
}
const Answers token{tokenAnswer(R"({"result":1,"a":["é"]})", "{\n  \"result\": 1,\n  \"a\": [\n    \"é\"\n  ]\n}"),
                    tokenAnswer(R"("text")", R"("text")"), tokenAnswer("null", "null")};

const std::string conversations = R"({"result":0,"psize":20,"pindex":1,"groups":[)" + conversation + "]}";
const std::string messages =
    R"({"group_id":"g1","result":0,"psize":50,"pindex":2,"last_message_id":"m9","messages":[)" + message + "]}";
const std::string blocked = R"({"result":0,"list":[{"uin":"2","group_id":"g1"}]})";

KRMessage outgoing(std::int64_t type) {
  KRMessage sent("m1", "g1", "say \"hi\"\\\r\n\tdone 😀 / \xff", "The name", "ava", "1001", true);
  sent.type = type;
  sent.version = 7;
  sent.attachments = R"({"a":"b/c\n","d":"e\\f"})";
  return sent;
}
const std::string sentText =
    R"({"group_id":"g1","message":"say \\\"hi\\\"\\\\\\r\\n\\tdone 😀 / �","sender_name":"The name",)"
    R"("sender_avatar":"ava","nonce":"m1","version":7,"is_encrypted":true)";
const std::string sentAttachments =
    R"(,"type":2,"attachments":"{\\\"a\\\":\\\"b\\/c\\\\\\\\n\\\",\\\"d\\\":\\\"e\\\\\\f\\\"}"})";

KRConversation group(const std::string& name) {
  KRConversation group;
  group.groupID = "g1";
  group.type = 2;
  group.occupantsUins = {"1", "2"};
  group.name = name;
  if (!name.empty()) group.ownerUin = "1", group.avatarUrl = "ava";
  return group;
}

using Event = KRCallEvent;
using Uins = std::vector<std::string>;
const KRCall newCall("c1", KRCall::MEDIA_TYPE_VIDEO, "g1", "1", {"2"});
const std::string newCallText =
    R"({"call_id":"c1","group_id":"g1","call_type":1,"media_type":2,"call_status":0,"caller_uin":"1",)"
    R"("callee_uins":["2"],"accepted_uins":[],"started_at":"0","stopped_at":"0","accepted_at":"0","connected_at":"0"})";

#define CALL(...) [](KorivaSDK& sdk, [[maybe_unused]] const Done& done) { sdk.__VA_ARGS__; }
#define STEP(...) CALL(send(Event::__VA_ARGS__, "c9", "g9", "s", "r", done))

const std::vector<Request> requests{
    // Conversations.
    {"list_group", R"({"uin":42,"sort_by":1,"pindex":1,"psize":20})",
     CALL(getListConversation(42, 1, 20, done)),
     Answers{{"[" + conversations + "]", success(conversations)},
             {"[{}]", success(R"({"result":0,"groups":[]})")},
             {R"([{"result":3}])", failure(1)}, {R"(["text"])", failure(1)}}, none},
    {"delete_conversation", R"({"group_id":"g1"})", CALL(deleteConversation("g1", false, done)),
     resultCode, "delete_group"},
    {"delete_secret_chat", R"({"group_id":"g1"})", CALL(deleteConversation("g1", true, done)),
     resultCode, "delete_group"},
    {"mute_group", R"({"group_id":"g1"})", CALL(muteGroup("g1", true, done)), boolean},
    {"unmute_group", R"({"group_id":"g1"})", CALL(muteGroup("g1", false, done)), boolean},
    {"pin_group", R"({"group_id":"42"})", CALL(togglePin("42", true, done)), boolean, own,
     "KorivaSDK - pin_group, group_id: 42\n"},
    {"unpin_group", R"({"group_id":"42"})", CALL(togglePin("42", false, done)), boolean, own,
     "KorivaSDK - unpin_group, group_id: 42\n"},
    {"check_group", R"({"type":"private","occupants_uins":["1","2\"\\"]})",
     CALL(checkGroup("private", {"1", "2\"\\"}, done)), conversationResponse, own,
     "KorivaSDK - check_group, occupants_uins: [\"1\", \"2\\\"\\\\\"]\n"},
    {"check_group", R"({"type":"","occupants_uins":[]})", CALL(checkGroup("", {}, done)), Answers{},
     own, "KorivaSDK - check_group, occupants_uins: []\n"},
    // Messages.
    {"list_message", R"({"group_id":"g1","pindex":2,"psize":50,"last_message_id":"m9"})",
     CALL(getListMessage("g1", "m9", 2, 50, done)),
     Answers{{"[" + messages + "]", success(messages)}, {R"([{"result":1}])", failure(1)},
             {R"(["text"])", failure(1)}}},
    {"list_message", R"({"group_id":"g1","pindex":0,"psize":50})",
     CALL(getListMessage("g1", "", 0, 50, done)), Answers{}},
    {"create_message", sentText + "}", CALL(sendMessage(outgoing(0), done)), messageResponse(1, 13)},
    {"create_message", sentText + "}", CALL(sendMessage(outgoing(11), done)), Answers{}},
    {"create_message", sentText + sentAttachments, CALL(sendMessage(outgoing(2), done)), Answers{}},
    {"update_message", R"({"group_id":"g1","message_id":"m1","status":99})",
     CALL(updateMessageStatus(outgoing(0), 99, done)), messageResponse(6, 1)},
    {"delete_message", R"({"message_id":"m1","group_id":"g1","delete_all":true})",
     CALL(deleteMessage("m1", "g1", true, done)), resultCode},
    // Groups and links.
    {"create_group",
     R"({"type":2,"owner_uin":"1","occupants_uins":["1","2","1"],"name":"The group",)"
     R"("avatar_url":"ava","sender_name":"n","sender_avatar":"a"})",
     CALL(createGroup(group("The group"), "n", "a", done)), conversationResponse},
    {"update_group", R"({"group_id":"g1","push_all":[],"pull_all":[]})",
     CALL(updateGroup(group(""), std::nullopt, std::nullopt, done)), conversationResponse},
    {"update_group",
     R"({"group_id":"g1","push_all":["3","4"],"pull_all":["5"],"name":"The group",)"
     R"("avatar_url":"ava","owner_uin":"1"})",
     CALL(updateGroup(group("The group"), Uins{"3", "4"}, Uins{"5"}, done)), Answers{}},
    {"delete_group", R"({"group_id":"g1"})", CALL(deleteGroup("g1", done)), resultCode},
    {"leave_group", R"({"group_id":"g1"})", CALL(leaveGroup("g1", done)), resultCode},
    {"event", R"({"group_id":"g1","sender_uin":"1001","type":9})",
     CALL(sendGroupEvent("1001", {"g1", KRGroupEventKind::StartTyping{}}))},
    {"event", R"({"group_id":"g1","sender_uin":"1001","type":10})",
     CALL(sendGroupEvent("1001", {"g1", KRGroupEventKind::StopTyping{}}))},
    {"create_link", R"({"group_id":"g1"})", CALL(createJoinGroupLink("g1", done)),
     Answers{{R"([{"result":0,"link":"abc"}])", success("abc")}, {R"([{"result":0}])", failure(1)},
             {R"([{"link":"abc"}])", failure(1)}, {R"([{"result":2,"link":"abc"}])", failure(1)}}},
    {"join_link", R"({"token":"t"})", CALL(joinGroupWithLink("t", done)), conversationResponse},
    {"disable_link", R"({"token":"t"})", CALL(disableJoinGroupLink("t", done)), boolean},
    {"list_link", R"({"group_id":"g1","pindex":0,"psize":10})",
     CALL(getListGroupLink("g1", 0, 10, done)),
     Answers{{R"([{"result":0,"links":[]}])", success("[]")},
             {R"([{"result":0,"links":["a","b"]}])", success(R"(["a","b"])")},
             {R"([{"result":0,"links":["a",1]}])", failure(1)}, {R"([{"result":0}])", failure(1)},
             {R"([{"result":2,"links":[]}])", failure(1)}}},
    {"link_group_info", R"({"token":"t"})", CALL(getGroupInfo("t", done)), conversationResponse},
    // Contacts, push tokens and logout.
    {"block_user", R"({"group_id":"g1","blocked_uin":"2"})",
     CALL(handleBlockOrUnblockContact("2", "g1", true, done)), boolean},
    {"unblock_user", R"({"group_id":"g1","blocked_uin":"2"})",
     CALL(handleBlockOrUnblockContact("2", "g1", false, done)), boolean},
    {"blocked_list", R"({"uin":"1001"})", CALL(getBlockContactList("1001", done)),
     Answers{{"[" + blocked + "]", success(blocked)}, {R"([{"result":0}])", failure(1)},
             {R"([{"result":0,"list":[{"uin":"2"}]}])", failure(1)},
             {R"([{"result":4,"list":[]}])", failure(1)}}, "list_message"},
    {"register_profile_token", R"({"uin":42,"type":4,"token":"tok","device_id":"dev"})",
     CALL(registerFCMToken(42, "tok", KRDefines::TokenType::pushkit, "dev", done)), token, none,
     "KorivaSDK - register_profile_token: tok\n"},
    {"unregister_profile_token", R"({"uin":"42","token":"tok"})",
     CALL(unregisterFCMToken(42, "tok", KRDefines::TokenType::apns, done)), token, none,
     "KorivaSDK - unregister_profile_token: tok\n"},
    {"logout", R"({"uin":"-1","version":3})", CALL(sendLogoutEvent(-1, 3))},
    // Calls.
    {"create_call", newCallText, CALL(createCall(Event::CreateCall{newCall}, done)),
     Answers{{R"([{"call":)" + samples::call + "}]", success(R"({"create_call":)" + samples::call + "}")},
             {R"([{"result":0}])", ""}, {R"([{"call":5}])", ""}, {R"(["text"])", ""}},
     "create_message"},
    {"answer_call", R"({"call_id":"c1","callee_uin":"2","answer":1})",
     CALL(createCall(Event::AnswerCall{{"c1", "2", 1}}, done)),
     Answers{{R"([{"call":)" + samples::call + "}]", ""}}, "create_message"},
    {"call_status", R"({"group_id":7,"call_id":8})", CALL(checkCall(7, 8, done)), yesOrNo("status", "1")},
    {"stop_call", R"({"group_id":"g9","call_id":"c9","uin":"s"})", STEP(StopCall{{"x", "y"}})},
    {"ice_sdp", R"({"group_id":"g9","call_id":"c9","sender_uin":"s","receiver_uin":"r","type":1,"sdp":"v=0"})",
     STEP(IceSdp{{"v=0", 1}})},
    {"ice_candidate",
     R"({"group_id":"g9","call_id":"c9","sender_uin":"s","receiver_uin":"r","candidate":"can",)"
     R"("sdp_mid":"mid","sdp_mline_index":3})", STEP(IceCandidate{{"can", "mid", 3}})},
    {"answer_call", R"({"group_id":"g9","call_id":"c9","callee_uin":"2","answer":1})",
     STEP(AnswerCall{{"x", "2", 1}})},
    {"event", R"({"group_id":"g9","sender_uin":"s","receiver_uin":"r","type":3,"data":"data"})",
     STEP(CustomEvent{{"x", "y", 3, "data", "g0", "c0"}})},
    {"call_event", R"({"group_id":"g9","call_id":"c9","event":2})", STEP(SendEventCall{{"x", "y", 2}})},
    {"start_call", "{}", STEP(StartCall{newCall})},
    {"create_call", "{}", STEP(CreateCall{newCall})},
    // Secret chats.
    {"start_secret_chat",
     R"({"owner_uin":1,"device_id":"d","identity_key":"i\"k","base_key":"","one_time_pre_key":"o","receiver_uin":2})",
     CALL(startSecretChat(1, 2, "d", "i\"k", "", "o", done)),
     Answers{{R"([{"result":0,"group":)" + conversation + "}]", success(conversation)},
             {R"([{"result":5,"group":{}}])", failure(1)}, {R"([{"result":0}])", failure(6)},
             {R"([{"group":{}}])", failure(6)}, {R"(["text"])", failure(6)}}, none,
     R"(start_secret_chat:  ["owner_uin": 1, "device_id": "d", "identity_key": "i\"k", "base_key": "", )"
     R"("one_time_pre_key": "o", "receiver_uin": 2])" "\n"},
    {"accept_secret_chat",
     R"({"group_id":"g1","accept_uin":1,"device_id":"d","identity_key":"i","base_key":"b","one_time_pre_key":"o"})",
     CALL(acceptSecretChat(1, "g1", "d", "i", "b", "o", done)),
     Answers{{R"([{"result":3}])", success("true")}, {R"(["text"])", success("true")},
             {"[null]", success("true")}}, none,
     R"(accept_secret_chat:  ["group_id": "g1", "accept_uin": 1, "device_id": "d", "identity_key": "i", )"
     R"("base_key": "b", "one_time_pre_key": "o"])" "\n"},
};

Answers answersOf(const Request& request) {
  if (!request.answers) return {{"[]", ""}};
  const std::string binary = "KorivaSDK - getDataFromAck failed with error: binary data is not JSON\n";
  const auto noData = request.noData() + failure(6);
  Answers answers{{"[]", noData}, {R"(["NO ACK"])", noData}, {R"(["NO ACK",{"result":0}])", noData},
                  {R"([{"$binary":"abc"}])", binary + noData},
                  {R"([{"result":0,"more":{"$binary":"abc"}}])", binary + noData}};
  answers.insert(answers.end(), request.answers->begin(), request.answers->end());
  return answers;
}
// clang-format on

using RequestsTest = ServerTest;

TEST_F(RequestsTest, SendTheirPayloadAndReadTheAnswer) {
  connect();
  for (const auto& request : requests) {
    for (const auto& [items, printed] : answersOf(request)) {
      SCOPED_TRACE(request.event + " " + request.payload + " answered " + items);
      console.take();
      server.answer(request.event, items);
      server.tell(R"({"do":"forget"})");
      request.send(*sdk, Done{});
      settle();
      EXPECT_EQ(console.take(), request.trace + printed + "settled: Success\n");
      const json::array payloads{json::parse(request.payload)};
      EXPECT_EQ(server.reports("event").at(0),
                (json::array{request.event, payloads, request.answers.has_value()}));
    }
  }
}

TEST_F(RequestsTest, WithoutASocketOnlyPrintTheirTrace) {
  std::string traces;
  for (const auto& request : requests) {
    request.send(*sdk, Done{});
    traces += request.trace;
  }
  KRRunLoop::main().post([] { koriva::printLine("end"); });
  EXPECT_TRUE(awaitText("end\n"));
  EXPECT_EQ(console.take(), traces + "end\n");
}

TEST_F(RequestsTest, FailAfterFiveSecondsWithoutAnAnswer) {
  connect();
  const auto start = std::chrono::steady_clock::now();
  std::string traces;
  std::string outcomes;
  for (const auto& request : requests) {
    if (!request.answers) continue;
    request.send(*sdk, Done{});
    request.send(*sdk, Done{""});
    traces += request.trace + request.trace;
    outcomes += request.noData() + failure(6) + request.noData();
  }
  sdk->acceptSecretChat(0, "", "", "", "", "", Done{"last"});
  EXPECT_TRUE(awaitText("last: "));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 4900ms);
  EXPECT_THAT(console.take(),
              testing::AllOf(testing::StartsWith(traces),
                             testing::EndsWith("]\n" + outcomes + "last: failure 6\n")));
}

TEST_F(RequestsTest, CompleteOnceEachWithTenThousandInFlight) {
  constexpr std::size_t half = 5000;
  constexpr std::size_t slack = std::size_t{1} << 20;
  koriva::timing().limits.acknowledgement = 120s;
  connect();
  server.answer("create_link", R"([{"result":0,"link":{"$payload":"group_id"}}])");
  server.tell(R"({"do":"hold"})");
  std::vector<int> completed(2 * half);
  std::size_t total = 0;
  const auto inUse = [] { return mallinfo2().uordblks; };
  const auto send = [&](std::size_t from) {
    for (std::size_t i = from; i < from + half; ++i) {
      sdk->createJoinGroupLink(std::to_string(i), [&, i](const KRResult<std::string>& link) {
        if (link && link.value() == std::to_string(i)) ++completed[i];
        ++total;
      });
    }
    EXPECT_TRUE(runUntil([&] { return server.tell(R"({"do":"held"})") == from + half; }));
  };
  const auto atStart = inUse();
  send(0);
  const auto halfWay = inUse();
  send(half);
  EXPECT_LE(inUse() - atStart, 2 * (halfWay - atStart) + slack);
  server.tell(R"({"do":"release"})");
  EXPECT_TRUE(runUntil([&] { return total == 2 * half; }));
  settle();
  EXPECT_EQ(total, 2 * half);
  EXPECT_EQ(completed, std::vector<int>(2 * half, 1));
  EXPECT_LE(inUse(), atStart + slack);
}

}  // namespace
