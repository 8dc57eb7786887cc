#include "simulation/Model.h"

#include <charconv>

#include "simulation/Completion.h"

namespace koriva::simulation {
namespace {

using enum Outcome;

KRMessage messageOf(const std::string& number) {
  KRMessage message;
  message.messageID = number;
  message.message = "Hi";
  return message;
}

KRCall callOf(const std::string& number) {
  KRCall call;
  call.id = number;
  return call;
}

}  // namespace

std::optional<int> numberIn(std::string_view text) {
  constexpr std::size_t digits = 9;
  for (auto at = text.find('9'); at != text.npos; at = text.find('9', at + 1)) {
    int number = 0;
    const auto* const start = text.data() + at;
    const auto* const end = start + std::min(text.size() - at, digits);
    if (std::from_chars(start, end, number).ptr == end && number >= firstNumber) return number;
  }
  return std::nullopt;
}

const std::vector<Kind>& kinds() {
  using Sdk = KorivaSDK;
  using Number = std::string;
  using Done = Completion;
  static const std::vector<Kind> all{
      {"delete_group",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.deleteGroup(n, done); },
       {{R"({"result":0})", success}, {R"({"result":2})", failure}, {"{}", silence}}},
      {"mute_group",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.muteGroup(n, true, done); },
       {{R"({"result":0})", success}, {R"({"result":5})", success}, {"{}", failure}}},
      {"call_status",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.checkCall(std::stoi(n), 1, done); },
       {{R"({"status":1})", success}, {R"({"result":0})", failure}}},
      {"check_group",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.checkGroup("private", {n}, done); },
       {{R"({"result":0,"group":{"group_id":"g"}})", success}, {R"({"result":0})", failure}}},
      {"create_message",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.sendMessage(messageOf(n), done); },
       {{R"({"result":0,"message":{"message":"Hi"}})", success}, {R"({"result":13})", failure}}},
      {"create_message",
       [](Sdk& sdk, const Number& n, const Done& done) {
         auto message = messageOf(n);
         message.message = std::string(5000, 'x');
         sdk.sendMessage(message, done);
       },
       {{R"({"result":0,"message":{"message":"Hi"}})", success}},
       true},
      {"update_message",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.updateMessageStatus(messageOf(n), 3, done);
       },
       {{R"({"result":0,"message":{}})", success}, {R"({"result":13})", failure}}},
      {"list_group",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.getListConversation(std::stoi(n), 0, 20, done);
       },
       {{R"({"result":0,"groups":[{},{}]})", success}, {R"({"result":3})", failure}}},
      {"list_message",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.getListMessage(n, "", 0, 50, done); },
       {{R"({"result":0,"messages":[{}]})", success}, {R"({"result":1})", failure}}},
      {"register_profile_token",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.registerFCMToken(1, n, KRDefines::TokenType::fcm, "device", done);
       },
       {{R"({"result":1})", success}, {R"("text")", success}}},
      {"create_link",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.createJoinGroupLink(n, done); },
       {{R"({"result":0,"link":"l"})", success}, {R"({"result":0})", failure}}},
      {"list_link",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.getListGroupLink(n, 0, 10, done); },
       {{R"({"result":0,"links":["l"]})", success}, {R"({"result":0})", failure}}},
      {"blocked_list",
       [](Sdk& sdk, const Number& n, const Done& done) { sdk.getBlockContactList(n, done); },
       {{R"({"result":0,"list":[]})", success}, {R"({"result":0})", failure}}},
      {"create_call",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.createCall(KRCallEvent::CreateCall{callOf(n)}, done);
       },
       {{R"({"call":{"call_id":"c"}})", success}, {R"({"result":0})", silence}}},
      {"start_call",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.createCall(KRCallEvent::StartCall{callOf(n)}, done);
       },
       {{R"({"call":{"call_id":"c"}})", silence}}},
      {"start_secret_chat",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.startSecretChat(std::stoi(n), 2, "d", "i", "b", "o", done);
       },
       {{R"({"result":0,"group":{}})", success}, {R"({"result":0})", failure}}},
      {"accept_secret_chat",
       [](Sdk& sdk, const Number& n, const Done& done) {
         sdk.acceptSecretChat(1, n, "d", "i", "b", "o", done);
       },
       {{R"({"result":3})", success}}},
  };
  return all;
}

const std::vector<Kind::Answer>& uselessAnswers() {
  static const std::vector<Kind::Answer> all{
      {"", failure}, {"nonsense", failure}, {R"("NO ACK")", failure}};
  return all;
}

const std::vector<Push>& pushes() {
  static const std::vector<Push> all{
      {"message", R"({"message_id":"%","message":"Hi"})", {"didReceive"}},
      {"update_message", R"({"group_id":"%"})", {"didReceiveGroupEvent update"}},
      {"delete_message", R"({"group_id":"%"})", {"didReceiveGroupEvent delete"}},
      {"user_status",
       R"({"user_status":{"uin":"%","online_status":1,"message_status":""}})",
       {"didUpdateUserStatus"}},
      {"delete_group", R"({"group_id":"%"})", {"didDeleteGroup"}},
      {"group", R"({"group_id":"%"})", {"didReceiveNewGroup"}},
      {"update_group",
       R"({"group_id":"%","name":"","avatar_url":"","owner_uin":"","pull_all":[],"push_all":[],)"
       R"("blocked_all":[],"unblocked_all":[]})",
       {"didUpdateGroup"}},
      {"error", R"({"error":7,"number":%})", {"didReceiveError 7"}},
      {"login", R"({"result":2,"uin":"%"})", {"didReceiveError 2"}},
      {"login", R"({"result":0,"uin":"%"})", {}},
      {"start_call", R"({"call":{"call_id":"%"}})", {"didReceiveCall start_call"}},
      {"answer_call", R"({"call_id":"%","answer":1})", {"didReceiveCall answer_call"}},
      {"stop_call", R"({"call_id":"%"})", {"didReceiveCall stop_call"}},
      {"ice_sdp", R"({"sdp":"%","type":1})", {"didReceiveCall ice_sdp"}},
      {"ice_candidate", R"({"candidate":"%"})", {"didReceiveCall ice_candidate"}},
      {"event", R"({"group_id":"%","type":3})", {"didReceiveCall event"}},
      {"event",
       R"({"group_id":"%","type":9})",
       {"didReceiveCall event", "didReceiveGroupEvent start"}},
      {"event",
       R"({"group_id":"%","type":10})",
       {"didReceiveCall event", "didReceiveGroupEvent stop"}},
      {"delete_conversation", R"({"group_id":"%"})", {}},
      {"start_secret_chat",
       R"({"group_id":"%","uin":"1","device_id":"","identity_key":"","base_key":"",)"
       R"("one_time_pre_key":""})",
       {"didStartSecretChat"}},
      {"accept_secret_chat",
       R"({"group_id":"%","uin":"1","device_id":"","identity_key":"","base_key":"",)"
       R"("one_time_pre_key":""})",
       {"didAcceptSecretChat"}},
      {"delete_secret_chat",
       R"({"group_id":"%","group_name":"","group_avatar":""})",
       {"didDeleteSecretChat"}},
      {"block_user", R"({"group_id":"%","blocked_uin":"1"})", {"didBlockContact"}},
      {"unblock_user", R"({"group_id":"%","blocked_uin":"1"})", {"didUnblockContact"}},
      {"message", R"(["%"])", {}},
      {"group", "nonsense %", {}},
      {"connect", R"({"number":%})", {}},
      {"disconnect", R"("%")", {}},
      {"no_such_event", R"({"number":%})", {}},
  };
  return all;
}

const std::vector<std::string_view>& strangeFrames() {
  static const std::vector<std::string_view> all{
      "",
      "2",
      "2probe",
      "4",
      "5",
      "0{}",
      "40/data,{}",
      "40/other,{}",
      "1",
      "41/data,",
      "41/other,",
      "44/data,{\"message\":\"not now\"}",
      "42/data,",
      "42/data,[",
      "42/data,[\"message\"",
      "42/data,[]",
      "42/data,[5,{}]",
      "42[\"message\",{\"message_id\":\"%\"}]",
      "42/other,[\"message\",{\"message_id\":\"%\"}]",
      "43/data,99999[{\"result\":0}]",
      "43/data,[{\"result\":0}]",
      "43/data,-1[{}]",
      "45/data,1-",
      "451-/data,[\"message\",{\"_placeholder\":true,\"num\":0}]",
      "452-/data,[\"no_such_event\",{},{\"_placeholder\":true,\"num\":1}]",
      "b",
  };
  return all;
}

}  // namespace koriva::simulation
