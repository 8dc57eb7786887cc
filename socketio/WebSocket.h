#pragma once

#include "socketio/Environment.h"

namespace koriva::socketio {

/// A WebSocket, over TLS where the endpoint asks for it: the server's certificate is verified
/// against the system's trust store and the host name, TLS 1.2 at least.
std::shared_ptr<Transport> makeWebSocket(const Environment& environment);

/// Sets OpenSSL up. Its clean-up at process exit comes after that of exit handlers registered
/// later, which may still use connections.
void prepareTls();

}  // namespace koriva::socketio
