#pragma once

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/algorithm/string/erase.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/json.hpp>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <optional>
#include <semaphore>
#include <stdexcept>

#include "KorivaSDK/RequestChannel.h"
#include "KorivaSDK/State.h"

namespace koriva::test {

namespace json = boost::json;
using namespace std::chrono_literals;
using koriva::printLine;

/// What has to come may take so long, on the slowest of machines.
inline constexpr auto patience = 60s;

/// Limits that no test meets by being slow, and no wait between attempts.
inline constexpr socketio::Limits patient{.connect = 1h, .acknowledgement = 1h, .redial = 0ms};

inline std::counting_semaphore<> wakeUps(0);

/// Gives the network a thread of its own when KORIVA_TEST_ATTACHED is set.
inline bool attached() {
  static const bool done = std::getenv("KORIVA_TEST_ATTACHED") != nullptr &&
                           KRRunLoop::main().attach([] { wakeUps.release(); });
  return done;
}

/// Drives the run loop for a moment. When attached, polls only after a wake-up.
inline void drive() {
  if (!attached()) return KRRunLoop::main().runFor(2ms);
  if (wakeUps.try_acquire_for(2ms)) KRRunLoop::main().poll();
}

/// Drives the run loop until the condition holds; false when it never does.
[[nodiscard]] bool runUntil(const auto& condition) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (; !condition(); drive()) {
    if (std::chrono::steady_clock::now() > end) return false;
  }
  return true;
}

/// The text of the runtime error that the run loop throws.
inline std::string awaitThrown() {
  try {
    return runUntil([] { return false; }) ? "" : "nothing";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

/// Catches standard output, failures included, and shows it after all when the test fails.
struct Console {
  Console() { testing::internal::CaptureStdout(); }
  ~Console() {
    all += testing::internal::GetCapturedStdout();
    if (testing::Test::HasFailure()) std::cout << all;
  }

  /// What was printed since the last taking, up to and including the text, if that has come.
  std::optional<std::string> takeTo(const std::string& text) {
    auto at = all.find(text, taken);
    if (at == all.npos) {
      read();
      at = all.find(text, taken);
    }
    if (at == all.npos) return std::nullopt;
    const auto from = std::exchange(taken, at + text.size());
    return all.substr(from, taken - from);
  }
  std::string take() {
    read();
    return all.substr(std::exchange(taken, all.size()));
  }

  std::string all;
  std::size_t taken = 0;

 private:
  void read() {
    all += testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
  }
};

/// What a table says of the console.
inline std::string lines(const std::string& told) { return told == "nothing" ? "" : told + "\n"; }

/// The scriptable server of server.mjs, in a process of its own.
class Server {
 public:
  explicit Server(const std::string& options = "{}") { start(options); }
  ~Server() { kill(); }

  std::string url() const { return "http://127.0.0.1:" + port_; }
  /// Its answer; throws when it cannot do what it is told.
  json::value tell(const std::string& command) {
    stream_ << command << std::endl;
    const auto said = json::parse(readLine());
    const auto* refusal = said.is_object() ? said.get_object().if_contains("refused") : nullptr;
    if (refusal) throw std::logic_error(json::value_to<std::string>(*refusal));
    return said;
  }
  void answer(const std::string& event, const std::string& items) {
    tell(R"({"do":"answer","event":")" + event + R"(","items":)" + items + "}");
  }
  void push(const std::string& event, const std::string& items) {
    tell(R"({"do":"push","items":[")" + event + (items.empty() ? "\"" : "\",") + items + "]}");
  }
  json::array reports(const std::string& of) {
    return tell(R"({"do":"reports","of":")" + of + "\"}").as_array();
  }
  void kill() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    waitpid(std::exchange(process_, 0), nullptr, 0);
    stream_.close();
  }
  void returnToLife() { start("{}"); }

 private:
  void start(const std::string& options) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[1], STDIN_FILENO);
      dup2(ends[1], STDOUT_FILENO);
      const char* other = std::getenv("KORIVA_OTHER_SERVER");
      execl(other ? other : KORIVA_TEST_SERVER, "server", options.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    stream_.socket().assign(boost::asio::local::stream_protocol(), ends[0]);
    port_ = readLine();
  }
  std::string readLine() {
    std::string line;
    if (!std::getline(stream_, line)) throw std::logic_error("the test server has ended");
    return line;
  }

  pid_t process_ = 0;
  boost::asio::local::stream_protocol::iostream stream_;
  std::string port_;
};

inline std::string text(const std::string& value) { return value; }
inline std::string text(bool value) { return value ? "true" : "false"; }
std::string text(const auto& record) { return KRJSONEncoder{}.encode(record); }

/// A completion of any type that prints its outcome; without a name, an empty one.
struct Done {
  std::string name = "done";

  template <class T>
  operator KRCompletion<T>() const {
    if (name.empty()) return {};
    return [name = name](const KRResult<T>& result) {
      EXPECT_EQ(result.error() == KRError::ok, result.isSuccess());
      const auto failure = "failure " + std::to_string(result.error().code());
      printLine(name + ": " + (result ? text(result.value()) : failure));
    };
  }
};

/// Prints every call, and may do something after the next.
struct Recorder : KorivaDelegate {
  explicit Recorder(std::string text) : name(std::move(text)) {}

  void didReceive(const KRMessage& message) override { tell("didReceive", text(message)); }
  void didConnect() override { tell("didConnect"); }
  void didDisconnect() override { tell("didDisconnect"); }
  void didReceiveGroupEvent(const KRGroupEvent& event) override {
    const auto* updated = event.kind.as<KRGroupEventKind::UpdateMessage>();
    const auto* deleted = event.kind.as<KRGroupEventKind::DeleteMessage>();
    tell("didReceiveGroupEvent", text(event) +
                                     (updated ? " updated " + text(updated->message) : "") +
                                     (deleted ? " deleted " + text(deleted->message) : ""));
  }
  void didUpdateUserStatus(const KRUserStatus& s) override { tell("didUpdateUserStatus", text(s)); }
  void didReceiveNewGroup(const KRConversation& c) override { tell("didReceiveNewGroup", text(c)); }
  void didUpdateGroup(const KRConversation& group) override {
    tell("didUpdateGroup", text(group) + text(group.addedUins) + text(group.unblockedUins));
  }
  void didDeleteGroup(const std::string& groupID) override { tell("didDeleteGroup", groupID); }
  void didReceiveError(KRError e) override { tell("didReceiveError", std::to_string(e.code())); }
  void didReceiveCall(const KRCallEvent& event) override { tell("didReceiveCall", text(event)); }
  void didDeleteConversation(const std::string& id) override { tell("didDeleteConversation", id); }
  void didStartSecretChat(const KRStartSecretChat& i) override { tell("didStart", text(i)); }
  void didAcceptSecretChat(const KRAcceptSecretChat& i) override { tell("didAccept", text(i)); }
  void didDeleteSecretChat(const KRDeleteSecretChat& i) override { tell("didDelete", text(i)); }
  void didBlockContact(const KRBlock& block) override { tell("didBlockContact", text(block)); }
  void didUnblockContact(const KRBlock& block) override { tell("didUnblockContact", text(block)); }

  void tell(const std::string& call, const std::string& record = {}) {
    printLine(name + " " + call + (record.empty() ? "" : " ") + record);
    if (act) std::exchange(act, {})();
  }

  std::string name;
  std::function<void()> act;
};

/// A fresh client before its login, and a server for it.
class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    timing().limits = patient;
    renewClient();
  }
  ~ServerTest() override {
    KorivaSDK::setShared(nullptr);
    timing() = {};
  }

  void renewClient() {
    attached();
    KorivaSDK::setShared(nullptr);
    sdk = KorivaSDK::shared();
    EXPECT_TRUE(sdk->setBaseUrl(server.url()));
  }
  std::shared_ptr<Recorder> addRecorder(const std::string& name) {
    const auto recorder = std::make_shared<Recorder>(name);
    sdk->addDelegate(recorder);
    return recorder;
  }
  void login(bool isNew = false) { sdk->login("token", 1001, "device", isNew); }
  void connect() {
    login();
    printedTo("KorivaSDK - socket connected\n");
    console.take();
  }
  bool awaitConnection() { return runUntil(std::bind_front(&KorivaSDK::isConnected, sdk)); }
  /// What is printed up to and including the text, which has to come.
  std::string printedTo(const std::string& text) {
    std::optional<std::string> printed;
    EXPECT_TRUE(runUntil([&] { return (printed = console.takeTo(text)).has_value(); })) << text;
    return printed.value_or("");
  }
  bool awaitReports(const std::string& of, std::size_t count) {
    return runUntil([&] { return server.reports(of).size() >= count; });
  }
  /// Takes what is printed of failures, which would grow without bounds, quoted in further ones.
  void forgetFailures() {
    if (HasFailure()) console.take();
  }
  /// Waits for everything that the server sends because of what came before, and gives what is
  /// printed until then.
  std::string settle() {
    const std::string end = "settled: Success\n";
    sdk->deleteGroup("sentinel", Done{"settled"});
    return boost::erase_last_copy(printedTo(end), end);
  }

  Server server;
  Console console;
  std::shared_ptr<KorivaSDK> sdk;
};

}  // namespace koriva::test
