#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace koriva::socketio {

/// What a URL says of whom it names. The host is an address, or a name of letters, digits, `-`, `_`
/// and single dots, as it stands there: nothing of it is decoded. An IPv6 address is without
/// brackets.
struct UrlParts {
  std::string scheme;  ///< in lower case
  std::string user;    ///< decoded, as the password
  std::string password;
  std::string host;
  std::uint16_t port = 0;  ///< 0: it has none
};

/// Nothing for what is no URL, or has no such host.
std::optional<UrlParts> parseUrl(std::string_view url);

/// The server that a URL names. Nobody but `parse` makes one, and it is never moved from: its host
/// is never empty, and has nothing in it but what hosts are made of.
class Endpoint {
 public:
  /// Reads an http, https, ws or wss URL; nothing for any other text.
  static std::optional<Endpoint> parse(std::string_view url);

  Endpoint(const Endpoint&) = default;
  Endpoint& operator=(const Endpoint&) = default;

  [[nodiscard]] bool tls() const { return tls_; }
  [[nodiscard]] const std::string& host() const { return host_; }
  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// The host as certificates have it, without the dot of the root. Not empty either.
  [[nodiscard]] std::string certifiedName() const;
  /// As URLs have it, always with the port.
  [[nodiscard]] std::string hostAndPort() const;
  /// The value of the Host header: without a port that goes without saying.
  [[nodiscard]] std::string authority() const;

 private:
  Endpoint(bool tls, std::string_view host, std::uint16_t port)
      : tls_(tls), host_(host), port_(port) {}

  [[nodiscard]] std::string bracketedHost() const;

  bool tls_;
  std::string host_;
  std::uint16_t port_;
};

using ConnectParameters = std::vector<std::pair<std::string, std::string>>;

/// As values stand in a request: every reserved character encoded.
std::string percentEncoded(std::string_view text);

/// The path and query of the Engine.IO request.
std::string requestTarget(const ConnectParameters& parameters);

}  // namespace koriva::socketio
