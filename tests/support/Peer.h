#pragma once

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/json.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <semaphore>
#include <stdexcept>

#include "KorivaSDK/KRRunLoop.h"
#include "KorivaSDK/State.h"
#include "testing/KRTesting.h"

namespace koriva::test {

namespace json = boost::json;
using namespace std::chrono_literals;

/// What has to come may take so long, on the slowest of machines.
inline constexpr auto patience = 60s;

/// Limits that no test meets by being slow, and no wait between attempts.
inline constexpr socketio::Limits patient{.connect = 1h, .acknowledgement = 1h, .redial = 0ms};

inline std::counting_semaphore<> wakeUps(0);

/// Lives as long as the run loop may wake this one.
inline std::weak_ptr<void> attachment;

inline bool attach() {
  const auto life = std::make_shared<bool>();
  attachment = life;
  return KRRunLoop::main().attach([life] { wakeUps.release(); });
}

inline bool isToBeAttached() { return std::getenv("KORIVA_TEST_ATTACHED") != nullptr; }

/// Whether the network has a thread of its own; at first as it is to be.
inline bool attached() {
  [[maybe_unused]] static const bool first = isToBeAttached() && attach();
  return !attachment.expired();
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

/// The program to test against, in place of the server in memory; null if none is named.
inline const char* realServer() { return std::getenv("KORIVA_REAL_SERVER"); }

/// Real servers send nothing but JSON.
inline bool canSend(const std::string& list) {
  boost::system::error_code error;
  json::parse(list, error);
  return !realServer() || !error;
}

/// A server that does what tests tell it. Items are JSON arrays, in which {"$binary":"text"} stands
/// for bytes.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual std::string url() const = 0;
  virtual void answer(const std::string& event, const std::string& items) = 0;
  virtual void push(const std::string& event, const std::string& items) = 0;
  virtual void refuse(bool on) = 0;
  /// What has happened, of one kind, in order.
  virtual json::array reports(const std::string& of) = 0;
  virtual void forget() = 0;
  /// Drives the run loop until the condition holds; false when it never does.
  [[nodiscard]] virtual bool await(const std::function<bool()>& condition) = 0;
};

/// The scriptable server of server.mjs, or of the program that KORIVA_TEST_SERVER names, in a
/// process of its own.
class Server final : public Peer {
 public:
  explicit Server(const std::string& options = "{}") {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[1], STDIN_FILENO);
      dup2(ends[1], STDOUT_FILENO);
      const auto* program = realServer() ? realServer() : KORIVA_TEST_SERVER;
      execl(program, "server", options.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    stream_.socket().assign(boost::asio::local::stream_protocol(), ends[0]);
    port_ = readLine();
  }
  ~Server() override {
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }

  std::string url() const override { return "http://127.0.0.1:" + port_; }
  /// Its answer; throws when it cannot do what it is told.
  json::value tell(const std::string& command) {
    stream_ << command << std::endl;
    const auto said = json::parse(readLine());
    const auto* refusal = said.is_object() ? said.get_object().if_contains("refused") : nullptr;
    if (refusal) throw std::logic_error(json::value_to<std::string>(*refusal));
    return said;
  }
  void answer(const std::string& event, const std::string& items) override {
    tell(R"({"do":"answer","event":")" + event + R"(","items":)" + items + "}");
  }
  void push(const std::string& event, const std::string& items) override {
    tell(R"({"do":"push","items":[")" + event + (items.empty() ? "\"" : "\",") + items + "]}");
  }
  void refuse(bool on) override {
    tell(R"({"do":"refuse","on":)" + std::string(on ? "true}" : "false}"));
  }
  void forget() override { tell(R"({"do":"forget"})"); }
  json::array reports(const std::string& of) override {
    return tell(R"({"do":"reports","of":")" + of + "\"}").as_array();
  }
  bool await(const std::function<bool()>& condition) override { return runUntil(condition); }

 private:
  std::string readLine() {
    std::string line;
    if (!std::getline(stream_, line)) throw std::logic_error("the test server has ended");
    return line;
  }

  pid_t process_ = 0;
  boost::asio::local::stream_protocol::iostream stream_;
  std::string port_;
};

/// The server in memory. No time passes while it is waited for.
class MemoryServer final : public Peer {
 public:
  std::string url() const override { return "http://server.test"; }
  void answer(const std::string& event, const std::string& items) override {
    answers_[event] = items;
  }
  void push(const std::string& event, const std::string& items) override {
    send("42/data,", "[\"" + event + (items.empty() ? "\"" : "\",") + items + "]");
  }
  void refuse(bool on) override { on ? far.refuse("not authorized") : far.accept(); }
  json::array reports(const std::string& of) override {
    json::array all;
    for (const auto& login : far.logins()) {
      if (of == "url") all.emplace_back(login.target);
    }
    for (const auto& frame : far.frames()) {
      if (of == "disconnect" && frame == "41/data,")
        all.emplace_back("client namespace disconnect");
    }
    for (const auto& request : far.sent()) {
      if (of == "event") all.push_back({request.event, {request.payload}, request.id.has_value()});
    }
    return all;
  }
  void forget() override {
    far.forget();
    seen_ = 0;
  }
  bool await(const std::function<bool()>& condition) override {
    do {
      if (condition()) return true;
      far.run();
    } while (answerRequests());
    return condition();
  }

  koriva::testing::Server far;

 private:
  /// Answers what was sent since the last time.
  bool answerRequests() {
    const auto requests = far.sent();
    const auto from = std::exchange(seen_, requests.size());
    for (auto i = from; i < requests.size(); ++i) {
      const auto& request = requests[i];
      const auto* group = request.payload.if_contains("group_id");
      const auto answer = answers_.find(request.event);
      if (!request.id) continue;
      if (group && *group == "sentinel") {
        far.reply(request, {{"result", 0}});
      } else if (answer != answers_.end()) {
        send("43/data," + std::to_string(*request.id), answer->second);
      }
    }
    return from < requests.size();
  }

  /// Sends items as they are, unless something stands for something else.
  void send(std::string head, const std::string& items) {
    if (items.find("{\"$") == items.npos) return far.send(head + items);
    auto value = json::parse(items);
    std::vector<std::string> parts;
    extract(value, parts);
    if (!parts.empty()) {
      head[1] = head[1] == '2' ? '5' : '6';
      head.insert(2, std::to_string(parts.size()) + "-");
    }
    far.send(head + json::serialize(value));
    for (const auto& part : parts) far.sendBinary(part);
  }

  static void extract(json::value& value, std::vector<std::string>& parts) {
    if (auto* list = value.if_array()) {
      for (auto& item : *list) extract(item, parts);
    } else if (auto* object = value.if_object()) {
      if (const auto* bytes = object->if_contains("$binary")) {
        parts.emplace_back(bytes->as_string());
        value = {{"_placeholder", true}, {"num", parts.size() - 1}};
      } else {
        for (auto& member : *object) extract(member.value(), parts);
      }
    }
  }

  std::map<std::string, std::string> answers_;
  std::size_t seen_ = 0;
};

inline std::unique_ptr<Peer> makePeer() {
  if (realServer()) return std::make_unique<Server>();
  return std::make_unique<MemoryServer>();
}

}  // namespace koriva::test
