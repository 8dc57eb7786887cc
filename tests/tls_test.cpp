#include <dlfcn.h>
#include <netdb.h>

#include <boost/algorithm/string.hpp>
#include <cstdlib>
#include <filesystem>

#include "tests/support/Attempt.h"
#include "tests/support/Table.h"

using namespace koriva::test;

// Every name, with the root's dot too, is this machine's.
extern "C" int getaddrinfo(const char*, const char* port, const addrinfo* hints, addrinfo** found) {
  static const auto real =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return real("127.0.0.1", port, hints, found);
}

namespace {

namespace fs = std::filesystem;

/// Makes `name`.key and `name`.pem, with an extension and signed as openssl's `arguments` say.
void certify(const std::string& name, const std::string& subject, const std::string& extension,
             const std::string& arguments) {
  const auto command =
      "(openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -out request "
      "-subj /CN=" +
      subject + " -addext " + extension + " -keyout " + name +
      ".key && "
      "openssl x509 -req -in request -copy_extensions copy -out " +
      name + ".pem " + arguments + ") 2>log";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

TEST(Tls, OnlyAVerifiedServerHearsAnything) {
  const auto folder = fs::path(testing::TempDir()) / ("koriva-tls-" + std::to_string(getpid()));
  fs::create_directory(folder);
  fs::current_path(folder);
  setenv("OPENSSL_CONF", KORIVA_TEST_DATA "/openssl.cnf", 1);
  setenv("SSL_CERT_FILE", "trusted.pem", 1);
  for (const std::string name : {"trusted", "unknown"}) {
    certify(name, name, "basicConstraints=critical,CA:TRUE", "-signkey " + name + ".key");
  }
  Server server(R"({"tls":true})");
  server.answer("ask", R"([{"result":0}])");
  const auto urlOf = [&](const std::string& host) {
    return "https://" + host + server.url().substr(server.url().rfind(':'));
  };
  attached(), KRRunLoop::main();
  if (canRunOut) {
    const TakenDescriptors taken;
    for (const auto& url : {urlOf("localhost"), std::string("http://127.0.0.1:9")}) {
      const Attempt attempt(url);
      EXPECT_TRUE(runUntil([&] { return attempt.isOver(); }));
      EXPECT_THAT(attempt.heard->errors, testing::HasSubstr("Too many open files"));
    }
  }
  const auto check = [&](const Row& row) {
    const auto host = row.name.substr(0, row.name.find(' '));
    const auto newest = row.name.substr(host.size() + 1);
    const auto arguments = row.input.find(' ');
    certify("shown", "localhost", row.input.substr(0, arguments), row.input.substr(arguments));
    server.tell(R"({"do":"forget"})");
    server.tell(R"({"do":"certify","name":"shown","newest":")" + newest + "\"}");
    const Attempt attempt(urlOf(host));
    EXPECT_TRUE(runUntil([&] { return attempt.isOver(); }));
    const auto& errors = attempt.heard->errors;
    EXPECT_THAT(errors.empty() ? "trusted" : errors, testing::HasSubstr(row.output));
    EXPECT_EQ(server.reports("url").size(), errors.empty() ? 1U : 0U);
    const auto named = boost::trim_right_copy_if(host, boost::is_any_of("."));
    const json::value name = host == "127.0.0.1" ? json::value(false) : json::value(named);
    EXPECT_EQ(server.reports("name"), errors.empty() ? json::array{name} : json::array{});
    if (!errors.empty() || newest != "TLSv1.2") return;
    server.tell(R"({"do":"renegotiate"})");
    EXPECT_TRUE(runUntil([&] { return !server.reports("renegotiation").empty(); }));
    EXPECT_EQ(server.reports("renegotiation"), json::array{"ERR_SSL_NO_RENEGOTIATION"});
  };
  for (const auto& row : readTable("tls.txt")) {
    SCOPED_TRACE(row.place);
    located(row.place, [&] { check(row); });
  }
  fs::remove_all(folder);
}

}  // namespace
