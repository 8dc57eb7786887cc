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

/// What is asked of a proxy, and what comes of its answers, which come as bars part them, or byte
/// by byte where there are none.
std::string asked(const Proxy& proxy, const Endpoint& server, const std::string& answers) {
  ProxyHandshake handshake(proxy, server);
  auto text = escaped(handshake.question());
  const bool hasBars = answers.find('|') != answers.npos;
  std::vector<std::string> parts;
  for (const char byte : answers) {
    if (parts.empty() || byte == '|' || !hasBars) parts.emplace_back();
    if (byte != '|') parts.back() += byte;
  }
  for (const auto& part : parts) {
    using Step = ProxyHandshake::Step;
    const auto step = handshake.hear(part);
    if (step == Step::ask) text += "|" + escaped(handshake.question());
    if (step == Step::done) return text + "|done";
    if (step == Step::failed) return handshake.problem();
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

TEST(Proxy, IsToldNoNameThatIsTooLong) {
  const auto server = Endpoint::parse("http://" + std::string(256, 'a'));
  const auto proxy = Proxy::parse("socks5h://proxy.test");
  ProxyHandshake handshake(*proxy, *server);
  EXPECT_EQ(handshake.hear(std::string("\5\0", 2)), ProxyHandshake::Step::failed);
}

}  // namespace
}  // namespace koriva::socketio
