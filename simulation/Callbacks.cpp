#include <algorithm>
#include <utility>

#include "simulation/Invariants.h"
#include "simulation/Life.h"

// What the library calls.
namespace koriva::simulation {

using namespace std::chrono_literals;

void Life::checkMain(std::string_view what) { require(!isOnNetwork_, invariant::mainThread, what); }

void Life::onCall(int client, int delegate, std::string_view call, std::optional<int> number) {
  checkMain(call);
  const auto said = number ? texts(call, " ", *number) : std::string(call);
  require(requesting_ == 0, invariant::notWithin, said);
  if (delegate == Client::observer) {
    write("(client ", client, " tells ", said, ")");
    beginFanOut(client, said);
  } else {
    continueFanOut(client, delegate, said);
  }
  react();
}

void Life::onState(int client, int delegate, const KRConnectionState& state) {
  checkMain("connectionDidChange");
  require(requesting_ == 0, invariant::notWithin, "connectionDidChange");
  if (delegate == Client::observer) {
    auto& told = clients_.at(static_cast<std::size_t>(client)).told;
    told = state.phase();
    write("(client ", client, " tells its phase ", static_cast<int>(told), " of attempt ",
          state.attempt(), ": ", state.reason(), ")");
  }
  react();
}

void Life::onQuestion(int index, KRTokenReply reply) {
  checkMain("a question");
  auto& client = clients_.at(static_cast<std::size_t>(index));
  const bool isOver = client.hasReplied || (client.asked && now() - *client.asked >= 20s);
  require(!client.asked || isOver, invariant::asksOnce, "client ", index);
  write("(client ", index, " asks for a token)");
  client.asked = now();
  client.reply = std::move(reply);
  client.hasReplied = false;
  if (random().chance(50)) replyTo(client);
  react();
}

/// The client is about to say that it is connected.
void Life::beginConnection(Client& client) {
  namespace is = invariant;
  auto& connection = *client.current;
  require(connection.isJoined && !connection.hasToldDisconnect, is::connectsOnce, "connection ",
          connection.number, " does not stand");
  if (std::exchange(connection.hasBegun, true)) return;
  client.isReady = true;
  client.isNew = false;
  client.batches.push_back(std::exchange(client.waiting, {}));
}

void Life::beginFanOut(int index, const std::string& call) {
  namespace is = invariant;
  auto& client = clients_.at(static_cast<std::size_t>(index));
  require(client.current != nullptr, is::logoutIsFinal, call);
  auto connection = client.current;
  if (call == "didConnect") {
    require(!connection->hasToldConnect, is::connectsOnce, "connected twice");
    beginConnection(client);
    connection->hasToldConnect = true;
    require(client.batches.back().empty(), is::readyTasks, "connected before they have run");
  } else if (call == "didDisconnect") {
    const auto hasCause = [&] {
      return !connection->hasToldDisconnect &&
             (connection->isOver || connection->isClosed || client.disconnecting > 0);
    };
    if (!hasCause() && !orphans_.empty()) {
      // One of those, not known which, that will not be dialled any more.
      connection = std::make_shared<Connection>(*orphans_.front());
      connection->isOver = true;
      adopt(connection, index);
    }
    const bool wasAsking = client.asked && client.disconnecting > 0 && !hasCause();
    if (client.disconnecting > 0) client.asked.reset();
    require(hasCause() || wasAsking, is::connectsOnce, "connection ", connection->number,
            " disconnects");
    connection->hasToldDisconnect = true;
    connection->toldDisconnect = now();
    // A failed attempt counts as a dial.
    if (!connection->isJoined && client.disconnecting == 0) client.dialled = now();
    connection->incoming.clear();
    connection->halfTold.clear();
  } else {
    require(connection->hasBegun && !connection->hasToldDisconnect, is::pushesInOrder, call,
            " without a session");
    takeIncoming(*connection, call);
  }
  client.heard = made_;
  FanOut fanOut{index, call, {client.delegates.begin() + 1, client.delegates.end()}, nullptr};
  std::erase(fanOut.next, Client::nobody);
  if (call == "didConnect") fanOut.connection = connection;
  fanOuts_.push_back(std::move(fanOut));
}

/// The call has to be the next, or the second one of a push, before which a nested drive may tell
/// of later ones.
void Life::takeIncoming(Connection& connection, const std::string& call) {
  auto& incoming = connection.incoming;
  auto& halfTold = connection.halfTold;
  const auto second = std::ranges::find(halfTold, call);
  if (second != halfTold.end()) {
    halfTold.erase(second);
    return;
  }
  require(!incoming.empty() && incoming.front().front() == call, invariant::pushesInOrder, call,
          " instead of ", incoming.empty() ? "nothing" : incoming.front().front());
  halfTold.insert(halfTold.end(), incoming.front().begin() + 1, incoming.front().end());
  incoming.pop_front();
}

/// Others need not hear of a connection that has ended meanwhile.
bool Life::isAlive(const FanOut& fanOut) const {
  const auto& client = clients_.at(static_cast<std::size_t>(fanOut.client));
  if (fanOut.next.empty()) return false;
  return !fanOut.connection ||
         (fanOut.connection == client.current && !fanOut.connection->hasToldDisconnect);
}

void Life::continueFanOut(int client, int delegate, const std::string& call) {
  while (fanOuts_.size() > firstFanOut_ && !isAlive(fanOuts_.back())) fanOuts_.pop_back();
  const auto told = texts("client ", client, ", ", call, " to delegate ", delegate);
  require(fanOuts_.size() > firstFanOut_, invariant::everybodyHears, told, ", not expected");
  auto& fanOut = fanOuts_.back();
  require(fanOut.client == client && fanOut.call == call && fanOut.next.front() == delegate,
          invariant::everybodyHears, told, ", while ", fanOut.call, " has to be told to ",
          fanOut.next.front());
  fanOut.next.pop_front();
}

void Life::onCompletion(int number, bool isSuccess) {
  namespace is = invariant;
  checkMain("completion");
  require(requesting_ == 0, is::notWithin, number);
  const auto found = asks_.find(number);
  require(found != asks_.end() && ++found->second.calls == 1, is::completesOnce, number);
  const auto& ask = found->second;
  const auto& client = clients_.at(static_cast<std::size_t>(ask.client));
  require(!client.weak.expired(), is::completesWithReason, number, ", and the client is gone");
  write("(", number, isSuccess ? " succeeds)" : " fails)");
  const bool isAsExpected =
      ask.expected && *ask.expected == (isSuccess ? Outcome::success : Outcome::failure);
  const bool isTimeOut = !isSuccess && now() - ask.asked >= 5s;
  require(isAsExpected || isTimeOut, is::completesWithReason, number);
  react();
}

void Life::onCompletionEnd(int number) {
  checkMain("a completion's end");
  --asks_.at(number).completions;
}

void Life::onTask(int index, int number, bool isReady) {
  namespace is = invariant;
  checkMain("ready task");
  require(isReady, is::readyTasks, number, " is told no");
  write("(ready task ", number, " of client ", index, ")");
  auto& client = clients_.at(static_cast<std::size_t>(index));
  if (atOnce_ == number) {
    atOnce_.reset();
  } else {
    auto& batches = client.batches;
    while (!batches.empty() && batches.back().empty()) batches.pop_back();
    if (batches.empty() || batches.back().front() != number) {
      const auto* connection = client.current.get();
      require(connection && connection->isJoined && !connection->hasBegun &&
                  !connection->hasToldDisconnect,
              is::readyTasks, number, " runs, and the client is not about to be ready");
      beginConnection(client);
    }
    require(!batches.empty() && !batches.back().empty() && batches.back().front() == number,
            is::readyTasks, number, " is not the next");
    batches.back().pop_front();
  }
  react();
}

/// What the application does within a callback.
void Life::react() {
  ++callsAtOnce_;
  ++calls_;
  if (!isQuiet() && depth_ < 3 && random().chance(reacting_)) {
    ++depth_;
    act();
    --depth_;
  }
  if (!escaping_ && (isQuiet() || !random().chance(throwing_))) return;
  const auto number = escaping_ ? *std::exchange(escaping_, {}) : ++thrown_;
  if (!kept_) kept_ = number;
  write("throw ", number);
  throw Thrown{number};
}

}  // namespace koriva::simulation
