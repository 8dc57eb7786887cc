#include "socketio/Proxy.h"

#include <algorithm>
#include <array>
#include <boost/asio/ip/address.hpp>
#include <utility>

#include "socketio/Base64.h"

namespace koriva::socketio {
namespace {

using Step = ProxyHandshake::Step;
using namespace std::string_literals;

constexpr std::size_t maxAnswerBytes = 8192;
constexpr std::size_t maxSocksText = 255;

char byteOf(std::size_t number) { return static_cast<char>(number & 0xff); }

/// A text of SOCKS 5: behind its length.
std::string counted(const std::string& text) { return byteOf(text.size()) + text; }

std::string textOf(const auto& bytes) { return {bytes.begin(), bytes.end()}; }

std::string connectRequest(const Proxy& proxy, const Endpoint& server) {
  const auto authority = server.hostAndPort();
  auto request = "CONNECT " + authority + " HTTP/1.1\r\nHost: " + authority + "\r\n";
  if (!proxy.user.empty()) {
    request += "Proxy-Authorization: Basic " + base64(proxy.user + ":" + proxy.password) + "\r\n";
  }
  return request + "\r\n";
}

/// The status code of a whole answer over HTTP; empty if it has none.
std::string_view statusOf(std::string_view answer) {
  const auto code = answer.substr(9, 3);
  const bool isCode =
      answer[8] == ' ' && std::ranges::all_of(code, [](char c) { return c >= '0' && c <= '9'; });
  return isCode ? code : std::string_view();
}

/// The address of a SOCKS 5 request. Names are left to the proxy.
std::string socksAddress(const std::string& host) {
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(host, error);
  if (error) return "\x03" + counted(host);
  if (address.is_v4()) return "\x01" + textOf(address.to_v4().to_bytes());
  return "\x04" + textOf(address.to_v6().to_bytes());
}

/// Of an address of this type, of which that is the first byte; 0 for types that are none.
std::size_t addressSize(char type, char first) {
  switch (type) {
    case 1:
      return 4;
    case 3:
      return 1U + static_cast<unsigned char>(first);
    case 4:
      return 16;
    default:
      return 0;
  }
}

std::string socksRefusal(char code) {
  static constexpr std::array reasons{
      "general failure",    "not allowed",       "network unreachable",   "host unreachable",
      "connection refused", "time to live over", "command not supported", "address not supported"};
  const auto number = static_cast<unsigned char>(code);
  return number <= reasons.size() ? reasons[number - 1U] : "code " + std::to_string(number);
}

}  // namespace

std::optional<Proxy> Proxy::parse(std::string_view url) {
  const auto parts = parseUrl(url);
  if (!parts) return std::nullopt;
  const bool isSocks = parts->scheme == "socks5h";
  if (!isSocks && parts->scheme != "http") return std::nullopt;
  const auto& user = parts->user;
  const auto& password = parts->password;
  if (user.empty() && !password.empty()) return std::nullopt;
  if (user.size() > maxSocksText || password.size() > maxSocksText) return std::nullopt;
  if (!isSocks && user.find(':') != user.npos) return std::nullopt;  // it would end there
  const std::uint16_t usual = isSocks ? 1080 : 80;
  const auto port = parts->port != 0 ? parts->port : usual;
  return Proxy{isSocks, parts->host, port, user, password};
}

ProxyHandshake::ProxyHandshake(const Proxy& proxy, const Endpoint& server)
    : proxy_(proxy), server_(server) {
  if (!proxy.isSocks) {
    question_ = connectRequest(proxy, server);
  } else {
    question_ = proxy.user.empty() ? "\x05\x01\x00"s : "\x05\x02\x00\x02"s;
  }
}

Step ProxyHandshake::hear(std::string_view bytes) {
  const auto before = answer_.size();
  answer_ += bytes;
  return proxy_.isSocks ? (this->*hearSocks_)() : hearHttp(before);
}

Step ProxyHandshake::hearHttp(std::size_t before) {
  constexpr std::string_view version = "HTTP/1.";
  const std::string_view answer = answer_;
  if (!version.starts_with(answer.substr(0, version.size()))) return failAtNonsense();
  const auto end = answer.find("\r\n\r\n", before - std::min<std::size_t>(before, 3));
  if (end == answer.npos) return answer.size() < maxAnswerBytes ? Step::listen : failAtNonsense();
  const auto status = statusOf(answer);
  if (status.empty()) return failAtNonsense();
  if (!status.starts_with('2')) return fail("the proxy answered HTTP " + std::string(status));
  return end + 4 == answer.size() ? Step::done : failAtNonsense();
}

Step ProxyHandshake::hearMethod() {
  if (answer_.size() < 2) return Step::listen;
  if (answer_.size() > 2 || answer_[0] != 5) return failAtNonsense();
  if (answer_[1] == 0) return askWay();
  if (answer_[1] != 2 || proxy_.user.empty()) return fail("the proxy wants another authentication");
  return ask("\x01" + counted(proxy_.user) + counted(proxy_.password), &ProxyHandshake::hearLogin);
}

Step ProxyHandshake::hearLogin() {
  if (answer_.size() < 2) return Step::listen;
  if (answer_.size() > 2) return failAtNonsense();
  return answer_[1] == 0 ? askWay() : fail("the proxy refused the user or the password");
}

Step ProxyHandshake::askWay() {
  const auto& host = server_.host();
  if (host.size() > maxSocksText) return fail("the server's name is too long for the proxy");
  const auto port = server_.port();
  return ask("\x05\x01\x00"s + socksAddress(host) + byteOf(port >> 8U) + byteOf(port),
             &ProxyHandshake::hearWay);
}

Step ProxyHandshake::hearWay() {
  if (answer_.size() < 2) return Step::listen;
  if (answer_[0] != 5) return failAtNonsense();
  if (answer_[1] != 0) return fail("the proxy refused the connection: " + socksRefusal(answer_[1]));
  if (answer_.size() < 5) return Step::listen;
  const auto size = addressSize(answer_[3], answer_[4]);
  if (size == 0) return failAtNonsense();
  if (answer_.size() < 6 + size) return Step::listen;
  return answer_.size() == 6 + size ? Step::done : failAtNonsense();
}

Step ProxyHandshake::ask(std::string question, Step (ProxyHandshake::*next)()) {
  answer_.clear();
  question_ = std::move(question);
  hearSocks_ = next;
  return Step::ask;
}

Step ProxyHandshake::fail(std::string problem) {
  problem_ = std::move(problem);
  return Step::failed;
}

Step ProxyHandshake::failAtNonsense() { return fail("the proxy's answer makes no sense"); }

}  // namespace koriva::socketio
