#include <atomic>

#include "KorivaSDK/State.h"
#include "socketio/Platform.h"

using namespace koriva;

void KorivaSDK::setTokenProvider(KRTokenProvider provider) {
  state_->tokenProvider = std::move(provider);
}

void KorivaSDK::State::reconnect() {
  if (tokenProvider) return askForToken();
  connect();
}

void KorivaSDK::State::askForToken() {
  if (isLoggingOut || question || platform::isForkedChild()) return;
  if (!KRRunLoop::main().internals().prepareToWait()) return connect();
  const auto asked = std::make_shared<std::atomic<bool>>(false);
  const auto reply = [asked, weak = client.weak_from_this()](const std::string& newToken) {
    if (asked->exchange(true) || platform::isForkedChild()) return;
    environment().postHandler([asked, weak, newToken] {
      const auto sdk = weak.lock();
      if (sdk && sdk->state_->question == asked) sdk->state_->onToken(newToken);
    });
  };
  question = asked;
  questionTimer =
      std::make_shared<socketio::Alarm>(environment(), replyLimit, [reply] { reply({}); });
  questionTimer->start(replyLimit);
  if (!client.isConnected()) moveToConnecting();
  bool hasThrown = true;
  guarded([&, provider = tokenProvider] {  // it may set another
    provider(reply);
    hasThrown = false;
  });
  if (hasThrown) reply({});
}

void KorivaSDK::State::onToken(const std::string& newToken) {
  stopAsking();
  // The same one has expired: the server would say so again.
  if ((newToken.empty() || newToken == token) && client.isConnected()) return;
  if (!newToken.empty()) token = newToken;
  connect();
}

bool KorivaSDK::State::stopAsking() {
  if (!std::exchange(question, nullptr)) return false;
  questionTimer->cancel();
  return true;
}
