// The calls in push notifications: the input is a notification, and the payload of one.

#include <boost/json/object.hpp>

#include "fuzz/Fuzz.h"
#include "models/KRCall.h"

using koriva::fuzz::require;

namespace {

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
  check({{"Type", "call"}, {"Payload", input}});
}
