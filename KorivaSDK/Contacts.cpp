#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"
#include "extensions/JSONText.h"

using namespace koriva;

namespace {

void printToken(const std::string& event, const std::string& token) {
  printLine(KRLogLevel::debug,
            [&](const Log& log) { return "KorivaSDK - " + event + ": " + log.secret(token); });
}

/// The whole answer as text, whatever it says, be it a token. Log filters know the line, of
/// unregistering too.
auto decodeJsonText(const auto& session, const std::string& token) {
  return [&session, weak = session.client.weak_from_this(),
          token](Answer& answer) -> Decoded<std::string> {
    auto text = answer.prettyPrinted();
    if (!text) return KRResult<std::string>::failure(KRError::parsingFailed);
    const auto sdk = weak.lock();
    if (!sdk) return std::nullopt;
    printLine(KRLogLevel::debug, [&](const Log& log) {
      auto shown = log.hasSink() ? session.withoutToken(*text) : *text;
      if (!token.empty()) {
        shown = replaceAll(shown, json::escaped(token), json::escaped(log.secret(token)));
      }
      return "KorivaSDK - register_profile_token result: " + shown;
    });
    return KRResult<std::string>::success(*std::move(text));
  };
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
  printToken("register_profile_token", token);
  state_->channel.request(
      "register_profile_token",
      {{"uin", uin}, {"type", rawValue(type)}, {"token", token}, {"device_id", deviceId}},
      decodeJsonText(*state_, token), std::move(completion), noFailureLine);
}

// Servers take the user as text here and in a logout.
void KorivaSDK::unregisterFCMToken(std::int64_t uin, const std::string& token,
                                   KRDefines::TokenType /*type*/,
                                   KRCompletion<std::string> completion) {
  printToken("unregister_profile_token", token);
  state_->channel.request("unregister_profile_token",
                          {{"uin", std::to_string(uin)}, {"token", token}},
                          decodeJsonText(*state_, token), std::move(completion), noFailureLine);
}

void KorivaSDK::sendLogoutEvent(std::int64_t uin, std::int64_t version) {
  state_->channel.emit("logout", {{"uin", std::to_string(uin)}, {"version", version}});
}
