#include <algorithm>

#include "simulation/Completion.h"
#include "simulation/Invariants.h"
#include "simulation/Life.h"

// What the application does.
namespace koriva::simulation {
namespace {

using namespace std::chrono_literals;

/// A delegate that tells the life of every call.
class Ear final : public KorivaDelegate {
 public:
  using Kind = KRGroupEventKind;
  using Tell = std::function<void(std::string_view call, std::optional<int> number)>;
  using TellState = std::function<void(const KRConnectionState& state)>;
  Ear(Tell tell, TellState tellState, std::shared_ptr<void> token)
      : tell_(std::move(tell)), tellState_(std::move(tellState)), token_(std::move(token)) {}

  void didConnect() override { tell_("didConnect", {}); }
  void didDisconnect() override { tell_("didDisconnect", {}); }
  void didReceiveError(KRError error) override {
    tell_(texts("didReceiveError ", error.code()), {});
  }
  void didDeleteGroup(const std::string& id) override { tell_("didDeleteGroup", numberIn(id)); }
  void didReceiveGroupEvent(const KRGroupEvent& event) override {
    const std::string_view kind = event.kind.as<Kind::UpdateMessage>()   ? "update"
                                  : event.kind.as<Kind::DeleteMessage>() ? "delete"
                                  : event.kind.as<Kind::StartTyping>()   ? "start"
                                                                         : "stop";
    tell_(texts("didReceiveGroupEvent ", kind), numberIn(event.groupID));
  }
  void didReceive(const KRMessage& it) override { record("didReceive", it); }
  void didUpdateUserStatus(const KRUserStatus& it) override { record("didUpdateUserStatus", it); }
  void didReceiveNewGroup(const KRConversation& it) override { record("didReceiveNewGroup", it); }
  void didUpdateGroup(const KRConversation& it) override { record("didUpdateGroup", it); }
  void didReceiveCall(const KRCallEvent& it) override {
    record(texts("didReceiveCall ", koriva::rawValue(it.key())), it);
  }
  void didStartSecretChat(const KRStartSecretChat& it) override {
    record("didStartSecretChat", it);
  }
  void didAcceptSecretChat(const KRAcceptSecretChat& it) override {
    record("didAcceptSecretChat", it);
  }
  void didDeleteSecretChat(const KRDeleteSecretChat& it) override {
    record("didDeleteSecretChat", it);
  }
  void connectionDidChange(const KRConnectionState& state) override { tellState_(state); }
  void didBlockContact(const KRBlock& it) override { record("didBlockContact", it); }
  void didUnblockContact(const KRBlock& it) override { record("didUnblockContact", it); }

 private:
  void record(std::string_view call, const auto& record) {
    tell_(call, numberIn(KRJSONEncoder{}.encode(record)));
  }

  const Tell tell_;
  const TellState tellState_;
  const std::shared_ptr<void> token_;
};

}  // namespace

void Life::act() { (this->*choose(acts_))(); }

/// One that the application holds; made if there is none.
int Life::pickClient() {
  std::vector<int> held;
  for (const auto& client : clients_) {
    if (client.sdk) held.push_back(indexOf(client));
  }
  if (held.empty()) {
    create();
    held.push_back(static_cast<int>(clients_.size()) - 1);
  }
  return held[random().below(held.size())];
}

/// Calls a method of some client's, which may be let go of within.
void Life::onClient(std::string_view what,
                    const std::function<void(Client& client, KorivaSDK& sdk)>& call) {
  auto& client = clients_.at(static_cast<std::size_t>(pickClient()));
  const auto sdk = client.sdk;
  if (!sdk) return;
  const auto before = std::exchange(actor_, indexOf(client));
  write("client ", indexOf(client), ": ", what);
  try {
    call(client, *sdk);
  } catch (...) {
    require(false, invariant::nothingThrown, what);
  }
  actor_ = before;
}

void Life::create() {
  if (std::ranges::count_if(clients_, [](auto& client) { return client.sdk != nullptr; }) > 2)
    return;
  auto& client = clients_.emplace_back();
  KorivaSDK::setShared(nullptr);
  client.sdk = KorivaSDK::shared();
  KorivaSDK::setShared(nullptr);
  client.weak = client.sdk;
  client.token = texts("t", clients_.size(), "t");
  client.disturbed = now();
  client.sdk->addDelegate(delegate(client, Client::observer));
  client.delegates = {Client::observer};
  write("client ", indexOf(client), " is made");
  client.made = now();
  if (random().chance(80)) login();
}

std::shared_ptr<KorivaDelegate> Life::delegate(Client& client, int number) {
  if (number == Client::nobody) return nullptr;
  auto& ear = client.ears[number];
  if (ear) return ear;
  ear = std::make_shared<Ear>(
      [this, index = indexOf(client), number](std::string_view call, std::optional<int> id) {
        onCall(index, number, call, id);
      },
      [this, index = indexOf(client), number](const KRConnectionState& state) {
        onState(index, number, state);
      },
      token("delegate"));
  return ear;
}

void Life::setUrl() {
  const auto host = texts("host", random().below(3), ".test");
  onClient("setBaseUrl", [&](Client& client, KorivaSDK& sdk) {
    sdk.setBaseUrl(texts("http://", host));
    sdk.setBaseUrl("no url");
    client.host = host;
  });
}

void Life::login() {
  const bool isNew = random().chance(30);
  onClient("login", [&](Client& client, KorivaSDK& sdk) {
    client.disturbed = now();
    client.asked.reset();
    client.isNew = isNew;
    sdk.login(client.token, 1001, "device", isNew);
  });
}

void Life::reconnect() {
  const auto how = random().below(3);
  onClient("reconnect", [&](Client& client, KorivaSDK& sdk) {
    const auto before = client.current;
    if (how == 0) sdk.reconnectIfNeed();
    if (how == 1) sdk.reconnectFired();
    if (how == 2) sdk.connectChat("channel");
    const bool isAllowed = before && before->hasToldDisconnect;
    require(isAllowed || client.current == before, invariant::leavesAlone, indexOf(client));
  });
}

void Life::changeNetwork() {
  const auto how = random().below(3);
  onClient("network", [&](Client& client, KorivaSDK& sdk) {
    const auto before = client.current;
    const bool isConnecting = before && !before->isJoined && !before->hasToldDisconnect;
    if (isConnecting || how == 0) client.disturbed = now();
    ++client.disconnecting;
    if (how == 0) sdk.networkDidChange(false);
    --client.disconnecting;
    if (how == 1) sdk.networkDidChange(true);
    if (how == 2) sdk.setForeground(true);
    const bool isAllowed = before && (before->hasToldDisconnect || (how == 1 && !before->hasBegun));
    require(isAllowed || client.current == before, invariant::leavesAlone, indexOf(client));
  });
}

void Life::provideTokens() {
  const bool isNone = random().chance(20);
  onClient("setTokenProvider", [&](Client& client, KorivaSDK& sdk) {
    if (isNone) return sdk.setTokenProvider({});
    sdk.setTokenProvider([this, index = indexOf(client), token = token("provider")](
                             KRTokenReply reply) { onQuestion(index, std::move(reply)); });
  });
}

/// Perhaps once more, or too late.
void Life::replyLate() {
  auto& client = clients_.at(random().below(clients_.size()));
  if (client.reply) replyTo(client);
}

void Life::replyTo(Client& client) {
  const bool isNew = random().chance(70);
  write("client ", indexOf(client), " is given ", isNew ? "a" : "no", " token");
  client.hasReplied = true;
  client.reply(isNew ? client.token : "");
}

void Life::disconnect() {
  onClient("disconnect", [this](Client& client, KorivaSDK& sdk) {
    const auto left = client.current;
    client.isReady = false;
    client.disturbed = now();
    ++client.disconnecting;
    sdk.disconnect();
    --client.disconnecting;
    require(!left || left->hasToldDisconnect, invariant::disconnectTells, "connection ",
            left ? left->number : 0);
  });
}

void Life::logout() {
  onClient("logout", [this](Client& client, KorivaSDK& sdk) { logoutOf(client, sdk); });
}

void Life::leave() {
  onClient("send the logout event, and logout", [this](Client& client, KorivaSDK& sdk) {
    emit(client, true, [&](const std::string& n) { sdk.sendLogoutEvent(std::stoi(n), 1); });
    logoutOf(client, sdk);
  });
}

void Life::logoutOf(Client& client, KorivaSDK& sdk) {
  const auto left = client.current;
  client.isReady = false;
  ++client.disconnecting;
  sdk.logout();
  --client.disconnecting;
  require(!left || left->hasToldDisconnect, invariant::disconnectTells, "connection ",
          left ? left->number : 0);
  client.current = nullptr;
  client.told = {};
  client.asked.reset();
  // Heard from now on: there must be nothing.
  sdk.addDelegate(delegate(client, Client::observer));
  client.delegates = {Client::observer};
}

void Life::emit(Client& client, bool isDue,
                const std::function<void(const std::string& number)>& call) {
  const auto& current = client.current;
  const bool isUp = current && current->isUp() && current->hasBegun && !current->hasToldDisconnect;
  const auto number = ++numbers_;
  const bool isBeingReplaced = client.asked && client.hasReplied;
  const bool hasToLeave = isDue && isUp && !isBeingReplaced;
  client.emitted.push_back({number, hasToLeave ? current->number : 0});
  ++requesting_;
  call(std::to_string(number));
  --requesting_;
}

void Life::ask() {
  const auto kind = random().below(kinds().size());
  const bool hasCompletion = random().chance(90);
  onClient(kinds()[kind].event, [&](Client& client, KorivaSDK& sdk) {
    Completion completion;
    const bool hasToLeave = !kinds()[kind].isSometimesRefused;
    const auto number = numbers_ + 1;
    if (hasCompletion) {
      completion.ticket = std::make_shared<Completion::Ticket>(
          [this, number](bool isSuccess) { onCompletion(number, isSuccess); },
          [this, number] { onCompletionEnd(number); });
    }
    const bool isDue = hasCompletion && client.current;
    asks_.insert({number, Ask{.client = indexOf(client),
                              .kind = kind,
                              .asked = now(),
                              .end = {},
                              .isDue = isDue,
                              .completions = hasCompletion ? 1 : 0}});
    emit(client, hasToLeave, [&](const std::string& n) { kinds()[kind].ask(sdk, n, completion); });
  });
}

void Life::askOften() {
  for (auto left = 2 + random().below(10); left > 0; --left) ask();
}

void Life::notify() {
  onClient("sendGroupEvent", [this](Client& client, KorivaSDK& sdk) {
    emit(client, true, [&](const std::string& n) { sdk.sendGroupEvent(n, {}); });
  });
}

void Life::addTask() {
  onClient("runNowOrWhenSDKReady", [this](Client& client, KorivaSDK& sdk) {
    const auto number = ++numbers_;
    const auto before = std::exchange(atOnce_, {});
    if (client.isReady) {
      atOnce_ = number;
    } else {
      client.waiting.push_back(number);
    }
    sdk.runNowOrWhenSDKReady([this, index = indexOf(client), number, token = token("ready task")](
                                 bool isReady) { onTask(index, number, isReady); });
    require(!atOnce_, invariant::readyTasks, number, " has not run at once");
    atOnce_ = before;
  });
}

void Life::addDelegate() {
  const auto number = static_cast<int>(random().below(4));
  onClient("addDelegate", [&](Client& client, KorivaSDK& sdk) {
    if (client.delegates.size() > 9) return;
    const auto chosen = number == 0 ? Client::nobody : number;
    client.delegates.push_back(chosen);
    sdk.addDelegate(delegate(client, chosen));
  });
}

void Life::removeDelegate() {
  const auto number = static_cast<int>(1 + random().below(3));
  onClient("removeDelegate", [&](Client& client, KorivaSDK& sdk) {
    std::erase(client.delegates, number);
    sdk.removeDelegate(delegate(client, number));
  });
}

void Life::release() {
  auto& client = clients_.at(static_cast<std::size_t>(pickClient()));
  write("client ", indexOf(client), " is let go of");
  client.sdk = nullptr;
}

void Life::share() {
  const bool isKept = random().chance(50);
  onClient("setShared", [isKept](Client& client, KorivaSDK&) {
    KorivaSDK::setShared(isKept ? client.sdk : nullptr);
  });
}

void Life::driveWithin() {
  if (depth_ == 0) return;
  if (random().chance(diving_)) post(&Life::driveWithin);
  if (isAttached() || random().chance(50)) {
    write("poll within");
    poll();
  } else {
    write("run within");
    run(std::chrono::milliseconds(random().below(6000)));
  }
}

void Life::stop() {
  write("stop");
  if (!stopped_) stopped_ = now();
  loop_.stop();
}

/// Gives the network its own thread, or takes it back. What the run loop does about threads is
/// left out: the life does what they do.
void Life::attachOrDetach() {
  if (!isAttached()) {
    write("attach");
    internals_.divide([this] { onWakeUp(); });
    return internals_.wake();
  }
  write("detach");
  const auto before = made_;
  internals_.leave();
  while (runNetworkTask()) {
  }
  const bool hasThrown = drive([this] { internals_.unite(); });
  isWoken_ = false;
  wakeUpDue_.reset();
  for (auto& client : clients_) {
    client.disturbed = now();
    const auto* last = client.current.get();
    const bool isLeft = last && last->number <= before && !client.weak.expired();
    require(hasThrown || !isLeft || last->hasToldDisconnect, invariant::detachTells,
            indexOf(client));
  }
}

void Life::postAct() { post(&Life::act); }

void Life::post(Act what) {
  write("post");
  loop_.post([this, what, token = token("posted task")] {
    checkMain("posted task");
    write("(posted task)");
    ++callsAtOnce_;
    if (isQuiet()) return;
    ++depth_;
    (this->*what)();
    --depth_;
    react();
  });
}

/// From another thread.
void Life::actElsewhere() {
  static const std::vector<std::pair<Act, unsigned>> acts{
      {&Life::ask, 4},     {&Life::notify, 2},    {&Life::postAct, 1},
      {&Life::release, 1}, {&Life::replyLate, 2}, {&Life::stop, 1}};
  (this->*choose(acts))();
}

}  // namespace koriva::simulation
