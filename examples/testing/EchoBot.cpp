#include "EchoBot.h"

#include <utility>

EchoBot::EchoBot(KorivaSDK& sdk, std::int64_t uin, EndHandler onEnd)
    : sdk_(sdk), uin_(uin), onEnd_(std::move(onEnd)) {}

void EchoBot::start(const std::string& token) {
  sdk_.addDelegate(shared_from_this());
  sdk_.login(token, uin_, "echo-bot", true);
}

void EchoBot::didReceive(const KRMessage& message) {
  const auto ownUin = std::to_string(uin_);
  if (message.senderUin == ownUin || !message.kind.as<KRMessageKind::Text>()) return;
  send({"echo-" + message.messageID, message.groupID, message.message, "Echo", "", ownUin, false});
}

// The server may have an echo whose acknowledgement was lost: under the same id it stores it once.
// Attempts that nobody answers fail after 5 seconds, connected or not: that is pause enough.
void EchoBot::send(const KRMessage& echo) {
  sdk_.sendMessage(echo, [weak = weak_from_this(), echo](const KRResult<KRMessage>& result) {
    const auto bot = weak.lock();
    if (!bot) return;
    if (result || result.error() == KRError::duplicate) {
      ++bot->delivered_;
    } else if (result.error() == KRError::parsingFailed) {
      bot->send(echo);
    }
  });
}

// A lost or refused connection is none of the bot's business: the client connects again.
void EchoBot::didReceiveError(KRError error) {
  if (error != KRError::expired && error != KRError::loginConflict) return;
  sdk_.logout();
  onEnd_(error.localizedDescription());
}
