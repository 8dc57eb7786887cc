#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"

using namespace koriva;

namespace {

/// The whole answer as text, whatever it says. Log filters know the line, of unregistering too.
Decoded<std::string> decodeJsonText(Answer& answer) {
  auto text = answer.prettyPrinted();
  if (!text) return KRResult<std::string>::failure(KRError::parsingFailed);
  printLine("KorivaSDK - register_profile_token result: " + *text);
  return KRResult<std::string>::success(*std::move(text));
}

}  // namespace

void KorivaSDK::handleBlockOrUnblockContact(const std::string& blockedID,
                                            const std::string& groupID, bool isBlock,
                                            KRCompletion<bool> completion) {
  state_->channel.request(isBlock ? "block_user" : "unblock_user",
                          {{"group_id", groupID}, {"blocked_uin", blockedID}}, decodeBoolean,
                          std::move(completion));
}

// Its failures are looked for in logs as those of "list_message".
void KorivaSDK::getBlockContactList(const std::string& userID,
                                    KRCompletion<KRBlockContactList> completion) {
  state_->channel.request("blocked_list", {{"uin", userID}}, decodeRecord<KRBlockContactList>,
                          std::move(completion), "list_message");
}

void KorivaSDK::registerFCMToken(std::int64_t uin, const std::string& token,
                                 KRDefines::TokenType type, const std::string& deviceId,
                                 KRCompletion<std::string> completion) {
  printLine("KorivaSDK - register_profile_token: " + token);
  state_->channel.request(
      "register_profile_token",
      {{"uin", uin}, {"type", rawValue(type)}, {"token", token}, {"device_id", deviceId}},
      decodeJsonText, std::move(completion), noFailureLine);
}

// Servers take the user as text here and in a logout.
void KorivaSDK::unregisterFCMToken(std::int64_t uin, const std::string& token,
                                   KRDefines::TokenType /*type*/,
                                   KRCompletion<std::string> completion) {
  printLine("KorivaSDK - unregister_profile_token: " + token);
  state_->channel.request("unregister_profile_token",
                          {{"uin", std::to_string(uin)}, {"token", token}}, decodeJsonText,
                          std::move(completion), noFailureLine);
}

void KorivaSDK::sendLogoutEvent(std::int64_t uin, std::int64_t version) {
  state_->channel.emit("logout", {{"uin", std::to_string(uin)}, {"version", version}});
}
