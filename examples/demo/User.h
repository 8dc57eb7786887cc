#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <queue>
#include <stdexcept>
#include <string>

/// One of the two users of the tour, with a client of its own. What a user does and what it
/// notices are lines of the transcript, and a step has succeeded when its lines have come.
class User : public KorivaDelegate, public std::enable_shared_from_this<User> {
 public:
  static constexpr std::chrono::seconds kLimit{5};

  explicit User(std::int64_t number);

  void logIn(const std::string& url);

  /// Writes down what this user does.
  void does(const std::string& line) const;

  /// Waits for what this user notices next; throws when that is something else, or nothing within
  /// the limit.
  void notices(const std::string& line, std::chrono::seconds limit = kLimit);

  /// Writes down what this user does, makes the request, and waits for its value; throws when
  /// there is none.
  template <class T>
  T asks(const std::string& line, const std::function<void(KRCompletion<T>)>& request) {
    const auto answer = std::make_shared<std::optional<KRResult<T>>>();
    does(line);
    request([answer](const KRResult<T>& result) {
      *answer = result;
      KRRunLoop::main().stop();
    });
    waitUntil([&] { return answer->has_value(); }, "an answer: " + line, kLimit);
    if (!**answer) throw std::runtime_error(name + ' ' + line + ": " + reasonOf(**answer));
    return (*answer)->value();
  }

  void didConnect() override;
  void didDisconnect() override;
  void didReceive(const KRMessage& message) override;
  void didReceiveGroupEvent(const KRGroupEvent& event) override;
  void didReceiveCall(const KRCallEvent& event) override;
  void didUpdateUserStatus(const KRUserStatus& status) override;
  void didStartSecretChat(const KRStartSecretChat& info) override;
  void didAcceptSecretChat(const KRAcceptSecretChat& info) override;

  const std::int64_t uin;
  const std::string name;  ///< the uin as text
  const std::shared_ptr<KorivaSDK> client;

 private:
  template <class T>
  static std::string reasonOf(const KRResult<T>& failure) {
    return failure.error().localizedDescription();
  }

  void notes(const std::string& line);
  void waitUntil(const std::function<bool()>& isDone, const std::string& what,
                 std::chrono::seconds limit) const;

  std::queue<std::string> noticed_;
  bool isConnected_ = false;
};

/// The contents of a message, in words.
std::string contentsOf(const KRMessage& message);
