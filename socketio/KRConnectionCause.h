#pragma once

#include <cstdint>

/// Why there is no connection. More may be added: treat one that you do not know as `lost`.
enum class KRConnectionCause : std::int64_t {
  none,         ///< nothing has ended
  local,        ///< ended here: asked for, or the system had too little memory or descriptors
  nameLookup,   ///< the host's name could not be resolved
  unreachable,  ///< no connection to the host and its port, or the device is offline
  proxy,        ///< the proxy could not be reached, or did not let the connection through
  tls,          ///< no TLS with the server, or its certificate was refused
  http,         ///< no chat server is there: it answered something else, or broke off
  refused,      ///< the chat server refused the session
  timeout,      ///< the attempt took too long
  lost,         ///< a connection broke off, or nothing was heard on it for too long
  server,       ///< the server ended the connection
};
