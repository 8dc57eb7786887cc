#pragma once

#include <memory>
#include <string>

#include "socketio/Socket.h"

namespace koriva::socketio {

/// A connection to be made to one server, and the socket of its namespace. Destroying it closes
/// the connection in the background and silences the socket.
class Manager {
 public:
  struct Options {
    std::string nsp = "/";
    ConnectParameters connectParameters;
    Limits limits;
  };

  /// `environment` outlives every connection made on it.
  Manager(const Environment& environment, const Endpoint& endpoint, Options options);
  ~Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  [[nodiscard]] const std::shared_ptr<Socket>& socket() const { return socket_; }

  /// Asks the socket to connect, after the delay. No handler runs before this returns.
  void connect(Duration delay = {});

 private:
  Endpoint endpoint_;
  ConnectParameters parameters_;
  std::shared_ptr<Socket> socket_;
};

}  // namespace koriva::socketio
