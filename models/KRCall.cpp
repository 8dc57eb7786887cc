#include "models/KRCall.h"

#include <boost/json/object.hpp>
#include <string_view>
#include <utility>

#include "extensions/JSONFields.h"

using namespace koriva::json;

namespace {

struct PushedCall {
  std::string callId;
  std::string groupId;
  std::string mediaType;
  std::string callerUin;
  std::vector<std::string> calleeUins;

  static const Coding coding;
};

struct PushPayload {
  PushedCall call;

  static const Coding coding;
};

constinit const Coding PushedCall::coding =
    required<Field<"callId", &PushedCall::callId>, Field<"groupId", &PushedCall::groupId>,
             Field<"mediaType", &PushedCall::mediaType>, Field<"callerUin", &PushedCall::callerUin>,
             Field<"calleeUins", &PushedCall::calleeUins>>;

constinit const Coding PushPayload::coding = required<Field<"call", &PushPayload::call>>;

std::int64_t mediaTypeNamed(std::string_view name) {
  if (name == "MEDIA_TYPE_VIDEO") return KRCall::MEDIA_TYPE_VIDEO;
  if (name == "MEDIA_TYPE_AUDIO") return KRCall::MEDIA_TYPE_AUDIO;
  return KRCall::MEIDA_TYPE_UNKNOWN;
}

}  // namespace

constinit const Coding KRCall::coding =
    lenient<Field<"call_id", &KRCall::id>, Field<"group_id", &KRCall::groupID>,
            Field<"call_type", &KRCall::type>, Field<"media_type", &KRCall::mediaType>,
            Field<"call_status", &KRCall::callStatus>, Field<"caller_uin", &KRCall::callerUin>,
            Field<"callee_uins", &KRCall::calleeUins>,
            Field<"accepted_uins", &KRCall::acceptedUins>, Field<"started_at", &KRCall::startedAt>,
            Field<"stopped_at", &KRCall::stoppedAt>, Field<"accepted_at", &KRCall::answeredAt>,
            Field<"connected_at", &KRCall::connectedAt>>;

constinit const Coding KRCallResponse::coding = required<Field<"call", &KRCallResponse::call>>;

KRCall::KRCall(std::string callID, std::int64_t media, std::string group, std::string caller,
               std::vector<std::string> callees)
    : id(std::move(callID)),
      groupID(std::move(group)),
      mediaType(media),
      type(CALL_TYPE_PRIVATE),
      callerUin(std::move(caller)),
      calleeUins(std::move(callees)) {}

std::optional<KRCall> KRCall::fromUserInfo(const KRDictionary& userInfo) {
  const auto* type = userInfo.if_contains("Type");
  const auto* payload = userInfo.if_contains("Payload");
  if (!type || *type != "call" || !payload || !payload->is_string()) return std::nullopt;
  auto pushed = KRJSONDecoder{}.decode<PushPayload>(payload->get_string());
  if (!pushed) return std::nullopt;
  auto& call = pushed->call;
  return KRCall(std::move(call.callId), mediaTypeNamed(call.mediaType), std::move(call.groupId),
                std::move(call.callerUin), std::move(call.calleeUins));
}
