#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "KorivaSDK/State.h"
#include "extensions/JSONText.h"
#include "socketio/Platform.h"

using namespace koriva;
using Phase = KRConnectionState::Phase;

namespace {

struct Shared {
  std::mutex mutex;
  std::shared_ptr<KorivaSDK> client;
};

// Never destroyed: a client must not be torn down among the application's static objects. A forked
// child has another, as somebody may have held the lock at the fork.
Shared& sharedClient() {
  if (platform::isForkedChild()) {
    static Shared& holder = *new Shared;
    return holder;
  }
  static Shared& holder = *new Shared;
  return holder;
}

}  // namespace

constinit const std::string_view KRPrivate::socketUrl = KORIVA_DEFAULT_URL;

koriva::Timing& koriva::timing() {
  static Timing values;
  return values;
}

socketio::Endpoint koriva::parseDefaultUrl(std::string_view url) {
  if (const auto endpoint = socketio::Endpoint::parse(url)) return *endpoint;
  // Crash reports of this fault are found by its text.
  std::fputs("Unexpectedly found nil while unwrapping an Optional value\n", stderr);
  std::abort();
}

std::shared_ptr<KorivaSDK> KorivaSDK::shared() {
  auto& holder = sharedClient();
  const std::lock_guard lock(holder.mutex);
  if (!holder.client) holder.client = create();
  return holder.client;
}

void KorivaSDK::setShared(std::shared_ptr<KorivaSDK> client) {
  auto& holder = sharedClient();
  const std::lock_guard lock(holder.mutex);
  holder.client.swap(client);
}

std::shared_ptr<KorivaSDK> KorivaSDK::create() { return std::make_shared<KorivaSDK>(Passkey{}); }

KorivaSDK::KorivaSDK(Passkey) : state_(std::make_unique<State>(*this)) {
  KRRunLoop::main();  // takes the descriptors that it needs
}

KorivaSDK::~KorivaSDK() {
  if (platform::isForkedChild()) {
    static_cast<void>(state_.release());  // what it holds is still the parent's
    return;
  }
  try {
    if (state_->reconnectTimer) state_->reconnectTimer->cancel();
    state_->stopAsking();
    // On any thread. Nobody hears of it: the handlers have gone with the client.
    if (state_->lastConnection) state_->lastConnection->disconnect();
  } catch (const std::bad_alloc&) {
    // Too little memory to take leave: the connection is just dropped.
  }
}

bool KorivaSDK::setBaseUrl(std::string_view url) {
  const auto endpoint = socketio::Endpoint::parse(url);
  if (!endpoint) return false;
  state_->baseURL = *endpoint;
  return true;
}

void KorivaSDK::login(const std::string& token, std::int64_t uin, const std::string& deviceId,
                      bool isNew) {
  if (platform::isForkedChild()) return;
  state_->token = token;
  state_->uin = uin;
  state_->deviceId = deviceId;
  state_->isNew = isNew;
  state_->stopAsking();
  if (!state_->isLoggingOut && !state_->isStranded) state_->moveTo({});
  state_->connect();
}

void KorivaSDK::State::connect() {
  if (isLoggingOut || platform::isForkedChild()) return;
  if (!KRRunLoop::main().internals().prepareToWait()) return failWithoutTimers();
  moveToConnecting();
  isStranded = false;
  // Whoever holds the handlers holds the client.
  auto connection = std::make_shared<socketio::Connection>(
      environment(), "/data", options.members().limits(),
      std::shared_ptr<const socketio::Handlers>(client.shared_from_this(), &handlers),
      transportOptions);
  socketio::ConnectParameters parameters{{"session", json::validUtf8(token)},
                                         {"deviceid", json::validUtf8(deviceId)}};
  if (isNew) parameters.emplace_back("new", "true");
  channel.setConnection(connection);
  const auto before = std::exchange(lastConnection, connection);
  const auto delay =
      before ? before->delayOfNextDial(*environment().clock()) : socketio::Duration();
  if (before) before->release();  // nobody hears of it any more
  connection->connect(baseURL, parameters, delay);
  startReconnectTimer();
}

// Neither a socket nor a timer can be made. Until the next attempt, what delegates do about this
// one is ignored: nothing could keep their attempts apart.
void KorivaSDK::State::failWithoutTimers() {
  if (std::exchange(isStranded, true)) return;
  moveToConnecting();
  const auto postUnlessOver = [weak = client.weak_from_this()](void (*act)(State&)) {
    environment().postHandler([weak, act] {
      const auto sdk = weak.lock();
      if (sdk && sdk->state_->isStranded) act(*sdk->state_);
    });
  };
  postUnlessOver([](State& state) {
    state.onEnded({socketio::Cause::local, "there are no descriptors left to connect with"});
  });
  try {
    std::thread([postUnlessOver, interval = options.members().firstInterval()] {
      std::this_thread::sleep_for(interval);
      try {
        postUnlessOver([](State& state) {
          state.isStranded = false;
          state.connect();
        });
      } catch (const std::bad_alloc&) {
        // As without a thread.
      }
    }).detach();
  } catch (const std::system_error&) {
    // No thread either: the application has to try again.
  }
}

void KorivaSDK::State::startReconnectTimer() {
  if (reconnectTimer) reconnectTimer->cancel();
  const auto fire = [weak = client.weak_from_this()] {
    if (const auto sdk = weak.lock()) sdk->reconnectFired();
  };
  const auto now = client.connectionState();
  const bool stands = now.phase() == KRConnectionState::Phase::connected;
  const auto& settings = options.members();
  const socketio::Duration interval = settings.intervalAfter(stands ? 1 : now.attempt());
  const double spared = settings.jitter > 0 ? settings.jitter * environment().chance() : 0;
  reconnectTimer = std::make_shared<socketio::Alarm>(environment(), interval, fire);
  reconnectTimer->start(interval -
                        std::chrono::duration_cast<socketio::Duration>(interval * spared));
}

void KorivaSDK::connectChat(const std::string& /*channelID*/) { reconnectIfNeed(); }

void KorivaSDK::reconnectFired() { reconnectIfNeed(); }

void KorivaSDK::reconnectIfNeed() {
  if (state_->question) return;
  if (const auto connection = state_->channel.connection()) {
    if (connection->isUnderWay()) return;
  } else if (!state_->isStranded) {
    return;
  }
  state_->reconnect();
}

void KorivaSDK::networkDidChange(bool isOnline) {
  const auto phase = connectionState().phase();
  if (phase == Phase::connecting && !isOnline) {
    state_->end({socketio::Cause::unreachable, "the device is offline"});
  } else if (phase == Phase::connecting && !state_->question) {
    state_->connect();  // the attempt under way goes by the network of before
  } else if (isOnline) {
    setForeground(true);
  }
}

void KorivaSDK::setForeground(bool isForeground) {
  if (!isForeground) return;
  if (isConnected()) return state_->channel.connection()->probe(State::probeLimit);
  reconnectIfNeed();
}

void KorivaSDK::disconnect() {
  state_->isReady = false;
  state_->end({socketio::Cause::local, "disconnected by the client"});
}

void KorivaSDK::State::end(const socketio::Ending& why) {
  if (platform::isForkedChild()) return;
  const auto self = client.shared_from_this();  // delegates may let go of the last reference
  const bool wasAsking = stopAsking();
  const auto connection = channel.connection();
  if (connection && connection->isUnderWay()) return connection->disconnect(why);
  if (wasAsking) onEnded(why);
}

// Delegates may try to connect meanwhile, log out too, or let go of the last reference.
void KorivaSDK::logout() {
  const auto self = shared_from_this();
  struct LoggingOut {
    ~LoggingOut() { flag = before; }
    bool& flag;
    const bool before = std::exchange(flag, true);
  } const loggingOut{state_->isLoggingOut};
  disconnect();
  if (connectionState().phase() != Phase::idle) {
    state_->moveTo({.why = {socketio::Cause::local, "logged out"}});
    state_->tellChange();
  }
  state_->delegates = std::make_shared<const State::Delegates>();
  state_->channel.setConnection(nullptr);
  state_->isStranded = false;
}

bool KorivaSDK::isConnected() const {
  const auto connection = state_->channel.connection();
  return connection && connection->status() == socketio::Status::connected;
}

void KorivaSDK::runNowOrWhenSDKReady(std::function<void(bool)> task) {
  if (!task || platform::isForkedChild()) return;
  if (state_->isReady) {
    guarded([&] { task(true); });
  } else {
    state_->listTasks.push_back(std::move(task));
  }
}
