#include <charconv>
#include <utility>

#include "simulation/Invariants.h"
#include "simulation/Life.h"

// What goes on between the library and the server.
namespace koriva::simulation {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view eventHead = "42/data,";
constexpr std::string_view ackHead = "43/data,";

/// The id that a frame has after its head, and the items that follow, without the brackets.
std::optional<std::pair<std::uint64_t, std::string_view>> numbered(std::string_view frame) {
  std::uint64_t id = 0;
  const auto* const end = frame.data() + frame.size();
  const auto read = std::from_chars(frame.data(), end, id);
  if (read.ec != std::errc() || read.ptr == end || *read.ptr != '[') return std::nullopt;
  frame.remove_prefix(static_cast<std::size_t>(read.ptr - frame.data()) + 1);
  if (!frame.ends_with(']')) return std::nullopt;
  return std::pair(id, frame.substr(0, frame.size() - 1));
}

Outcome outcomeOf(std::size_t kind, std::string_view items) {
  for (const auto& answers : {kinds().at(kind).answers, uselessAnswers()}) {
    for (const auto& each : answers) {
      if (each.items == items) return each.outcome;
    }
  }
  throw std::logic_error("no such answer: " + std::string(items));
}

}  // namespace

void Life::onMade(const std::shared_ptr<Connection>& connection) {
  ++transports_;
  connection->number = ++made_;
  connection->made = now();
  connections_.push_back(connection);
  write("(connection ", connection->number, " is made)");
  if (actor_ == Client::nobody) {
    orphans_.push_back(connection);
  } else {
    adopt(connection, actor_);
    connection->host = clients_.at(static_cast<std::size_t>(actor_)).host;
  }
}

/// The connection is the client's from now on.
void Life::adopt(const std::shared_ptr<Connection>& connection, int client) {
  auto& owner = clients_.at(static_cast<std::size_t>(client));
  connection->client = client;
  std::erase(orphans_, connection);
  owner.made = connection->made;
  owner.current = connection;
}

void Life::onDial(const std::shared_ptr<Connection>& connection, const std::string& host,
                  std::string_view target) {
  namespace is = invariant;
  require(!connection->dialled && !connection->isClosed, is::transportRules, "open");
  connection->dialled = now();
  int index = 0;
  while (target.find("session=" + clients_.at(static_cast<std::size_t>(index)).token + "&") ==
         target.npos) {
    ++index;
  }
  auto& client = clients_.at(static_cast<std::size_t>(index));
  write("(connection ", connection->number, " of client ", index, " is dialled)");
  const bool isLast = !client.current || client.current->number <= connection->number;
  if (connection->client == Client::nobody) {
    require(client.asked || now() - client.made >= 10s, is::timerWaits, "connection ",
            connection->number);
    if (isLast) {
      require(client.heard < connection->number, is::noneStays, "an old connection was heard");
      require(client.current != nullptr, is::noneStays, "a connection is made after the logout");
      require(client.asked || client.current->hasToldDisconnect, is::leavesAlone,
              "the timer of client ", index);
      client.asked.reset();
      adopt(connection, index);
    }
    connection->client = index;
    std::erase(orphans_, connection);
  }
  require(connection->client == index, is::dialsAsTold, "another client's token");
  require(connection->host.empty() || connection->host == host, is::dialsAsTold, host);
  const auto query =
      texts("session=", client.token, "&deviceid=device", client.isNew ? "&new=true" : "");
  require(!isLast || target.ends_with(query), is::dialsAsTold, target, " instead of ", query);
  // What is due after a while in which nothing ran comes at once, and its successor in time.
  const auto since = busyUntil_ + 250ms;
  const bool isSoon = client.dialled && now() - *client.dialled < 250ms && now() > since;
  require(!isSoon, is::dialsSeldom, "client ", index);
  client.dialled = now();
}

void Life::onSend(Connection& connection, std::string_view frame) {
  namespace is = invariant;
  require(connection.isOpen(), is::transportRules, "sent on a closed connection: ", frame);
  require(!connection.hasLeft, is::farewell, "sent after it: ", frame);
  require(frame.size() <= maxPayload_, is::transportRules, frame.size(), " bytes are too much");
  if (frame.starts_with('3')) --connection.heartbeats;
  if (frame == "41/data,") connection.hasLeft = true;
  const auto number = numberIn(frame);
  if (!number || !frame.starts_with(eventHead)) return;
  auto& emitted = clients_.at(static_cast<std::size_t>(connection.client)).emitted;
  for (;;) {
    require(!emitted.empty(), is::sentInOrder, "not expected: ", frame);
    const auto next = emitted.front();
    emitted.pop_front();
    if (next.number == *number) break;
    require(next.connection != connection.number, is::sentInOrder, "left out: ", next.number);
  }
  const auto request = numbered(frame.substr(eventHead.size()));
  if (!request) return;
  connection.asked[request->first] = *number;
  testing::Request asked;
  asked.event = frame.substr(frame.find('"') + 1);
  asked.event.resize(asked.event.find('"'));
  asked.id = request->first;
  asked.token = clients_.at(static_cast<std::size_t>(connection.client)).token;
  asked.connection = connection.number;
  unanswered_.push_back({std::move(asked), *number, asks_.at(*number).kind});
}

void Life::onClose(Connection& connection) {
  namespace is = invariant;
  connection.isClosed = true;
  if (!connection.isJoined || connection.isOver) return;
  if (!connection.hasLeft && now() - connection.heartbeat >= heartbeatLimit_) return;
  if (!connection.hasLeft && connection.probed && now() - *connection.probed >= 3s) return;
  require(connection.hasLeft, is::farewell, "none on connection ", connection.number);
  for (const auto& each : clients_.at(static_cast<std::size_t>(connection.client)).emitted) {
    require(each.connection != connection.number, is::farewell, "lost before it: ", each.number);
  }
}

void Life::onGone(const Connection& connection) {
  require(!connection.isOpen(), invariant::noneStays, "connection ", connection.number,
          " is dropped");
  --transports_;
}

bool Life::onArrival(Connection& connection, std::string_view frame) {
  require(connection.isOpen(), invariant::transportRules, "heard after the end: ", frame);
  if (frame.starts_with('2')) {
    if (isMute_) return false;
    connection.heartbeat = now();
    ++connection.heartbeats;
  }
  if (frame.starts_with('0') && !connection.isGreeted) {
    connection.isGreeted = frame.find("pingInterval") != frame.npos;
    connection.isOver = !connection.isGreeted;
    connection.heartbeat = now();
  }
  if (frame.starts_with("40/data,") && connection.isGreeted) connection.isJoined = true;
  if (frame == "1" || frame.starts_with("41/data,") || frame.starts_with("44/data,")) {
    connection.isOver = true;
  }
  if (frame.starts_with('4')) connection.partial.reset();
  if (!connection.isUp()) return true;
  if (frame.starts_with(eventHead)) {
    onPush(connection, numberIn(frame));
  } else if (frame.starts_with("451-/data,")) {
    connection.partial = numberIn(frame);
  } else if (frame.starts_with(ackHead)) {
    const auto answered = numbered(frame.substr(ackHead.size()));
    const auto request = answered ? connection.asked.find(answered->first) : connection.asked.end();
    if (request == connection.asked.end()) return true;
    const auto asked = asks_.find(request->second);
    if (asked == asks_.end() || asked->second.expected) return true;
    asked->second.expected = outcomeOf(asked->second.kind, answered->second);
  }
  return true;
}

void Life::onBinary(Connection& connection) {
  if (connection.isUp()) onPush(connection, std::exchange(connection.partial, {}));
}

/// Delegates have to hear of it, unless the client's session ends before.
void Life::onPush(Connection& connection, std::optional<int> number) {
  const auto found = number ? pushed_.find(*number) : pushed_.end();
  if (found == pushed_.end() || found->second.empty()) return;
  connection.incoming.push_back(found->second);
}

void Life::onEnd(Connection& connection) {
  require(connection.isOpen(), invariant::transportRules, "ended twice");
  connection.isOver = true;
}

}  // namespace koriva::simulation
