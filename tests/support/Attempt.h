#pragma once

#include <sys/resource.h>

#include <algorithm>

#include "KorivaSDK/RunLoopInternals.h"
#include "socketio/Connection.h"
#include "tests/support/Harness.h"

namespace koriva::test {

/// A connection, and what is heard of it. Once made it asks for an answer.
struct Attempt {
  struct Heard {
    std::string errors;
    std::string answers;
    int disconnects = 0;
    int messages = 0;
  };

  explicit Attempt(const std::string& url, const socketio::Limits& limits = patient,
                   const socketio::TransportOptions& options = {}) {
    attached();
    handlers = std::make_shared<const socketio::Handlers>(
        socketio::Handlers{{std::string(socketio::errorEvent),
                            [to = heard](const auto& items) { to->errors += items.text(); }},
                           {std::string(socketio::disconnectEvent),
                            [to = heard](const auto& items) {
                              to->errors += items.text();
                              ++to->disconnects;
                            }},
                           {"message", [to = heard](const auto&) { ++to->messages; }},
                           {std::string(socketio::connectEvent), [this](const auto&) {
                              connection->emit("ask", {"{}"}, [to = heard](const auto& items) {
                                if (items.text() != socketio::quoted(socketio::noAck))
                                  to->answers += items.text();
                              });
                            }}});
    connection = std::make_shared<socketio::Connection>(KRRunLoop::main().internals().environment(),
                                                        "/data", limits, handlers, options);
    connection->connect(*socketio::Endpoint::parse(url), {{"session", "secret"}});
  }
  ~Attempt() { connection->release(); }
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;
  bool isOver() const { return !heard->answers.empty() || heard->disconnects > 0; }

  std::shared_ptr<const socketio::Handlers> handlers;
  std::shared_ptr<socketio::Connection> connection;
  std::shared_ptr<Heard> heard = std::make_shared<Heard>();
};

/// Whether the process itself can do without descriptors. The sanitizer looks at memory through a
/// pipe, and takes what it cannot look at for a fault.
inline constexpr bool canRunOut = KORIVA_TEST_CAN_RUN_OUT;

/// While it lives the process has no descriptor left, nor room for many ever after.
struct TakenDescriptors {
  TakenDescriptors() {
    constexpr rlimit few{100, 100};
    setrlimit(RLIMIT_NOFILE, &few);
    for (int one = 0; (one = dup(STDERR_FILENO)) >= 0;) all.push_back(one);
  }
  ~TakenDescriptors() { std::ranges::for_each(all, close); }

  std::vector<int> all;
};

/// The URL of a server that follows the scripts, as hostile_server.mjs describes them.
inline std::string playUrl(Server& server, const std::vector<std::string>& scripts,
                           const std::string& host = "http://127.0.0.1") {
  const json::value command{{"do", "play"}, {"scripts", json::value_from(scripts)}};
  return host + ":" + std::to_string(server.tell(json::serialize(command)).as_int64());
}

}  // namespace koriva::test
