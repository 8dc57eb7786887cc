#include "socketio/Endpoint.h"

#include <algorithm>
#include <boost/url/encode.hpp>
#include <boost/url/grammar/alnum_chars.hpp>
#include <boost/url/grammar/ci_string.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <charconv>

namespace koriva::socketio {
namespace {

namespace urls = boost::urls;

/// Labels with dots between, and perhaps the root's dot behind. A dot in front would stand for any
/// subdomain when a certificate is verified.
bool isName(std::string_view host) {
  const auto isAllowed = [](char c) {
    return urls::grammar::alnum_chars(c) || c == '-' || c == '_' || c == '.';
  };
  return std::all_of(host.begin(), host.end(), isAllowed) && !host.starts_with('.') &&
         host.find("..") == std::string_view::npos;
}

bool isHost(std::string_view host, urls::host_type type) {
  if (host.empty()) return false;
  if (type == urls::host_type::name) return isName(host);
  const bool hasZone = host.find('%') != std::string_view::npos;
  return type == urls::host_type::ipv4 || (type == urls::host_type::ipv6 && !hasZone);
}

}  // namespace

std::optional<UrlParts> parseUrl(std::string_view url) {
  const auto parsed = urls::parse_uri(url);
  if (!parsed) return std::nullopt;
  const std::string_view host = parsed->encoded_host_address();
  if (!isHost(host, parsed->host_type())) return std::nullopt;
  const auto path = parsed->encoded_path();
  if (!path.empty() && path.front() != '/') return std::nullopt;  // a port that is no number
  UrlParts parts{parsed->scheme(), parsed->user(), parsed->password(), std::string(host)};
  std::ranges::transform(parts.scheme, parts.scheme.begin(), urls::grammar::to_lower);
  const std::string_view port = parsed->port();
  if (port.empty()) return parts;
  const auto read = std::from_chars(port.data(), port.data() + port.size(), parts.port);
  if (read.ec != std::errc() || parts.port == 0) return std::nullopt;
  return parts;
}

std::optional<Endpoint> Endpoint::parse(std::string_view url) {
  const auto parts = parseUrl(url);
  if (!parts) return std::nullopt;
  const bool tls = parts->scheme == "https" || parts->scheme == "wss";
  if (!tls && parts->scheme != "http" && parts->scheme != "ws") return std::nullopt;
  const std::uint16_t usual = tls ? 443 : 80;
  return Endpoint(tls, parts->host, parts->port != 0 ? parts->port : usual);
}

std::string Endpoint::certifiedName() const {
  return host_.substr(0, host_.size() - (host_.ends_with('.') ? 1 : 0));
}

std::string Endpoint::bracketedHost() const {
  return host_.find(':') == std::string::npos ? host_ : "[" + host_ + "]";
}

std::string Endpoint::hostAndPort() const { return bracketedHost() + ":" + std::to_string(port_); }

std::string Endpoint::authority() const {
  return port_ == (tls_ ? 443 : 80) ? bracketedHost() : hostAndPort();
}

std::string percentEncoded(std::string_view text) {
  return urls::encode(text, urls::unreserved_chars);
}

std::string requestTarget(const ConnectParameters& parameters) {
  std::string target = "/socket.io/?transport=websocket&EIO=4";
  for (const auto& [name, value] : parameters) {
    target += "&" + percentEncoded(name) + "=" + percentEncoded(value);
  }
  return target;
}

}  // namespace koriva::socketio
