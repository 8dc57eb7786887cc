#include "socketio/Proxy.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/url/pct_string_view.hpp>

#include "tests/support/Table.h"

namespace koriva::socketio {
namespace {

std::string escaped(const std::string& bytes) {
  constexpr auto digits = "0123456789abcdef";
  std::string text;
  for (const char c : boost::replace_all_copy(bytes, "\r\n", "\n")) {
    if (c == '\n' || (c >= ' ' && c <= '~')) {
      text += c;
    } else {
      text += {'%', digits[(c >> 4) & 15], digits[c & 15]};
    }
  }
  return text;
}

std::string parsed(const std::string& url) {
  const auto proxy = Proxy::parse(url);
  if (!proxy) return "none";
  return (proxy->isSocks ? "socks " : "http ") + proxy->host + " " + std::to_string(proxy->port) +
         (proxy->user.empty() ? "" : escaped(" " + proxy->user + " " + proxy->password));
}

/// What is asked of a proxy whose answers come byte by byte, and what comes of it.
std::string asked(const Proxy& proxy, const Endpoint& server, const std::string& answers) {
  ProxyHandshake handshake(proxy, server);
  auto text = escaped(handshake.question());
  for (const char byte : answers) {
    switch (handshake.hear({&byte, 1})) {
      case ProxyHandshake::Step::ask:
        text += "|" + escaped(handshake.question());
        continue;
      case ProxyHandshake::Step::listen:
        continue;
      case ProxyHandshake::Step::done:
        return text + "|done";
      case ProxyHandshake::Step::failed:
        return handshake.problem();
    }
  }
  return "listens";
}

TEST(Proxy, IsAskedForTheWay) {
  for (const auto& row : test::readTable("proxies.txt")) {
    SCOPED_TRACE(row.place);
    if (row.name == "a proxy") {
      EXPECT_EQ(parsed(row.input), row.output);
      continue;
    }
    const auto space = row.name.find(' ');
    const auto bytes = boost::replace_all_copy(row.input, "\n", "\r\n");
    EXPECT_EQ(asked(Proxy::parse(row.name.substr(0, space)).value(),
                    Endpoint::parse(row.name.substr(space + 1)).value(),
                    boost::urls::pct_string_view(bytes).decode()),
              row.output);
  }
}

TEST(Proxy, SaysNoMoreAndNoLessThanItShould) {
  const auto server = *Endpoint::parse("http://chat.test");
  using Step = ProxyHandshake::Step;
  for (const std::string url : {"http://proxy.test", "socks5h://proxy.test"}) {
    const auto proxy = *Proxy::parse(url);
    const bool isSocks = proxy.isSocks;
    const std::string rest = isSocks ? std::string("\5\0\0\1\0\0\0\0\0\0", 10) : "\r\n\r\n";
    const std::string start = isSocks ? std::string("\5\0", 2) : "HTTP/1.0 200 ";
    const auto onlyStart = isSocks ? Step::ask : Step::listen;
    ProxyHandshake whole(proxy, server);
    EXPECT_EQ(whole.hear(start), onlyStart);
    EXPECT_EQ(whole.hear(rest), Step::done);
    ProxyHandshake more(proxy, server);
    EXPECT_EQ(more.hear(start), onlyStart);
    EXPECT_EQ(more.hear(rest + "x"), Step::failed);
  }
  const auto socks = *Proxy::parse("socks5h://proxy.test");
  const auto longNamed = *Endpoint::parse("http://" + std::string(256, 'a'));
  ProxyHandshake tooLong(socks, longNamed);
  EXPECT_EQ(tooLong.hear(std::string("\5\0", 2)), Step::failed);
  const auto http = *Proxy::parse("http://proxy.test");
  ProxyHandshake endless(http, server);
  auto step = endless.hear("HTTP/1.1 200 OK\r\n");
  int heard = 0;
  for (; step == Step::listen && heard < 100; ++heard) step = endless.hear(std::string(1000, 'x'));
  EXPECT_EQ(step, Step::failed);
  EXPECT_LT(heard, 20);
}

}  // namespace
}  // namespace koriva::socketio
