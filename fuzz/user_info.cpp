// The calls in push notifications: the input is a notification, and the payload of one.

#include <boost/json/object.hpp>

#include "fuzz/Judge.h"
#include "fuzz/Referee.h"
#include "models/KRCall.h"

using koriva::fuzz::require;
using koriva::json::Field;
using koriva::json::required;

namespace {

struct Pushed {
  std::string callId;
  std::string groupId;
  std::string mediaType;
  std::string callerUin;
  std::vector<std::string> calleeUins;

  static const koriva::json::Coding coding;
};

struct Payload {
  Pushed call;

  static const koriva::json::Coding coding;
};

constinit const koriva::json::Coding Pushed::coding =
    required<Field<"callerUin", &Pushed::callerUin>, Field<"calleeUins", &Pushed::calleeUins>,
             Field<"callId", &Pushed::callId>, Field<"groupId", &Pushed::groupId>,
             Field<"mediaType", &Pushed::mediaType>>;

constinit const koriva::json::Coding Payload::coding = required<Field<"call", &Payload::call>>;

void judge(const std::optional<KRCall>& call, std::string_view payload) {
  const auto document = koriva::fuzz::parse(payload);
  if (!document.isKnown) return;
  Payload wanted;
  const bool isPayload =
      document.value && koriva::fuzz::fill(Payload::coding, &wanted, *document.value);
  require(call.has_value() == isPayload, "what can be read is read, and nothing else");
  const auto& pushed = wanted.call;
  require(!call || *call == KRCall(pushed.callId, call->mediaType, pushed.groupId, pushed.callerUin,
                                   pushed.calleeUins),
          "a call is what JSON says");
  require(!call || (call->mediaType == KRCall::MEDIA_TYPE_VIDEO) ==
                       (pushed.mediaType == "MEDIA_TYPE_VIDEO"),
          "a call is one with video when it says so");
}

void check(const KRDictionary& userInfo) {
  const auto call = KRCall::fromUserInfo(userInfo);
  if (!call) return;
  require(call->type == KRCall::CALL_TYPE_PRIVATE, "an announced call is private");
  require(
      call->mediaType >= KRCall::MEIDA_TYPE_UNKNOWN && call->mediaType <= KRCall::MEDIA_TYPE_VIDEO,
      "the media type is a known one");
  const auto again = KRJSONDecoder{}.decode<KRCall>(KRJSONEncoder{}.encode(*call));
  require(again && *again == *call, "a call that was written reads the same");
}

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  if (const auto userInfo = json::parseDictionary(input)) check(*userInfo);
  const KRDictionary userInfo{{"Type", "call"}, {"Payload", input}};
  const auto call =
      readInMemory(input.size(), [&userInfo] { return KRCall::fromUserInfo(userInfo); });
  judge(call, input);
  check(userInfo);
}
