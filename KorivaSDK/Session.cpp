#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "KorivaSDK/RequestChannel.h"
#include "KorivaSDK/State.h"
#include "extensions/JSONPrinter.h"

namespace socketio = koriva::socketio;

namespace {

struct Shared {
  std::mutex mutex;
  std::shared_ptr<KorivaSDK> client;
};

// Never destroyed: a client must not be torn down among the application's static objects.
Shared& sharedClient() {
  static Shared& holder = *new Shared;
  return holder;
}

const socketio::Environment& environment() { return KRRunLoop::main().internals().environment(); }

}  // namespace

constinit const std::string_view KRPrivate::socketUrl = KORIVA_DEFAULT_URL;

koriva::Timing& koriva::timing() {
  static Timing values;
  return values;
}

socketio::Endpoint koriva::parseDefaultUrl(std::string_view url) {
  if (const auto endpoint = socketio::Endpoint::parse(url)) return *endpoint;
  std::fputs("Unexpectedly found nil while unwrapping an Optional value\n", stderr);
  std::abort();
}

std::shared_ptr<KorivaSDK> KorivaSDK::shared() {
  auto& holder = sharedClient();
  const std::lock_guard lock(holder.mutex);
  if (!holder.client) holder.client = std::make_shared<KorivaSDK>(Passkey{});
  return holder.client;
}

void KorivaSDK::setShared(std::shared_ptr<KorivaSDK> client) {
  auto& holder = sharedClient();
  const std::lock_guard lock(holder.mutex);
  holder.client.swap(client);
}

KorivaSDK::KorivaSDK(Passkey)
    : state_(std::make_unique<State>(koriva::parseDefaultUrl(KRPrivate::socketUrl))) {
  KRRunLoop::main();  // takes the descriptors that it needs
}

KorivaSDK::~KorivaSDK() {
  try {
    if (state_->reconnectTimer) state_->reconnectTimer->cancel();
    if (!state_->lastConnection) return;
    // The last reference may go on any thread, but the connection belongs to the main thread.
    environment().dispatchHandler(
        [connection = std::move(state_->lastConnection)] { connection->release(); });
  } catch (const std::bad_alloc&) {
    // Too little memory for a detour: the connection is released right here.
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
  state_->token = token;
  state_->uin = uin;
  state_->deviceId = deviceId;
  state_->isNew = isNew;
  initSocket();
}

void KorivaSDK::initSocket() {
  if (state_->isLoggingOut) return;
  if (!KRRunLoop::main().internals().prepareToWait()) return failWithoutTimers();
  state_->stranded.reset();
  if (!state_->handlers) makeHandlers();
  auto connection = std::make_shared<socketio::Connection>(
      environment(), "/data", koriva::timing().limits, state_->handlers);
  socketio::ConnectParameters parameters{{"session", koriva::json::validUtf8(state_->token)},
                                         {"deviceid", koriva::json::validUtf8(state_->deviceId)}};
  if (state_->isNew) parameters.emplace_back("new", "true");
  state_->connection.store(connection);
  const auto before = std::exchange(state_->lastConnection, connection);
  const auto delay =
      before ? before->delayOfNextDial(*environment().clock()) : socketio::Duration();
  if (before) before->release();  // nobody hears of it any more
  connection->connect(state_->baseURL, parameters, delay);
  initReconnectTimer();
}

// Neither a socket nor a timer can be made. Until the next attempt, what delegates do about this
// one is ignored: nothing could keep their attempts apart.
void KorivaSDK::failWithoutTimers() {
  if (state_->stranded) return;
  state_->stranded = std::make_shared<State::Stranded>();
  const auto unlessOver = [weak = weak_from_this(),
                           stranded = std::weak_ptr(state_->stranded)](void (*act)(KorivaSDK&)) {
    return [weak, stranded, act] {
      const auto sdk = weak.lock();
      if (sdk && !stranded.expired()) act(*sdk);
    };
  };
  environment().postHandler(unlessOver([](KorivaSDK& sdk) { sdk.tellDisconnected(); }));
  const auto retry = unlessOver([](KorivaSDK& sdk) {
    sdk.state_->stranded.reset();
    sdk.initSocket();
  });
  try {
    std::thread([retry, interval = koriva::timing().reconnectInterval] {
      std::this_thread::sleep_for(interval);
      environment().postHandler(retry);
    }).detach();
  } catch (const std::system_error&) {
    // No thread either: the application has to try again.
  }
}

void KorivaSDK::initReconnectTimer() {
  if (state_->reconnectTimer) state_->reconnectTimer->cancel();
  state_->reconnectTimer = std::make_shared<socketio::Alarm>(environment());
  const auto fire = [weak = weak_from_this()] {
    if (const auto sdk = weak.lock()) sdk->reconnectFired();
  };
  const auto interval = koriva::timing().reconnectInterval;
  state_->reconnectTimer->set(environment().clock()->now() + interval, fire, interval);
}

void KorivaSDK::connectChat(const std::string& /*channelID*/) { reconnectIfNeed(); }

void KorivaSDK::reconnectFired() { reconnectIfNeed(); }

void KorivaSDK::reconnectIfNeed() {
  if (const auto connection = state_->connection.load()) {
    const auto status = connection->status();
    if (status == socketio::Status::connected || status == socketio::Status::connecting) return;
  } else if (!state_->stranded) {
    return;
  }
  initSocket();
}

void KorivaSDK::disconnect() {
  state_->isReady = false;
  if (const auto connection = state_->connection.load()) connection->disconnect();
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
  state_->delegates = std::make_shared<const State::Delegates>();
  state_->connection.store(nullptr);
  state_->stranded.reset();
}

bool KorivaSDK::isConnected() const {
  const auto connection = state_->connection.load();
  return connection && connection->status() == socketio::Status::connected;
}

void KorivaSDK::runNowOrWhenSDKReady(std::function<void(bool)> task) {
  if (!task) return;
  if (state_->isReady) {
    koriva::guarded([&] { task(true); });
  } else {
    state_->listTasks.push_back(std::move(task));
  }
}

// Taken out before they run, so that a task queued by one of them is kept.
void KorivaSDK::completeUndoneTasks() {
  const auto tasks = std::exchange(state_->listTasks, {});
  for (const auto& task : tasks) {
    koriva::guarded([&] { task(true); });
  }
}
