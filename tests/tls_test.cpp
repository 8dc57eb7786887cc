#include <dlfcn.h>
#include <netdb.h>

#include <boost/algorithm/string.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

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

/// Makes `name`.key and `name`.pem, with an extension and signed by an authority or itself, as
/// more of openssl's arguments say.
void certify(const std::string& name, const std::string& subject, const std::string& extension,
             const std::string& issuer, const std::string& more = {}) {
  const auto signer = issuer == "itself" ? " -signkey " + name + ".key"
                                         : " -CA " + issuer + ".pem -CAkey " + issuer + ".key";
  const std::string request = "openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";
  const auto command = "(" + request + "-subj /CN=" + subject + " -addext " + extension +
                       " -out request -keyout " + name + ".key && openssl x509 -req -in request " +
                       "-copy_extensions copy -out " + name + ".pem" + signer + more + ") 2>log";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

/// In a folder with the authorities "trusted", by the system, and "unknown".
class Tls : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    fs::create_directory(folder);
    fs::current_path(folder);
    setenv("OPENSSL_CONF", KORIVA_TEST_DATA "/openssl.cnf", 1);
    setenv("SSL_CERT_FILE", "trusted.pem", 1);
    for (const std::string name : {"trusted", "unknown"}) {
      certify(name, name, "basicConstraints=critical,CA:TRUE", "itself");
    }
  }
  static void TearDownTestSuite() { fs::remove_all(folder); }

  std::string urlOf(const std::string& host) const {
    return "https://" + host + server.url().substr(server.url().rfind(':'));
  }

  static inline const fs::path folder =
      fs::path(testing::TempDir()) / ("koriva-tls-" + std::to_string(getpid()));
  Server server{R"({"tls":true})"};
};

std::string textOf(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator(stream), {}};
}

std::string pinOf(const std::string& name) {
  const auto command = "openssl x509 -noout -pubkey -in " + name +
                       ".pem | openssl pkey -pubin -outform der | "
                       "openssl dgst -sha256 -binary | openssl base64 >pin";
  EXPECT_EQ(std::system(command.c_str()), 0);
  return boost::trim_copy(textOf("pin"));
}

void set(KRConnectionOptions& options, Server& server, const std::string& what,
         const std::string& name) {
  const auto useProxy = [&] {
    const auto port = server.tell(R"({"do":"proxy","kind":")" + name + R"(","login":""})");
    const std::string scheme = name == "http" ? "http" : "socks5h";
    options.setProxy(scheme + "://localhost:" + json::serialize(port));
  };
  const auto pem = name + ".pem";
  const auto key = name + ".key";
  const std::map<std::string, std::function<void()>> setters{
      {"proxy", useProxy},
      {"authority", [&] { options.addAuthorities("so called:\n" + textOf(pem)); }},
      {"file", [&] { options.addAuthoritiesFile(pem); }},
      {"only", [&] { options.setSystemTrusted(false); }},
      {"pin", [&] { options.addPin(pinOf(name)); }},
      {"identity", [&] { options.setClientCertificate(textOf(pem), textOf(key)); }},
      {"files", [&] { options.setClientCertificateFiles(pem, key); }}};
  named(setters, what)();
}

TEST_F(Tls, OnlyAVerifiedServerHearsAnything) {
  attached(), KRRunLoop::main();
  if (canRunOut) {
    const TakenDescriptors taken;
    for (const auto& url : {urlOf("localhost"), std::string("http://127.0.0.1:9")}) {
      const Attempt attempt(url);
      EXPECT_TRUE(runUntil([&] { return attempt.isOver(); }));
      EXPECT_THAT(attempt.heard->errors, testing::HasSubstr("Too many open files"));
    }
  }
  koriva::timing().limits = patient;
  koriva::timing().reconnectInterval = 1h;
  certify("own", "own", "keyUsage=digitalSignature", "unknown");
  const auto check = [&](const Row& row) {
    std::istringstream heading(row.name);
    std::string host, newest;
    heading >> host >> newest;
    std::istringstream certificate(row.input);
    std::string extension, issuer, more;
    std::getline(certificate >> extension >> issuer, more);
    certify("shown", "localhost", extension, issuer, more);
    KRConnectionOptions options;
    for (std::string what, name; heading >> what >> name;) set(options, server, what, name);
    server.tell(R"({"do":"forget"})");
    server.tell(R"({"do":"certify","name":"shown","newest":")" + newest + "\"}");
    KorivaSDK::setShared(nullptr);
    const auto sdk = KorivaSDK::shared();
    EXPECT_TRUE(sdk->setConnectionOptions(options));
    sdk->setBaseUrl(urlOf(host));
    sdk->login("token", 1001, "device", false);
    using Phase = KRConnectionState::Phase;
    EXPECT_TRUE(runUntil([&] { return sdk->connectionState().phase() != Phase::connecting; }));
    const auto state = sdk->connectionState();
    const auto clients = server.reports("client");
    const bool isConnected = state.phase() == Phase::connected;
    EXPECT_EQ(state.cause(), isConnected ? KRConnectionCause::none : KRConnectionCause::tls);
    EXPECT_EQ(server.reports("url").size(), isConnected ? 1U : 0U);
    const auto named = boost::trim_right_copy_if(host, boost::is_any_of("."));
    const json::value name = host == "127.0.0.1" ? json::value(false) : json::value(named);
    EXPECT_EQ(server.reports("name"), isConnected ? json::array{name} : json::array{});
    const auto seen = isConnected ? "trusted by " + json::serialize(clients.at(0)) : state.reason();
    EXPECT_THAT(seen, testing::HasSubstr(row.output));
    if (!isConnected || newest != "TLSv1.2") return;
    server.tell(R"({"do":"renegotiate"})");
    EXPECT_TRUE(runUntil([&] { return !server.reports("renegotiation").empty(); }));
    EXPECT_EQ(server.reports("renegotiation"), json::array{"ERR_SSL_NO_RENEGOTIATION"});
  };
  for (const auto& row : readTable("tls.txt")) {
    SCOPED_TRACE(row.place);
    located(row.place, [&] { check(row); });
  }
  KorivaSDK::setShared(nullptr);
}

TEST_F(Tls, RefusesWhatItCannotShowOrTrust) {
  EXPECT_EQ(std::system("openssl pkey -in trusted.key -aes128 -passout pass:x -out locked.key"), 0);
  const auto sdk = KorivaSDK::shared();
  const auto whole = textOf("trusted.pem");
  const auto key = textOf("trusted.key");
  using Options = KRConnectionOptions;
  EXPECT_TRUE(sdk->setConnectionOptions(Options().setClientCertificate(whole + key, key)));
  for (const auto& options :
       {Options().setClientCertificate(whole, textOf("unknown.key")),
        Options().setClientCertificate(whole, textOf("locked.key")),
        Options().setClientCertificate(whole, ""), Options().setClientCertificate("", key),
        Options().setClientCertificateFiles("trusted.pem", "nothing.key"),
        Options().addAuthorities(whole + whole.substr(0, whole.size() / 2)),
        Options().addAuthorities(whole).addAuthorities("")}) {
    EXPECT_FALSE(sdk->setConnectionOptions(options));
  }
}

}  // namespace
