#include "socketio/Environment.h"

#include "socketio/WebSocket.h"

namespace koriva::socketio {

Environment::Environment(Executor io, Executor handlers, std::function<void()> handlerPosted)
    : io_(std::move(io)),
      handlers_(std::move(handlers)),
      handlerPosted_(std::move(handlerPosted)),
      world_(systemWorld()) {}

World Environment::systemWorld() const {
  return {std::make_shared<SystemClock>(io_), [this] { return makeWebSocket(*this); }};
}

}  // namespace koriva::socketio
