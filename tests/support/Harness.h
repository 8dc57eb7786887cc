#pragma once

#include <gmock/gmock.h>

#include <array>
#include <boost/algorithm/string/erase.hpp>
#include <iostream>
#include <optional>

#include "KorivaSDK/RequestChannel.h"
#include "socketio/Platform.h"
#include "tests/support/Peer.h"

namespace koriva::test {

inline void printLine(const std::string& line) { platform::writeLine(line); }

/// Catches standard output, failures included, and shows it after all when the test fails.
struct Console {
  Console() { ::testing::internal::CaptureStdout(); }
  ~Console() {
    all += ::testing::internal::GetCapturedStdout();
    if (::testing::Test::HasFailure()) std::cout << all;
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
    all += ::testing::internal::GetCapturedStdout();
    ::testing::internal::CaptureStdout();
  }
};

/// What a table says of the console.
inline std::string lines(const std::string& told) { return told == "nothing" ? "" : told + "\n"; }

inline std::string text(const std::string& value) { return value; }
inline std::string text(bool value) { return value ? "true" : "false"; }
std::string text(const auto& value) {
  std::string out;
  koriva::json::appendValue(out, value);
  return out;
}

inline std::string nameOf(KRConnectionCause cause) {
  constexpr std::array names{"none", "local",   "nameLookup", "unreachable", "proxy", "tls",
                             "http", "refused", "timeout",    "lost",        "server"};
  return names.at(static_cast<std::size_t>(cause));
}

/// Such as "waiting 2, lost: the reason, next in 10000".
inline std::string text(const KRConnectionState& state) {
  using namespace std::chrono;
  constexpr std::array phases{"idle", "connecting", "connected", "waiting"};
  auto said =
      phases.at(static_cast<std::size_t>(state.phase())) + (" " + std::to_string(state.attempt()));
  if (state.cause() != KRConnectionCause::none) {
    said += ", " + nameOf(state.cause()) + ": " + state.reason();
  }
  if (const auto next = state.nextAttempt()) {
    const auto left = duration_cast<milliseconds>(*next - environment().clock()->now());
    said += ", next in " + std::to_string(left.count());
  }
  return said;
}

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
  void connectionDidChange(const KRConnectionState& state) override {
    if (isWatching) tell("is", text(state));
  }

  void tell(const std::string& call, const std::string& record = {}) {
    printLine(name + " " + call + (record.empty() ? "" : " ") + record);
    if (act) std::exchange(act, {})();
  }

  std::string name;
  bool isWatching = false;
  std::function<void()> act;
};

/// A fresh client before its login, and a server for it.
class ServerTest : public ::testing::Test {
 protected:
  explicit ServerTest(std::unique_ptr<Peer> server = makePeer()) : peer(std::move(server)) {
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
    EXPECT_TRUE(sdk->setBaseUrl(peer->url()));
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
  bool awaitConnection() { return peer->await(std::bind_front(&KorivaSDK::isConnected, sdk)); }
  /// What is printed up to and including the text, which has to come.
  std::string printedTo(const std::string& text) {
    std::optional<std::string> printed;
    EXPECT_TRUE(peer->await([&] { return (printed = console.takeTo(text)).has_value(); })) << text;
    return printed.value_or("");
  }
  /// The text of the runtime error that the run loop throws.
  std::string awaitThrown() {
    try {
      return peer->await([] { return false; }) ? "" : "nothing";
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }
  /// Waits for everything that the server sends because of what came before, and gives what is
  /// printed until then.
  std::string settle() {
    const std::string end = "settled: Success\n";
    sdk->deleteGroup("sentinel", Done{"settled"});
    return boost::erase_last_copy(printedTo(end), end);
  }

  const std::unique_ptr<Peer> peer;
  Console console;
  std::shared_ptr<KorivaSDK> sdk;
};

}  // namespace koriva::test
