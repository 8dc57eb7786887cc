#include "socketio/Manager.h"

namespace koriva::socketio {

Manager::Manager(const Environment& environment, const Endpoint& endpoint, Options options)
    : endpoint_(endpoint), parameters_(std::move(options.connectParameters)) {
  auto engine = std::make_shared<Engine>(environment, options.nsp, options.limits);
  socket_ = std::make_shared<Socket>(environment, std::move(engine), options.nsp, options.limits);
}

Manager::~Manager() { socket_->release(); }

void Manager::connect(Duration delay) { socket_->connect(endpoint_, parameters_, delay); }

}  // namespace koriva::socketio
