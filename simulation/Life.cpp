#include "simulation/Life.h"

#include <algorithm>

#include "KorivaSDK/Stage.h"
#include "simulation/Invariants.h"
#include "simulation/Wire.h"

namespace koriva::simulation {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t lifeStream = ~std::size_t{0};
constexpr std::size_t endStream = lifeStream - 1;
constexpr int maxTasksAtOnce = 100'000;
constexpr int maxCallsWithActs = 10'000;
constexpr int maxDrives = 8;

/// Lets the life in between the tasks of the run loop.
class OneByOne final : public testing::Stage {
 public:
  OneByOne(std::shared_ptr<Stage> stage, std::function<void()> onDone,
           std::function<bool()> runNetwork)
      : stage_(std::move(stage)), onDone_(std::move(onDone)), runNetwork_(std::move(runNetwork)) {}

  socketio::World world() override { return stage_->world(); }
  bool advance(TimePoint end) override { return runNetwork_() || stage_->advance(end); }
  void onEndlessRun() override { stage_->onEndlessRun(); }
  void onTaskDone() override { onDone_(); }

 private:
  const std::shared_ptr<Stage> stage_;
  const std::function<void()> onDone_;
  const std::function<bool()> runNetwork_;
};

testing::Handshake handshakeOf(Random& random) {
  static const std::vector<testing::Handshake> all{
      {}, {.pingInterval = 1s, .pingTimeout = 2s, .maxPayload = 2000}, {.pingInterval = 8s}};
  return all[random.below(all.size())];
}

}  // namespace

Life::Life(std::uint64_t seed, Journal& journal)
    : journal_(journal), seed_(seed), random_(seed, lifeStream) {
  steps_ = weighed({{&Life::act, 16},
                    {&Life::postAct, 6},
                    {&Life::actElsewhere, 4},
                    {&Life::answer, 24},
                    {&Life::push, 14},
                    {&Life::pushBinary, 2},
                    {&Life::flood, 1},
                    {&Life::sayStrange, 1},
                    {&Life::drop, 1},
                    {&Life::trouble, 1},
                    {&Life::attachOrDetach, 1},
                    {&Life::passBusy, 1}});
  for (const auto& always : {std::pair<Act, unsigned>{&Life::runSome, 12},
                             {&Life::recover, 6},
                             {&Life::passMoment, 6},
                             {&Life::passTime, 2}}) {
    steps_.push_back(always);
  }
  acts_ = weighed({{&Life::create, 1},        {&Life::setUrl, 1},
                   {&Life::reconnect, 4},     {&Life::disconnect, 3},
                   {&Life::changeNetwork, 3}, {&Life::provideTokens, 1},
                   {&Life::replyLate, 2},     {&Life::logout, 1},
                   {&Life::leave, 1},         {&Life::askOften, 1},
                   {&Life::notify, 6},        {&Life::addTask, 6},
                   {&Life::addDelegate, 3},   {&Life::removeDelegate, 2},
                   {&Life::release, 1},       {&Life::share, 1},
                   {&Life::driveWithin, 1},   {&Life::stop, 1},
                   {&Life::postAct, 2},       {&Life::push, 1}});
  acts_.emplace_back(&Life::login, 6);
  acts_.emplace_back(&Life::ask, 16);
  reacting_ = std::array<std::size_t, 4>{0, 10, 30, 60}[random().below(4)];
  throwing_ = std::array<std::size_t, 4>{0, 0, 5, 20}[random().below(4)];
  deaf_ = std::array<std::size_t, 4>{0, 0, 5, 40}[random().below(4)];
  diving_ = std::array<std::size_t, 4>{0, 0, 50, 90}[random().below(4)];

  const auto handshake = handshakeOf(random());
  heartbeatLimit_ = handshake.pingInterval + handshake.pingTimeout;
  maxPayload_ = handshake.maxPayload;
  server_.emplace(handshake);
  const auto world = internals_.stage->world();
  internals_.environment_.setWorld(
      {world.clock,
       [this, make = world.makeTransport] { return std::make_shared<Wire>(*this, make()); },
       world.chance});
  internals_.stage = std::make_shared<OneByOne>(
      std::move(internals_.stage), [this] { onTaskDone(); }, [this] { return runNetwork(); });
  for (const auto& kind : kinds()) {
    if (random().chance(40)) server_->answerRaw(kind.event, std::string(kind.answers[0].items));
  }
  start_ = wellSince_ = now();
  if (seed % 2 == 1) attachOrDetach();
  create();
}

Life::~Life() {
  internals_.divide({});
  server_.reset();
}

TimePoint Life::now() const { return internals_.environment().clock()->now(); }

void Life::writeLine(const std::string& line) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now() - start_);
  journal_.write(texts(milliseconds.count(), " ms ",
                       std::string(1 + 2 * static_cast<std::size_t>(depth_), ' '), line));
}

std::vector<std::pair<Life::Act, unsigned>> Life::weighed(
    std::vector<std::pair<Act, unsigned>> acts) {
  static constexpr std::array<unsigned, 5> factors{0, 1, 1, 1, 4};
  for (auto& act : acts) act.second *= factors[random().below(factors.size())];
  return acts;
}

Life::Act Life::choose(const std::vector<std::pair<Act, unsigned>>& from) {
  unsigned all = 0;
  for (const auto& each : from) all += each.second;
  auto at = static_cast<unsigned>(random().below(all));
  for (const auto& [act, weight] : from) {
    if (at < weight) return act;
    at -= weight;
  }
  return from.back().first;
}

int Life::indexOf(const Client& client) const {
  int index = 0;
  while (&clients_[static_cast<std::size_t>(index)] != &client) ++index;
  return index;
}

std::shared_ptr<void> Life::token(std::string_view of) {
  ++tokens_;
  return {this, [this, of](void*) {
            checkMain(of);
            --tokens_;
          }};
}

void Life::step(std::size_t number) {
  random_ = Random(seed_, number);
  journal_.beginStep(number);
  (this->*choose(steps_))();
}

void Life::end() {
  namespace is = invariant;
  random_ = Random(seed_, endStream);
  hasEnded_ = true;
  write("the end");
  recover();
  pass(std::max<Duration>(20s, heartbeatLimit_) + 32s);
  for (auto& client : clients_) {
    if (client.sdk && random().chance(30)) logoutOf(client, *client.sdk);
    client.sdk = nullptr;
    client.ears.clear();
    client.reply = nullptr;
  }
  KorivaSDK::setShared(nullptr);
  pass(30s);
  while (stopped_) run({});  // not the next life's
  require(transports_ == 0, is::nothingIsLeft, transports_, " transports");
  require(tokens_ == 0, is::nothingIsLeft, tokens_, " delegates and tasks");
  require(asks_.empty(), is::nothingIsLeft, asks_.size(), " completions");
  require(!internals_.environment().isClosing(), is::nothingIsLeft, "closing");
  for (const auto& client : clients_) {
    require(client.weak.expired(), is::nothingIsLeft, "client ", indexOf(client));
  }
}

void Life::onWakeUp() {
  require(isOnNetwork_, invariant::wakesUp, "on another thread");
  if (!isQuiet() && random().chance(deaf_)) {
    const auto number = ++thrown_;
    write("throw ", number, " from the wake-up");
    unheard_.insert(number);
    hasToHear_ = true;
    wakeUpDue_ = now() + 1s;
    throw Thrown{number};
  }
  wakeUpDue_.reset();
  isWoken_ = true;
}

/// Drives the run loop. Says whether that ended with an exception.
bool Life::drive(const std::function<void()>& call) {
  namespace is = invariant;
  const auto before = std::exchange(firstFanOut_, fanOuts_.size());
  const auto actor = std::exchange(actor_, Client::nobody);
  const auto outer = drives_ > 0 ? std::exchange(kept_, {}) : std::nullopt;
  const auto called = calls_;
  bool hasThrown = false;
  ++drives_;
  try {
    call();
  } catch (const Thrown& thrown) {
    hasThrown = true;
    write("caught ", thrown.number);
    if (!kept_ && unheard_.erase(thrown.number) > 0) {
      hasToHear_ = false;
    } else {
      require(kept_ == thrown.number, is::firstException, thrown.number, " instead of ",
              kept_.value_or(0));
      kept_.reset();
    }
    if (drives_ > 1 && !isQuiet() && random().chance(50)) escaping_ = thrown.number;
  } catch (...) {
    require(false, is::nothingThrown, "by the run loop");
  }
  require(!kept_, is::firstException, kept_.value_or(0), " is not rethrown");
  require(drives_ <= maxDrives || calls_ == called, is::drivesToDepth, drives_);
  checkFanOuts();
  --drives_;
  kept_ = outer;
  actor_ = actor;
  firstFanOut_ = before;
  return hasThrown;
}

/// Until its time is over, it is stopped or something is thrown.
void Life::run(Duration duration) {
  namespace is = invariant;
  const auto start = now();
  const bool isRefused = drives_ == maxDrives;
  if (stopped_) stopped_ = start;
  ++runs_;
  const bool hasThrown = drive([&] { loop_.runFor(duration); });
  --runs_;
  const bool hasPassed = now() >= start + duration;  // longer within a callback
  require(isRefused ? now() == start : hasThrown || stopped_ || hasPassed, is::runsOn, "for ",
          duration.count());
  require(isRefused || hasThrown || !stopped_ || now() == *stopped_, is::stops, "late");
  if (runs_ == 0 && !hasThrown && !isRefused) stopped_.reset();
}

/// Says whether it ended with an exception.
bool Life::poll() {
  const bool isWhole = drives_ == 0;
  const bool hasThrown = drive([this] { loop_.poll(); });
  if (!isWhole || hasThrown) return hasThrown;
  wakeUpDue_.reset();
  auto& ready = isAttached() ? internals_.ready : internals_.io;
  ready.restart();
  require(ready.poll_one() == 0 && !hasToHear_, invariant::pollsAll, "something is left");
  return false;
}

void Life::checkFanOuts() {
  for (; fanOuts_.size() > firstFanOut_; fanOuts_.pop_back()) {
    const auto& last = fanOuts_.back();
    require(!isAlive(last), invariant::everybodyHears, last.call, " is not told to all");
  }
}

/// Applications that do something about everything may never come to rest.
bool Life::isQuiet() const { return hasEnded_ || callsAtOnce_ > maxCallsWithActs; }

bool Life::runNetworkTask() {
  isOnNetwork_ = true;
  internals_.io.restart();
  const auto count = internals_.io.poll_one();
  isOnNetwork_ = false;
  return count != 0;
}

bool Life::pollIfWoken() {
  if (!std::exchange(isWoken_, false)) return false;
  poll();
  return true;
}

/// The network has a turn while the main thread waits.
bool Life::runNetwork() {
  // Within a task other threads cannot be told from this one.
  return isAttached() && drives_ == 1 && runNetworkTask();
}

void Life::onTaskDone() {
  ++tasksAtOnce_;
  require(tasksAtOnce_ < maxTasksAtOnce, invariant::comesToRest, tasksAtOnce_, " tasks");
  checkFanOuts();
  if (drives_ != 1) return;
  for (auto left = isAttached() ? random().below(3) : 0; left > 0; --left) runNetwork();
  if (!isQuiet() && random().chance(3)) actElsewhere();
}

/// Runs whatever there is to do now, and looks whether everything is as it should be then.
void Life::settle() {
  tasksAtOnce_ = callsAtOnce_ = 0;
  do {
    drain();
  } while (internals_.stage->advance(now()));
  rest();
}

void Life::drain() {
  if (!isAttached()) {
    while (poll()) {
    }
    return;
  }
  for (;;) {
    while (random().chance(50) ? runNetworkTask() || pollIfWoken()
                               : pollIfWoken() || runNetworkTask()) {
    }
    if (!wakeUpDue_) break;
    endDeafness();
  }
  internals_.ready.restart();
  require(internals_.ready.poll_one() == 0, invariant::wakesUp, "it was not");
}

/// The application polls for another reason, or waits until it is woken again.
void Life::endDeafness() {
  if (random().chance(50)) {
    poll();
    return;
  }
  require(internals_.stage->advance(*wakeUpDue_), invariant::wakesAgain, "it was not");
  onIdled();
}

void Life::runSome() {
  tasksAtOnce_ = callsAtOnce_ = 0;
  const auto duration = std::chrono::milliseconds(random().below(2000));
  const bool polls = random().chance(70);
  if (!isAttached() && polls) {
    poll();
    return;
  }
  if (!polls && (!isAttached() || random().chance(30))) return run(duration);
  for (auto left = 1 + random().below(8); left > 0; --left) {
    random().chance(70) ? runNetworkTask() : pollIfWoken();
  }
}

void Life::pass(Duration duration) {
  const auto end = now() + duration;
  do {
    settle();
  } while (internals_.stage->advance(end));
  rest();
}

void Life::passMoment() { pass(std::chrono::milliseconds(random().below(600))); }

void Life::passTime() { pass(std::chrono::milliseconds(random().below(60'000))); }

/// The main thread is busy meanwhile, and with it the network, unless that has its own.
void Life::passBusy() {
  const auto end = now() + std::chrono::milliseconds(random().below(30'000));
  write("busy");
  do {
    while (isAttached() && runNetworkTask()) {
    }
  } while (internals_.stage->advance(end));
  onIdled();
}

/// Time has passed in which the main thread did nothing.
void Life::onIdled() {
  busyUntil_ = now();
  unsettle();
  for (auto& client : clients_) client.disturbed = now();
}

void Life::rest() {
  restConnections();
  for (auto& client : clients_) restClient(client);
  restAsks();
  pushed_.clear();
  unanswered_.resize(std::min(unanswered_.size(), std::size_t{50}));
  server_->forget();
}

void Life::restConnections() {
  namespace is = invariant;
  std::erase_if(orphans_, [](const auto& orphan) { return orphan.use_count() == 2; });
  std::erase_if(connections_, [](const auto& each) { return each.use_count() == 1; });
  for (const auto& each : connections_) {
    if (!each->isOpen()) continue;
    const auto& client = clients_.at(static_cast<std::size_t>(each->client));
    require(!client.weak.expired() && client.current == each && !each->hasToldDisconnect,
            is::noneStays, "connection ", each->number, " of client ", each->client);
    const auto isInTime =
        each->isJoined ? now() - each->heartbeat < heartbeatLimit_ : now() - *each->dialled < 20s;
    require(isInTime, is::attemptsEnd, "connection ", each->number);
    require(each->heartbeats == 0, is::answersHeartbeats, "not on connection ", each->number);
    require(!each->isPaused, is::readsOn, "not on connection ", each->number);
  }
}

void Life::restClient(Client& client) {
  namespace is = invariant;
  const auto name = texts("client ", indexOf(client));
  client.batches.clear();
  const auto alive = client.weak.lock();
  if (!alive) {
    client.emitted.clear();
    return;
  }
  const auto* connection = client.current.get();
  const bool isUp = connection && connection->isUp();
  require(alive->isConnected() == isUp, is::isConnectedIsTrue, name);
  using Phase = KRConnectionState::Phase;
  const auto said = alive->connectionState().phase();
  const bool mayConnect = said == Phase::connecting && (client.asked || !orphans_.empty());
  const auto phase = !connection                     ? Phase::idle
                     : isUp                          ? Phase::connected
                     : connection->hasToldDisconnect ? (mayConnect ? said : Phase::waiting)
                                                     : Phase::connecting;
  require(said == phase && client.told == phase, is::tellsState, name, " should have told ",
          static_cast<int>(phase));
  if (isUp) {
    // Of a session that has expired, nothing may have come.
    if (client.hasReplied && orphans_.empty()) client.asked.reset();
    require(connection->hasToldConnect, is::tellsAll, name, " does not tell that it is connected");
    require(connection->incoming.empty() && connection->halfTold.empty(), is::pushesInOrder, name,
            " keeps what has arrived");
    require(client.waiting.empty(), is::readyTasks, name, " keeps them waiting");
    for (const auto& each : client.emitted) {
      require(each.connection != connection->number, is::sentInOrder, each.number, " is not sent");
    }
  } else if (connection) {
    const bool isBeingReplaced = client.asked && client.hasReplied;
    const bool isOver = !isBeingReplaced && (connection->isOver || connection->isClosed);
    require(!isOver || connection->hasToldDisconnect, is::tellsAll, name,
            " does not tell of the end");
    const auto longest = client.asked ? 30s : 10s;
    const auto free = std::max(connection->toldDisconnect, busyUntil_);
    require(!connection->hasToldDisconnect || now() - free <= longest + 250ms, is::connectsSoon,
            name);
    const auto since = now() - std::max(wellSince_, client.disturbed);
    const auto limit = std::max<Duration>(20s, heartbeatLimit_) + 11s + (client.reply ? 20s : 0s);
    require(!isWell_ || since <= limit, is::connectsAgain, name);
  }
  client.emitted.clear();
}

void Life::restAsks() {
  namespace is = invariant;
  for (auto it = asks_.begin(); it != asks_.end();) {
    const auto& [number, ask] = *it;
    if (!it->second.end) it->second.end = now() + 5s;
    if (clients_.at(static_cast<std::size_t>(ask.client)).weak.expired()) it->second.isDue = false;
    const bool isSilent = ask.expected == Outcome::silence;
    const bool isOver = now() >= *ask.end || ask.calls > 0 || isSilent;
    if (!isOver) {
      ++it;
      continue;
    }
    require(!ask.isDue || ask.calls == 1 || isSilent, is::completes, number);
    require(ask.completions == 0, is::completionEnds, number);
    it = asks_.erase(it);
  }
}

}  // namespace koriva::simulation
