#include "socketio/Endpoint.h"

#include <boost/url/encode.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <charconv>
#include <cstdint>

namespace koriva::socketio {

std::optional<Endpoint> Endpoint::parse(std::string_view url) {
  namespace urls = boost::urls;
  const auto parsed = urls::parse_uri(url);
  if (!parsed) return std::nullopt;

  const auto scheme = parsed->scheme_id();
  const bool tls = scheme == urls::scheme::https || scheme == urls::scheme::wss;
  if (!tls && scheme != urls::scheme::http && scheme != urls::scheme::ws) return std::nullopt;

  const std::string host = parsed->host_address();
  if (host.empty()) return std::nullopt;
  const auto path = parsed->encoded_path();
  if (!path.empty() && path.front() != '/') return std::nullopt;  // a port that is no number
  const std::string port = parsed->port();
  if (port.empty()) return Endpoint{tls, host, tls ? "443" : "80"};
  std::uint16_t number = 0;
  const auto read = std::from_chars(port.data(), port.data() + port.size(), number);
  if (read.ec != std::errc() || number == 0) return std::nullopt;
  return Endpoint{tls, host, std::to_string(number)};
}

std::string Endpoint::authority() const {
  const std::string name = host.find(':') == std::string::npos ? host : "[" + host + "]";
  return port == (tls ? "443" : "80") ? name : name + ":" + port;
}

std::string requestTarget(const ConnectParameters& parameters) {
  std::string target = "/socket.io/?transport=websocket&EIO=4";
  for (const auto& [name, value] : parameters) {
    target += "&" + boost::urls::encode(name, boost::urls::unreserved_chars) + "=" +
              boost::urls::encode(value, boost::urls::unreserved_chars);
  }
  return target;
}

}  // namespace koriva::socketio
