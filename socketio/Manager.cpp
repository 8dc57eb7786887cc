#include "socketio/Manager.h"

#include "socketio/WebSocket.h"

namespace koriva::socketio {

Manager::Manager(const Executors& executors, const Endpoint& endpoint, Options options)
    : endpoint_(endpoint), parameters_(std::move(options.connectParameters)) {
  auto transport = options.transport ? std::move(options.transport) : makeWebSocket(executors);
  auto engine =
      std::make_shared<Engine>(executors, std::move(transport), options.nsp, options.limits);
  socket_ = std::make_shared<Socket>(executors, std::move(engine), options.nsp, options.limits);
}

Manager::~Manager() { socket_->release(); }

void Manager::connect(Clock::time_point notBefore) {
  socket_->connect(endpoint_, parameters_, notBefore);
}

}  // namespace koriva::socketio
