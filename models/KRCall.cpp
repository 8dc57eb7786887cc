#include "models/KRCall.h"

#include <boost/json/object.hpp>
#include <string_view>
#include <utility>

namespace {

struct PushedCall {
  std::string callId;
  std::string groupId;
  std::string mediaType;
  std::string callerUin;
  std::vector<std::string> calleeUins;

  template <class R>
  static constexpr auto fields = koriva::json::fields(
      koriva::json::required<&R::callId>("callId"), koriva::json::required<&R::groupId>("groupId"),
      koriva::json::required<&R::mediaType>("mediaType"),
      koriva::json::required<&R::callerUin>("callerUin"),
      koriva::json::required<&R::calleeUins>("calleeUins"));
};

struct PushPayload {
  PushedCall call;

  template <class R>
  static constexpr auto fields = koriva::json::fields(koriva::json::required<&R::call>("call"));
};

std::int64_t mediaTypeNamed(std::string_view name) {
  if (name == "MEDIA_TYPE_VIDEO") return KRCall::MEDIA_TYPE_VIDEO;
  if (name == "MEDIA_TYPE_AUDIO") return KRCall::MEDIA_TYPE_AUDIO;
  return KRCall::MEIDA_TYPE_UNKNOWN;
}

}  // namespace

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
