#include <boost/json/value.hpp>

#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"

using namespace koriva;

namespace {

// Standard output shows the keys as they are: applications rely on these lines.
void printPayload(const std::string& event, const KRDictionary& payload) {
  printLine(KRLogLevel::debug, [&](const Log& log) {
    KRDictionary shown = payload;
    for (const auto* const name : {"identity_key", "base_key", "one_time_pre_key"}) {
      auto& key = shown.at(name).as_string();
      key = log.secret(std::string(key));
    }
    return event + ":  " + json::printedForm(shown);
  });
}

Decoded<bool> acceptAnyAnswer(Answer& answer) {
  if (!answer.isJson()) return std::nullopt;
  return KRResult<bool>::success(true);
}

}  // namespace

void KorivaSDK::startSecretChat(std::int64_t senderId, std::int64_t receiverId,
                                const std::string& deviceId, const std::string& identityKey,
                                const std::string& baseKey, const std::string& oneTimePreKey,
                                KRCompletion<KRConversation> completion) {
  const KRDictionary payload{{"owner_uin", senderId},
                             {"device_id", deviceId},
                             {"identity_key", identityKey},
                             {"base_key", baseKey},
                             {"one_time_pre_key", oneTimePreKey},
                             {"receiver_uin", receiverId}};
  printPayload("start_secret_chat", payload);
  state_->channel.request("start_secret_chat", payload,
                          decodePart(&KRSecretChatResponse::group, KRError::parsingFailed),
                          std::move(completion), noFailureLine);
}

void KorivaSDK::acceptSecretChat(std::int64_t acceptId, const std::string& groupId,
                                 const std::string& deviceId, const std::string& identityKey,
                                 const std::string& baseKey, const std::string& oneTimePreKey,
                                 KRCompletion<bool> completion) {
  const KRDictionary payload{{"group_id", groupId},   {"accept_uin", acceptId},
                             {"device_id", deviceId}, {"identity_key", identityKey},
                             {"base_key", baseKey},   {"one_time_pre_key", oneTimePreKey}};
  printPayload("accept_secret_chat", payload);
  state_->channel.request("accept_secret_chat", payload, acceptAnyAnswer, std::move(completion),
                          noFailureLine);
}
