#include <atomic>

#include "KorivaSDK/State.h"
#include "extensions/JSONText.h"
#include "socketio/Platform.h"

using namespace koriva;
using socketio::Cause;
using Phase = KRConnectionState::Phase;

const KRConnectionState::Members& KRConnectionState::members() const {
  static const Members idle;
  return members_ ? *members_ : idle;
}

Phase KRConnectionState::phase() const { return members().phase; }

KRConnectionCause KRConnectionState::cause() const { return members().why.cause; }

const std::string& KRConnectionState::reason() const { return members().why.reason; }

std::int64_t KRConnectionState::attempt() const { return members().attempt; }

std::optional<std::chrono::steady_clock::time_point> KRConnectionState::nextAttempt() const {
  return members().nextAttempt;
}

KRConnectionState KorivaSDK::connectionState() const {
  if (platform::isForkedChild()) return {};
  return KRConnectionState(std::atomic_load(&state_->connectionState));
}

std::string KorivaSDK::State::withoutToken(std::string text) const {
  if (token.empty()) return text;
  const auto sent = json::validUtf8(token);
  for (const auto& form : {socketio::percentEncoded(sent), json::escaped(sent), sent}) {
    text = replaceAll(std::move(text), form, "…");
  }
  return text;
}

void KorivaSDK::State::moveTo(KRConnectionState::Members next) {
  next.why.reason = withoutToken(std::move(next.why.reason));
  std::atomic_store(&connectionState,
                    std::make_shared<const KRConnectionState::Members>(std::move(next)));
  isChangeUntold = true;
}

// An attempt may begin anew before it has come to anything.
void KorivaSDK::State::moveToConnecting() {
  const auto before = client.connectionState();
  if (before.phase() == Phase::connecting) return;
  const auto first = before.phase() == Phase::connected ? 1 : before.attempt() + 1;
  moveTo({Phase::connecting, before.members().why, first, {}});
  // Nobody is called before the method that begins an attempt returns. Whatever has become of the
  // attempt by then is told instead.
  environment().postHandler([weak = client.weak_from_this()] {
    if (const auto sdk = weak.lock()) sdk->state_->tellChange();
  });
}

void KorivaSDK::State::moveToConnected() {
  KRConnectionState::Members next;
  next.phase = Phase::connected;
  next.attempt = client.connectionState().attempt();
  moveTo(std::move(next));
  if (options.members().isIntervalVaried()) startReconnectTimer();
}

void KorivaSDK::State::onEnded(const socketio::Ending& why) {
  const auto before = client.connectionState();
  KRConnectionState::Members next{Phase::waiting, why, before.attempt(), {}};
  if (before.phase() == Phase::connected) next.attempt = 0;
  if (isLoggingOut) {
    next.phase = Phase::idle;
  } else if (question) {  // about which nothing has come yet: what comes is an attempt
    next.phase = Phase::connecting;
    next.attempt = 1;
  } else {
    next.nextAttempt = isStranded || !reconnectTimer
                           ? environment().clock()->now() + options.members().firstInterval()
                           : reconnectTimer->next();
  }
  moveTo(std::move(next));
  printLine(KRLogLevel::info, "KorivaSDK - socket disconnected");
  forEachDelegate([](KorivaDelegate& to) { to.didDisconnect(); });
  tellChange();
  const auto level = isStranded ? KRLogLevel::error : KRLogLevel::warning;
  if (why.cause != Cause::local || isStranded) {
    logLine(level, "KorivaSDK - " + withoutToken(why.reason));
  }
}

// Whoever is called may change the state: the others hear of that, and no more of this one.
void KorivaSDK::State::tellChange() {
  if (!std::exchange(isChangeUntold, false)) return;
  const auto state = client.connectionState();
  forEachDelegate([&](KorivaDelegate& to) {
    if (state.members_ == connectionState) to.connectionDidChange(state);
  });
}
