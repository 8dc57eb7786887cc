#include <gtest/gtest.h>

#include <algorithm>
#include <boost/json/value.hpp>
#include <cmath>
#include <optional>
#include <tuple>

#include "extensions/JSONCoding.h"
#include "extensions/JSONPrinter.h"
#include "models/KRBlock.h"
#include "models/KRCallEvent.h"
#include "models/KRConversation.h"
#include "models/KRGroupEvent.h"
#include "models/KRGroupLink.h"
#include "models/KRLoginEvent.h"

namespace {

using Call = KRCallEvent;
using Event = KRGroupEventKind;
using Kind = KRMessageKind;
using Texts = std::vector<std::string>;
using Update = KRGroupUpdateType;

/// JSON that is written with single quotes.
std::string json(std::string text) {
  std::replace(text.begin(), text.end(), '\'', '"');
  return text;
}

KRDictionary dictionary(const std::string& text) {
  return koriva::json::parseDictionary(text).value();
}

template <class T>
auto decode(std::string_view text) {
  return KRJSONDecoder{}.decode<T>(text);
}

template <class T>
std::string encode(const T& record) {
  return KRJSONEncoder{}.encode(record);
}

std::string encode(const KRDictionary& members) {
  std::string text;
  EXPECT_TRUE(koriva::json::write(text, members));
  return text;
}

/// The default of a member like this one; null stands for absence.
boost::json::value zeroOf(const boost::json::value& value) {
  if (value.is_string()) return "";
  if (value.is_bool()) return false;
  if (value.is_number()) return 0;
  return value.is_array() ? boost::json::value(boost::json::array()) : boost::json::value();
}

void set(KRDictionary& members, std::string_view key, const boost::json::value& value) {
  members[key] = value;
  if (value.is_null()) members.erase(key);
}

constexpr auto strict = std::nullopt;
const KRDictionary lenient;

/// Checks a record against its text. Taking any key out, or making it null or of a type that no
/// field has, fails a strict record and leaves a lenient one with that key's default, which is
/// empty or zero unless told otherwise.
template <class T>
void check(const std::optional<KRDictionary>& defaults, const T& record, std::string full) {
  full = json(full);
  SCOPED_TRACE(full);
  EXPECT_EQ(encode(record), full);
  EXPECT_TRUE(decode<T>(full).value() == record);
  const auto members = dictionary(full);
  auto empty = members;
  for (const auto& member : members) {
    for (const char* wrong : {"", "[0]", "null"}) {
      SCOPED_TRACE(std::string(member.key()) + wrong);
      auto changed = members;
      changed.erase(member.key());
      if (*wrong) changed[member.key()] = koriva::json::parseValue(wrong).value();
      const auto decoded = decode<T>(encode(changed));
      ASSERT_EQ(decoded.has_value(), defaults.has_value());
      if (!decoded) continue;
      const auto* other = defaults->if_contains(member.key());
      set(changed, member.key(), other ? *other : zeroOf(member.value()));
      set(empty, member.key(), other ? *other : zeroOf(member.value()));
      EXPECT_TRUE(dictionary(encode(*decoded)) == changed) << encode(*decoded);
    }
  }
  EXPECT_TRUE(defaults ? dictionary(encode(decode<T>("{}").value())) == empty : !decode<T>("{}"));
  for (const char* text : {"", "null", "12", "[]", "\"{}\"", "{"}) {
    EXPECT_FALSE(decode<T>(text)) << text;
  }
}

const std::string messageJson =
    "{'group_avatar':'ga','sender_name':'sn','sender_avatar':'sa','group_id':'g','status':3,"
    "'seen_uins':['1'],'received_uins':['1','2'],'message_id':'m','created_at':'x',"
    "'sender_uin':'1','message':'hi','recipient_uins':['2'],'deleted_uins':['3'],"
    "'group_name':'gn','type':11,'attachments':'a','version':2,'is_encrypted':true}";
const std::string callJson =
    "{'call_id':'c','group_id':'g','call_type':1,'media_type':2,'call_status':3,'caller_uin':'1',"
    "'callee_uins':['2'],'accepted_uins':['3'],'started_at':'4','stopped_at':'5',"
    "'accepted_at':'6','connected_at':'7'}";
const std::string conversationJson =
    "{'occupants_uins':['1','2'],'blocked_uins':['b'],'muted_uins':['m'],"
    "'received_list':{'1':'r'},'seen_list':{'1':'s'},'group_id':'g','created_at':'c',"
    "'last_message_id':'l','avatar_url':'a','type':2,'updated_at':'u','name':'n','owner_uin':'o',"
    "'creator_uin':'cr','removed_uins':['x'],'last_message':" +
    messageJson +
    ",'status_list':[{'uin':'1','online_status':1,'message_status':'s'}],'pinned_uins':['p'],"
    "'secrets':[{'uin':'1','device_id':'d','identity_key':'i','base_key':'b',"
    "'one_time_pre_key':'o'}],'last_active_messages':[{'uin':'1','message_id':'m'}]}";
const std::string keysJson =
    "{'group_id':'g','uin':'1','device_id':'d','identity_key':'i','base_key':'b',"
    "'one_time_pre_key':'o'}";

KRMessage fullMessage() {
  KRMessage it("m", "g", "hi", "sn", "sa", "1", true);
  std::tie(it.groupAvatar, it.status, it.seenUins, it.receivedUins, it.createdAt, it.groupName) =
      std::tuple("ga", 3, Texts{"1"}, Texts{"1", "2"}, "x", "gn");
  std::tie(it.recipientUins, it.deletedUins, it.type, it.attachments, it.version, it.kind) =
      std::tuple(Texts{"2"}, Texts{"3"}, 11, "a", 2, Kind::Text{"hi"});
  return it;
}

KRCall fullCall() {
  KRCall it("c", KRCall::MEDIA_TYPE_VIDEO, "g", "1", {"2"});
  it.acceptedUins = {"3"};
  std::tie(it.callStatus, it.startedAt, it.stoppedAt, it.answeredAt, it.connectedAt) =
      std::tuple(KRCall::CALL_STATUS_FAILED, "4", "5", "6", "7");
  return it;
}

KRConversation fullConversation() {
  KRConversation it(KRGroupUpdate{"n", "a", "o", "g", {"x"}, {}, {"b"}, {}});
  std::tie(it.occupantsUins, it.mutedUins, it.pinnedUins, it.createdAt, it.updatedAt) =
      std::tuple(Texts{"1", "2"}, Texts{"m"}, Texts{"p"}, "c", "u");
  std::tie(it.lastMessageID, it.type, it.creatorUin, it.lastMessage) =
      std::tuple("l", 2, "cr", fullMessage());
  it.receivedList = {{"1", "r"}};
  it.seenList = {{"1", "s"}};
  it.statusList = {{"1", 1, "s"}};
  it.secrets = {{"1", "d", "i", "b", "o"}};
  it.lastActiveMessages = {{"1", "m"}};
  return it;
}

TEST(Records, AreReadStrictlyOrLenientlyAndWrittenBack) {
  const auto message = fullMessage();
  const auto group = fullConversation();
  const std::string image = "{'url':'u','width':1,'height':2,'sub_index':3}";
  const std::string video = "{'url':'u','thumbnail_url':'t','duration':1,'width':2,'height':3}";
  const std::string file = "{'url':'u','size':1.5,'file_name':'n','file_extension':'e'}";
  const std::string status = "{'uin':'1','online_status':5,'message_status':'s'}";
  const std::string ofGroup = "{'result':1,'group':" + conversationJson + "}";
  check(KRDictionary{{"status", 1}}, message, messageJson);
  check(
      KRDictionary{
          {"started_at", "0"}, {"stopped_at", "0"}, {"accepted_at", "0"}, {"connected_at", "0"}},
      fullCall(), callJson);
  check(KRDictionary{{"received_list", KRDictionary()}, {"seen_list", KRDictionary()}}, group,
        conversationJson);
  check(lenient, KRImage{"u", 1, 2, 3}, image);
  check(lenient, KRImageResponse{{{"u", 1, 2, 3}}}, "{'images':[" + image + "]}");
  check(lenient, KRImageURLsResponse{{"u", "v"}}, "{'images':['u','v']}");
  check(strict, KRVideoResponse{{"u", "t", 1, 2, 3}}, "{'video':" + video + "}");
  check(strict, KRVideo{"u", "t", 1, 2, 3}, video);
  check(strict, KRAudioResponse{{"u", 1}}, "{'audio':{'url':'u','duration':1}}");
  check(strict, KRFile{"u", "n", "e", 1.5}, file);
  check(strict, KRFileResponse{{"u", "n", "e", 1.5}}, "{'file':" + file + "}");
  check(strict, KRStickerResponse{{"s"}}, "{'sticker':{'sticker':'s'}}");
  check(strict, KRCallResponse{fullCall()}, "{'call':" + callJson + "}");
  check(lenient, KRStartCall{"g", "c", 2}, "{'group_id':'g','call_id':'c','event':2}");
  check(lenient, KRAnswerCall{"c", "2", 1}, "{'call_id':'c','callee_uin':'2','answer':1}");
  check(lenient, KRStopCall{"c", "1"}, "{'call_id':'c','uin':'1'}");
  check(lenient, KRIceSdp{"v=0\r\n", 1}, R"({'sdp':'v=0\r\n','type':1})");
  check(lenient, KRIceCandidate{"c", "m", 1},
        "{'candidate':'c','sdp_mid':'m','sdp_mline_index':1}");
  check(lenient, KREvent{"1", "2", 3, R"({"a":1})", "g", "c"},
        "{'sender_uin':'1','receiver_uin':'2','type':3,'data':'{\\'a\\':1}','group_id':'g',"
        "'call_id':'c'}");
  check(strict, KRGroupUpdate{"n", "a", "o", "g", {"r"}, {"p"}, {"b"}, {"u"}},
        "{'name':'n','avatar_url':'a','owner_uin':'o','group_id':'g','pull_all':['r'],"
        "'push_all':['p'],'blocked_all':['b'],'unblocked_all':['u']}");
  check(lenient, KRGroupMessageStatus{"1", "m"}, "{'uin':'1','message_id':'m'}");
  check(KRDictionary{{"psize", nullptr}, {"pindex", nullptr}}, KRConversationList{1, 2, 3, {group}},
        "{'result':1,'psize':2,'pindex':3,'groups':[" + conversationJson + "]}");
  check(lenient, KRConversationResponse{1, group}, ofGroup);
  check(strict, KRSecretChatResponse{1, group}, ofGroup);
  check(lenient, KRMessageList{"g", 1, 2, 3, "l", {message}},
        "{'group_id':'g','result':1,'psize':2,'pindex':3,'last_message_id':'l','messages':[" +
            messageJson + "]}");
  check(lenient, KRMessageResponse{13, message}, "{'result':13,'message':" + messageJson + "}");
  check(strict, KRStartSecretChat{"g", "1", "d", "i", "b", "o"}, keysJson);
  check(strict, KRAcceptSecretChat{"g", "1", "d", "i", "b", "o"}, keysJson);
  check(strict, KRDeleteSecretChat{"g", "n", "a"},
        "{'group_id':'g','group_name':'n','group_avatar':'a'}");
  check(strict, KRBlock{"g", "1"}, "{'group_id':'g','blocked_uin':'1'}");
  check(strict, KRBlockContactList{1, {{"1", "g"}}},
        "{'result':1,'list':[{'uin':'1','group_id':'g'}]}");
  check(strict, KRGroupLinkResponse{1, "l"}, "{'result':1,'link':'l'}");
  check(strict, KRListGroupLinkResponse{1, {"l"}}, "{'result':1,'links':['l']}");
  check(strict, KRUserStatusResponse{{"1", 5, "s"}}, "{'user_status':" + status + "}");
  check(strict, KRUserStatus{"1", 5, "s"}, status);
  check(strict, KRLoginEvent{2, "1"}, "{'result':2,'uin':'1'}");
}

TEST(Records, KnowTheirCodesAndCases) {
  using namespace koriva;
  using D = KRDefines;
  EXPECT_TRUE(KRConversationList{}.codeCheck() && KRConversationResponse{}.codeCheck());
  EXPECT_FALSE(KRMessageList({"", 13, 0, 0, "", {}}).codeCheck());
  EXPECT_FALSE(KRBlockContactList({1, {}}).codeCheck() || KRGroupLinkResponse({1, ""}).codeCheck());
  EXPECT_TRUE(KRMessageResponse({13, {}}).duplicateCode());
  EXPECT_EQ(KRUserStatus({"1", 5, ""}).status(), D::OnlineStatus::away);
  EXPECT_EQ(KRUserStatus({"1", 7, ""}).status(), D::OnlineStatus::offline);
  EXPECT_EQ(fromRawValue<D::TokenType>(4), D::TokenType::pushkit);
  EXPECT_EQ(fromRawValue<D::Answer>(-1), D::Answer::unrecognized);
  EXPECT_EQ(fromRawValue<D::IgnoreType>(-1), D::IgnoreType::unrecognized);
  EXPECT_FALSE(fromRawValue<D::TokenType>(3) || fromRawValue<D::GroupType>(4) ||
               fromRawValue<D::GroupSortType>(3) || fromRawValue<D::MessageStatus>(-2));
  std::string names;
  for (std::int64_t raw = -1; raw < 15; ++raw) {
    if (const auto type = fromRawValue<KRMessageType>(raw)) names += typeName(*type) + " ";
  }
  EXPECT_EQ(names,
            "text call image audio video first_message group_update leave_group reply forward "
            "sticker file screenshot ");
}

TEST(Message, ContentsFollowTypeVersionAndAttachments) {
  const auto quote = *decode<KRMessage>(json("{'message_id':'q'}"));
  struct {
    std::int64_t type, version;
    std::string attachments;
    Kind kind;
    std::string written;
  } const rows[] = {
      {0, 0, "{}", Kind::Text{"a\nb"}, R"({'type':'text','text':'a\nb'})"},
      {11, 0, "", Kind::Text{"a\nb"}, R"({'type':'text','text':'a\nb'})"},
      {1, 0, callJson, Kind::Call{fullCall()}, "{'type':'call','call':" + callJson + "}"},
      {2, 0, "{'images':['u']}", Kind::Images{{{"u", {}, {}, {}}}},
       "{'type':'image','images':[{'url':'u'}]}"},
      {2, 1, "{'images':[{'url':'u'}]}", Kind::Images{{{"u", 0, 0, 0}}},
       "{'type':'image','images':[{'url':'u','width':0,'height':0,'sub_index':0}]}"},
      {2, 1, "{'images':['u']}", Kind::Images{}, "{'type':'image','images':[]}"},
      {3, 0, "{'audio':{'url':'u','duration':1}}", Kind::Audio{{"u", 1}},
       "{'type':'audio','audio':{'url':'u','duration':1}}"},
      {4, 0, "{'video':{'url':'u'}}", Kind::Unknown{}, "{'type':'unknown'}"},
      {5, 0, "", Kind::FirstMessage{}, "{'type':'first_message'}"},
      {6, 0, "{'removed_uin':'5'}", Kind::GroupUpdate{Update::RemoveMember{"5"}},
       "{'type':'group_update','group_update':{'type':'remove_member','removed_uin':'5'}}"},
      {7, 0, "", Kind::LeaveGroup{"1"}, "{'type':'leave_group','sender_uin':'1'}"},
      {8, 0, "{'message_id':'q'}", Kind::Reply{"a\\nb", quote},
       R"({'type':'reply','message':'a\\nb','reply':)" + encode(quote) + "}"},
      {9, 0, "{'message_id':'q'}", Kind::Forward{"a\\nb", quote},
       R"({'type':'forward','message':'a\\nb','forward':)" + encode(quote) + "}"},
      {10, 0, "{'sticker':'s'}", Kind::Sticker{{"s"}},
       "{'type':'sticker','sticker':{'sticker':'s'}}"},
      {12, 0, "not JSON", Kind::Unknown{}, "{'type':'unknown'}"},
      {13, 0, "", Kind::Screenshot{}, "{'type':'screenshot'}"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.written);
    const auto message =
        decode<KRMessage>(encode(KRDictionary{{"type", row.type},
                                              {"version", row.version},
                                              {"message", "a\\nb"},
                                              {"sender_uin", "1"},
                                              {"attachments", json(row.attachments)}}));
    EXPECT_TRUE(message->kind == row.kind);
    EXPECT_EQ(encode(row.kind), json(row.written));
  }
}

TEST(Message, QuotesAreReadToABoundedDepth) {
  std::string text = "{}";
  for (int i = 0; i < 70; ++i) {
    const auto quoted = koriva::replaceAll(text, "\\", "\\u005c");
    text = json("{'type':8,'attachments':'" + koriva::replaceAll(quoted, "\"", "\\u0022") + "'}");
  }
  const auto message = decode<KRMessage>(text).value();
  int depth = 0;
  const KRMessage* at = &message;
  for (; at->kind.as<Kind::Reply>(); ++depth) at = &*at->kind.as<Kind::Reply>()->message;
  EXPECT_NEAR(depth, 64, 1);
  EXPECT_TRUE(at->kind.as<Kind::Unknown>());

  auto copy = message;
  copy.kind.as<Kind::Reply>()->message->groupID = "g";
  EXPECT_EQ(message.kind.as<Kind::Reply>()->message->groupID, "");
  EXPECT_FALSE(copy == message);
  const auto moved = std::move(*copy.kind.as<Kind::Reply>());
  EXPECT_EQ(moved.message->groupID, "g");
  EXPECT_EQ(copy.kind.as<Kind::Reply>()->message->groupID, "");
}

TEST(Message, CreationTimesAreMicroseconds) {
  const auto timeOf = [](const std::string& text) {
    return decode<KRMessage>(encode(KRDictionary{{"created_at", text}}))->createdAt;
  };
  EXPECT_EQ(timeOf("1600000000"), "1600000000000000.0");
  EXPECT_EQ(timeOf("1600000000.1234567"), "1600000000123456.8");
  EXPECT_EQ(timeOf("9999999999"), "9999999999000000.0");
  EXPECT_EQ(timeOf("+1.5e3") + timeOf("-1"), "1500000000.0-1000000.0");
  for (const char* kept : {"1600000000000000", "10000000000", "", " 1", "1 ", "0x10", "inf", "nan",
                           "+-1", "1,5", "-1e308", "1e999"}) {
    EXPECT_EQ(timeOf(kept), kept);
  }
}

TEST(Message, SomeFieldsAreReadAndNeverWritten) {
  const auto message = *decode<KRMessage>(json("{'send_uin':1.5,'recv_uin':2,'updated_at':3}"));
  EXPECT_TRUE(message.send_uin == 1.5 && message.recv_uin == 2 && message.updatedAt == 3);
  EXPECT_EQ(message.toString(), encode(KRMessage()));
  EXPECT_EQ(fullMessage().messageType(), KRMessageType::text);
  EXPECT_EQ(KRFile({"u", "n", "e", HUGE_VAL}).toString(), "");
}

TEST(Call, ComesFromThePushNotificationsOfCallsOnly) {
  const auto fromUserInfo = [](const char* type, const std::string& mediaType) {
    const auto payload =
        "{'call':{'callId':'c','groupId':'g','callerUin':'1'," + mediaType + "'calleeUins':['2']}}";
    return KRCall::fromUserInfo({{"Type", type}, {"Payload", json(payload)}});
  };
  const KRCall call("c", KRCall::MEDIA_TYPE_VIDEO, "g", "1", {"2"});
  EXPECT_EQ(call.type, KRCall::CALL_TYPE_PRIVATE);
  EXPECT_TRUE(fromUserInfo("call", "'mediaType':'MEDIA_TYPE_VIDEO',") == call);
  EXPECT_EQ(fromUserInfo("call", "'mediaType':'MEDIA_TYPE_AUDIO',").value().mediaType, 1);
  EXPECT_EQ(fromUserInfo("call", "'mediaType':'x',").value().mediaType, 0);
  EXPECT_FALSE(fromUserInfo("call", "'mediaType':1,") || fromUserInfo("call", ""));
  EXPECT_FALSE(fromUserInfo("message", "'mediaType':'MEDIA_TYPE_VIDEO',"));
  EXPECT_FALSE(KRCall::fromUserInfo({{"Type", "call"}, {"Payload", 1}}));
  EXPECT_FALSE(KRCall::fromUserInfo({{"Type", "call"}, {"Payload", "[]"}}));
}

TEST(CallEvent, IsWrittenUnderItsName) {
  const std::tuple<Call, std::string, std::string> rows[] = {
      {Call::StartCall{fullCall()}, "start_call", json(callJson)},
      {Call::CreateCall{fullCall()}, "create_call", json(callJson)},
      {Call::AnswerCall{{"c", "2", 1}}, "answer_call", encode(KRAnswerCall{"c", "2", 1})},
      {Call::StopCall{}, "stop_call", encode(KRStopCall{})},
      {Call::IceSdp{}, "ice_sdp", encode(KRIceSdp{})},
      {Call::IceCandidate{}, "ice_candidate", encode(KRIceCandidate{})},
      {Call::CustomEvent{}, "event", encode(KREvent{})},
      {Call::SendEventCall{}, "call_event", encode(KRStartCall{})}};
  for (const auto& [event, name, payload] : rows) {
    EXPECT_EQ(event.type(), name);
    EXPECT_EQ(encode(event), "{\"" + name + "\":" + payload + "}");
    EXPECT_EQ(event.toDictionary(), dictionary(payload));
    EXPECT_EQ(koriva::fromRawValue<Call::Key>(name), event.key());
  }
  EXPECT_EQ(koriva::rawValue(Call::Key::iceCandindate), "ice_candidate");
  EXPECT_EQ(koriva::fromRawValue<Call::Key>("Event"), std::nullopt);
}

TEST(GroupEvent, IsWrittenAsItsType) {
  EXPECT_EQ(encode(KRGroupEvent{"g", Event::StartTyping{}}),
            json("{'groupID':'g','kind':{'type':9}}"));
  EXPECT_EQ(encode(Event(Event::StopTyping{})), json("{'type':10}"));
  EXPECT_EQ(encode(Event(Event::UpdateMessage{fullMessage()})), json("{'type':0}"));
  EXPECT_EQ(encode(Event(Event::DeleteMessage{fullMessage()})), json("{'type':0}"));
}

TEST(GroupUpdateType, IsTheFirstCaseWhoseKeyIsUsable) {
  const std::tuple<const char*, Update, const char*> rows[] = {
      {"{'added_uins':['1'],'owner_uin':'2'}", Update::AddMembers{{"1"}},
       "{'type':'add_member','added_uins':['1']}"},
      {"{'added_uins':'5','removed_uin':'6'}", Update::RemoveMember{"6"},
       "{'type':'remove_member','removed_uin':'6'}"},
      {"{'removed_uin':null,'owner_uin':'7','updated_group_name':'n'}", Update::ChangeOwner{"7"},
       "{'type':'change_owner','owner_uin':'7'}"},
      {"{'updated_group_name':'n','updated_group_avatar':1}", Update::UpdateInfo{"n", ""},
       "{'type':'update_info','updated_group_name':'n','updated_group_avatar':''}"},
      {"{}", Update{}, "{'type':'update_info','updated_group_name':'','updated_group_avatar':''}"}};
  for (const auto& [text, update, written] : rows) {
    EXPECT_TRUE(*decode<Update>(json(text)) == update) << text;
    EXPECT_EQ(encode(update), json(written));
  }
  EXPECT_FALSE(decode<Update>("[]").has_value());
}

TEST(Conversation, TakesFromAnUpdateWhatItTells) {
  const KRConversation group(KRGroupUpdate{"n", "a", "o", "g", {"r"}, {"p"}, {"b"}, {"u"}});
  EXPECT_EQ(group.addedUins.at(0) + group.removedUins.at(0) + group.unblockedUins.at(0), "pru");
  EXPECT_EQ(encode(group).find("unblocked"), std::string::npos);
  EXPECT_TRUE(decode<KRConversation>(json("{'status_list':[{'uin':'1'}]}"))->statusList.empty());
}

}  // namespace
