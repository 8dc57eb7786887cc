#include "bench/Unconnected.h"

#include "KorivaSDK/State.h"
#include "socketio/WebSocket.h"

using koriva::socketio::Endpoint;
using koriva::socketio::Frame;
using koriva::socketio::Transport;
using koriva::socketio::TransportOptions;

std::shared_ptr<Transport> koriva::socketio::makeWebSocket(const Environment& /*environment*/) {
  return {std::shared_ptr<void>(), &Unconnected::instance()};
}

void koriva::socketio::prepareTls() {}

Unconnected& Unconnected::instance() {
  static Unconnected transport;
  return transport;
}

std::shared_ptr<KorivaSDK> Unconnected::login() {
  koriva::timing().limits.redial = {};  // each benchmark logs in anew
  const auto sdk = KorivaSDK::shared();
  onLoop([sdk] { sdk->login("token", 1001, "bench", false); });
  onLoop([] {
    instance().receive(R"(0{"sid":"a","upgrades":[],"pingInterval":300000,"pingTimeout":300000})");
    instance().receive(R"(40/data,{"sid":"b"})");
  });
  return sdk;
}

void Unconnected::receive(std::string frame) {
  if (const auto listener = listener_.lock()) listener->onText(std::move(frame));
}

void Unconnected::answer() {
  for (; waiting_ != 0; --waiting_) {
    receive("43/data," + std::to_string(answered_++) + R"([{"result":0}])");
  }
}

void Unconnected::open(const Endpoint& /*endpoint*/, const std::string& /*target*/,
                       const TransportOptions& /*options*/, std::weak_ptr<Listener> listener) {
  listener_ = std::move(listener);
  answered_ = 0;
  waiting_ = 0;
}

void Unconnected::send(Frame frame) {
  lastFrame = frame.view();
  if (lastFrame.starts_with("42")) ++waiting_;
}
