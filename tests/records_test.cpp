#include <algorithm>
#include <boost/core/demangle.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <span>
#include <typeinfo>

#include "KorivaSDK/KRError.h"
#include "extensions/JSONFields.h"
#include "extensions/JSONText.h"
#include "extensions/StringRewriters.h"
#include "models/KRBlock.h"
#include "models/KRCallEvent.h"
#include "models/KRConversation.h"
#include "models/KRGroupLink.h"
#include "models/KRLoginEvent.h"
#include "support/Table.h"

namespace {

using D = KRDefines;
using Reply = KRMessageKind::Reply;
using koriva::toJsonString;
using koriva::json::decode;
using koriva::json::parseDictionary;
using koriva::test::reread;
using koriva::test::Row;

constexpr KRJSONEncoder encoder;

/// Whether these have the numbers from 0 on.
template <class T>
constexpr bool areCounted(std::initializer_list<T> names) {
  return std::all_of(names.begin(), names.end(), [number = std::int64_t{0}](T name) mutable {
    return name == static_cast<T>(number++);
  });
}

/// Whether an enumeration has just these cases, numbered from the first on; nullopt is none.
template <class E>
constexpr bool has(std::int64_t first, std::initializer_list<std::optional<E>> names) {
  const auto empty = std::count(names.begin(), names.end(), std::nullopt);
  return std::ssize(names) - empty == std::ssize(koriva::cases<E>) &&
         std::all_of(names.begin(), names.end(), [number = first](auto name) mutable {
           return koriva::fromRawValue<E>(number++) == name;
         });
}

struct Numbers : KRDefines, KRError, KRCall, KRStartCall, KRAnswerCall, KRIceSdp, KREvent {
  using Type = KRMessageType;
  static_assert(has<Type>(0, {Type::text, Type::call, Type::images, Type::audio, Type::video,
                              Type::firstMessage, Type::groupUpdate, Type::leaveGroup, Type::reply,
                              Type::forward, Type::sticker, std::nullopt, Type::file,
                              Type::screenshot}));
  using Online = OnlineStatus;
  static_assert(has<Online>(0, {Online::unknown, Online::online, Online::offline, Online::idle,
                                Online::invisible, Online::away, Online::busy}));
  static_assert(has<GroupType>(0, {GroupType::unknown, GroupType::privateGroup, GroupType::group,
                                   GroupType::publicGroup}));
  static_assert(has<Answer>(-1, {Answer::unrecognized, Answer::unknown, Answer::yes, Answer::no,
                                 Answer::failed}));
  static_assert(has<IgnoreType>(-1, {IgnoreType::unrecognized, IgnoreType::unknown,
                                     IgnoreType::ignore, IgnoreType::unignore, IgnoreType::get}));
  using Status = MessageStatus;
  static_assert(has<Status>(-1, {Status::unrecognized, Status::unknown, Status::sent,
                                 Status::received, Status::seen, Status::deleted}));
  static_assert(has<TokenType>(0, {TokenType::unknown, TokenType::fcm, TokenType::apns,
                                   std::nullopt, TokenType::pushkit}));
  using Sort = GroupSortType;
  static_assert(has<Sort>(0, {Sort::random, Sort::byLastMessage, Sort::byCreatedAt}));
  static_assert(areCounted({ok, failed, expired, userNotExist, invalid, wrongType, parsingFailed,
                            loginConflict, userNotFound, headerDecodingFailed, wrongSession}));
  static_assert(duplicate == KRError(13));
  static_assert(areCounted({CALL_TYPE_UNKNOWN, CALL_TYPE_PRIVATE, CALL_TYPE_GROUP}));
  static_assert(areCounted({MEIDA_TYPE_UNKNOWN, MEDIA_TYPE_AUDIO, MEDIA_TYPE_VIDEO}));
  static_assert(areCounted({CALL_STATUS_UNKNOWN, CALL_STATUS_ONGOING, CALL_STATUS_TIMEOUT,
                            CALL_STATUS_FAILED}));
  static_assert(EVENT_CALL_TYPE == 2);
  static_assert(areCounted({ANSWER_CALL_UNKNOWN, ANSWER_CALL_ACCEPT, ANSWER_CALL_REJECT,
                            ANSWER_CALL_TIMEOUT, ANSWER_CALL_FAILED}));
  static_assert(areCounted({SDP_TYPE_UNKNOWN, SDP_TYPE_OFFER, SDP_TYPE_ANSWER}));
  static_assert(areCounted({EVENT_TYPE_UNKNOWN, EVENT_TYPE_CALL_CANCEL, EVENT_TYPE_CALL_AVAILABLE,
                            EVENT_TYPE_CALL_BUSY, EVENT_TYPE_CALL_RECEIVED_EVENT,
                            EVENT_TYPE_CALL_REQUEST_VIDEO, EVENT_TYPE_CALL_INACTIVE_VIDEO,
                            EVENT_TYPE_CALL_ACTIVE_VIDEO, EVENT_TYPE_CALL_CHECKING_AVAILABLE,
                            EVENT_TYPE_MESSAGING_START_TYPING, EVENT_TYPE_MESSAGING_STOP_TYPING,
                            EVENT_TYPE_CALL_CONNECTING}));
};

boost::json::value emptied(const boost::json::value& value) {
  if (value.is_string()) return "";
  if (value.is_array()) return boost::json::array();
  if (value.is_object()) return KRDictionary();
  if (value.is_bool()) return false;
  return 0;
}

/// What has to come of {}.
std::string defaultsOf(const Row& row) {
  if (row.output == "error") return row.output;
  const auto full = parseDictionary(row.input).value();
  auto told = row.output == row.input ? KRDictionary() : parseDictionary(row.output).value();
  KRDictionary defaults;
  for (const auto& [key, value] : full) {
    const auto& expected = told.emplace(key, emptied(value)).first->value();
    if (!expected.is_null()) defaults.emplace(key, expected);
  }
  return toJsonString(defaults).value();
}

/// Checks what comes of a full record and of {}. A null, or a list that no member accepts, is the
/// same as no member: it fails a strict record and gives a lenient one that member's default.
template <class T>
void check(const Row& row) {
  SCOPED_TRACE(row.place);
  const auto& full = row.input;
  const auto defaults = defaultsOf(row);
  EXPECT_EQ(row.name, boost::core::demangle(typeid(T).name()));
  EXPECT_EQ(reread<T>(full), full);
  EXPECT_EQ(reread<T>("{}"), defaults);
  const auto members = parseDictionary(full).value();
  for (const auto& member : members) {
    auto changed = members;
    changed.erase(member.key());
    const auto without = reread<T>(*toJsonString(changed));
    EXPECT_EQ(without == "error", defaults == "error") << member.key();
    for (const char* wrong : {"null", "[0]"}) {
      changed[member.key()] = *koriva::json::parseValue(wrong);
      EXPECT_EQ(reread<T>(*toJsonString(changed)), without) << member.key();
    }
  }
  T record = decode<T>(full).value();
  if constexpr (requires { record.codeCheck(); }) {
    EXPECT_FALSE(record.codeCheck());
    record.result = 0;
    EXPECT_TRUE(record.codeCheck());
  }
  // With the keys in the order of the declaration, two members cannot have taken each other's.
  const void* last = nullptr;
  for (const auto& member : std::span(T::coding.table->members, T::coding.table->memberCount)) {
    if (std::is_same_v<T, KRCall> || std::is_same_v<T, KRFile> || !member.isWritten) continue;
    EXPECT_LT(std::exchange(last, member.in(&record)), last) << member.key;
  }
}

/// Checks records in the order of the rows.
template <class... T>
void checkAll(const std::vector<Row>& rows) {
  std::size_t index = 0;
  (check<T>(rows.at(index++)), ...);
  EXPECT_EQ(index, rows.size());
}

TEST(Records, AreReadStrictlyOrLenientlyAndWrittenBack) {
  const auto rows = koriva::test::readTable("records.txt");
  checkAll<KRMessage, KRCall, KRSecretChat, KRUserStatus, KRLastActiveMessage, KRConversation,
           KRImage, KRImageResponse, KRImageURLsResponse, KRVideo, KRVideoResponse, KRAudio,
           KRAudioResponse, KRFile, KRFileResponse, KRSticker, KRStickerResponse, KRCallResponse,
           KRStartCall, KRAnswerCall, KRStopCall, KRIceSdp, KRIceCandidate, KREvent, KRGroupUpdate,
           KRGroupMessageStatus, KRConversationList, KRConversationResponse, KRSecretChatResponse,
           KRMessageList, KRMessageResponse, KRStartSecretChat, KRAcceptSecretChat,
           KRDeleteSecretChat, KRBlock, KRBlockContact, KRBlockContactList, KRGroupLinkResponse,
           KRListGroupLinkResponse, KRUserStatusResponse, KRLoginEvent>(rows);

  const auto call = *decode<KRCall>(rows[1].input);
  EXPECT_EQ(std::tie(call.type, call.mediaType, call.callStatus), std::tuple(-1, -2, -3));
  EXPECT_EQ(call.id + call.callerUin + call.calleeUins[0] + call.acceptedUins[0], "c123");
  EXPECT_EQ(call.startedAt + call.stoppedAt + call.answeredAt + call.connectedAt, "4567");
  EXPECT_EQ(encoder.encode(KRFile{"u", "n", "e", 1.5}), rows[13].input);
  EXPECT_EQ(KRFile({"u", "n", "e", HUGE_VAL}).toString(), "");
  EXPECT_EQ(decode<KRMessage>(rows[0].input)->messageType(), KRMessageType::text);
  const auto read =
      *decode<KRMessage>(R"({"send_uin":1.5,"recv_uin":2.5,"updated_at":18446744073709551615})");
  EXPECT_TRUE(read.send_uin == 1.5 && read.recv_uin == 2.5 && read.updatedAt == UINT64_MAX);
  EXPECT_EQ(read.toString(), encoder.encode(KRMessage()));
  const KRMessage sent("m", "g", "t", "sn", "sa", "1", true);
  EXPECT_EQ(sent.messageID + sent.groupID + sent.message + sent.senderUin, "mgt1");
  EXPECT_EQ(sent.senderName + sent.senderAvatar + (sent.isEncrypted ? "+" : ""), "snsa+");
  EXPECT_TRUE(KRMessageResponse({13, {}}).duplicateCode());
  EXPECT_EQ(KRUserStatus({"1", 5, ""}).status(), D::OnlineStatus::away);
  EXPECT_EQ(KRUserStatus({"1", 7, ""}).status(), D::OnlineStatus::offline);
}

/// The case held, by its index, and its written form.
template <class Variant>
std::string cased(const Variant& variant) {
  return std::to_string(variant.value.index()) + " " + encoder.encode(variant);
}

/// A dictionary in which the object under the key has become its text.
KRDictionary withText(std::string_view key, std::string_view json) {
  auto members = parseDictionary(json).value();
  auto* member = members.if_contains(key);
  if (member && member->is_object()) *member = *toJsonString(member->get_object());
  return members;
}

std::string message(std::string_view json) {
  const auto document = toJsonString(withText("attachments", json)).value();
  const auto message = decode<KRMessage>(document).value();
  const auto kind = decode<KRMessageKind>(document);
  EXPECT_EQ(kind ? *kind : KRMessageKind::Unknown(), message.kind);
  return cased(message.kind) + (message.createdAt.empty() ? "" : " '" + message.createdAt + "'");
}

std::string userInfo(std::string_view json) {
  const auto call = KRCall::fromUserInfo(withText("Payload", json));
  return call ? encoder.encode(*call) : "none";
}

std::string error(std::string_view code) {
  const KRError error(std::stoll(std::string(code)));
  const std::error_code same = error;
  EXPECT_EQ(std::hash<KRError>()(error), std::hash<KRError>()(KRError(same.value())));
  EXPECT_EQ(error.localizedDescription(), same.message());
  return same.category().name() + (" " + std::to_string(same.value())) + " " + same.message();
}

TEST(Records, FollowTheirOwnLogic) {
  koriva::test::checkTable(
      "variants.txt",
      {{"message", message},
       {"group update", [](auto json) { return cased(decode<KRGroupUpdateType>(json).value()); }},
       {"user info", userInfo},
       {"KRError", error}},
      koriva::test::readTable("records.txt"));
  EXPECT_EQ(koriva::fromRawValue<KRCallEvent::Key>("Event"), std::nullopt);
}

std::string chainOfQuotes(const std::string& rest = "") {
  std::string document = "{}";
  for (int i = 0; i < 70; ++i) {
    // Escapes that grow by a few characters with every level, where backslashes would double.
    document = koriva::replaceAll(koriva::replaceAll(document, "\\", "\\u005c"), "\"", "\\u0022");
    document = "{\"type\":8,\"attachments\":\"" + document + "\"}" + rest;
  }
  return document;
}

struct Ending {
  ~Ending() { hasEnded = true; }
  static inline bool hasEnded = false;
};

TEST(Box, ReadsAsAnEmptyValueUntilTheProcessEnds) {
  const auto leave = [] {
    std::atexit([] { std::_Exit(Ending::hasEnded ? 1 : 0); });
    const koriva::Box<Ending> empty;
    static_cast<void>(*empty);
    std::exit(0);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
}

TEST(Message, QuotesAreReadToABoundedDepth) {
  EXPECT_FALSE(decode<KRMessage>(chainOfQuotes("\"\\ud800\"")));  // each of them once
  auto message = decode<KRMessage>(chainOfQuotes()).value();
  int depth = 0;
  const KRMessage* at = &message;
  for (; at->kind.as<Reply>(); ++depth) at = &*at->kind.as<Reply>()->message;
  EXPECT_EQ(depth, 64);
  EXPECT_TRUE(at->kind.as<KRMessageKind::Unknown>());

  auto copy = message;
  message.kind.as<Reply>()->message->groupID = "g";
  EXPECT_FALSE(copy == message);
  copy = message;
  const auto moved = std::move(*message.kind.as<Reply>());
  EXPECT_EQ(moved.message->groupID + copy.kind.as<Reply>()->message->groupID, "gg");
  EXPECT_EQ(message.kind.as<Reply>()->message->groupID, "");
}

}  // namespace
