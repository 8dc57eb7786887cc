#include <cstdlib>
#include <filesystem>

#include "tests/support/Attempt.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

namespace fs = std::filesystem;

/// Makes `name`.key and `name`.pem, for `extension` and signed as openssl's `arguments` say.
void certify(const std::string& name, const std::string& extension, const std::string& arguments) {
  const auto command =
      "(openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -out request "
      "-subj /CN=koriva -addext " +
      extension + " -keyout " + name +
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
    certify(name, "basicConstraints=critical,CA:TRUE", "-signkey " + name + ".key");
  }
  Server server(R"({"tls":true})");
  server.answer("ask", R"([{"result":0}])");
  const auto check = [&](const Row& row) {
    const auto host = row.name.substr(0, row.name.find(' '));
    const auto newest = row.name.substr(host.size() + 1);
    const auto arguments = row.input.find(' ');
    certify("shown", "subjectAltName=" + row.input.substr(0, arguments),
            row.input.substr(arguments));
    server.tell(R"({"do":"forget"})");
    server.tell(R"({"do":"certify","name":"shown","newest":")" + newest + "\"}");
    const Attempt attempt("https://" + host + server.url().substr(server.url().rfind(':')));
    EXPECT_TRUE(runUntil([&] { return attempt.isOver(); }));
    const auto& errors = attempt.heard->errors;
    EXPECT_THAT(errors.empty() ? "trusted" : errors, testing::HasSubstr(row.output));
    const bool named = host == "localhost";
    EXPECT_EQ(server.reports("name"),
              errors.empty() ? json::array{named ? json::value(host) : false} : json::array{});
    EXPECT_EQ(server.reports("url").size(), errors.empty() ? 1U : 0U);
  };
  for (const auto& row : readTable("tls.txt")) {
    SCOPED_TRACE(row.place);
    located(row.place, [&] { check(row); });
  }
  fs::remove_all(folder);
}

}  // namespace
