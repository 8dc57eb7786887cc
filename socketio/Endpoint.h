#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace koriva::socketio {

/// The server that a URL names.
struct Endpoint {
  bool tls = false;
  std::string host;  ///< name or address, an IPv6 address without brackets
  std::string port;

  /// Reads an http, https, ws or wss URL; nothing for any other text.
  static std::optional<Endpoint> parse(std::string_view url);

  /// The value of the Host header.
  [[nodiscard]] std::string authority() const;
};

using ConnectParameters = std::vector<std::pair<std::string, std::string>>;

/// The path and query of the Engine.IO request, every reserved character encoded.
std::string requestTarget(const ConnectParameters& parameters);

}  // namespace koriva::socketio
