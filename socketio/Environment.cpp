#include "socketio/Environment.h"

#include "socketio/WebSocket.h"

namespace koriva::socketio {

Environment::Environment(const Executor& io) : io_(io), handlers_(io), world_(systemWorld()) {}

void Environment::setHandleQueue(Executor handlers, std::function<void()> handlerPosted) {
  handlers_ = std::move(handlers);
  handlerPosted_ = std::move(handlerPosted);
}

void Environment::add(std::weak_ptr<Connection> connection) const {
  std::erase_if(connections_, [](const auto& each) { return each.expired(); });
  connections_.push_back(std::move(connection));
}

World Environment::systemWorld() const {
  return {std::make_shared<SystemClock>(io_), [this] { return makeWebSocket(*this); }};
}

}  // namespace koriva::socketio
