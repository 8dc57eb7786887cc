#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <queue>
#include <set>
#include <stdexcept>
#include <string>

/// One of the two users of the tour. What a user does and what it notices are lines of the
/// transcript, and a step has succeeded when its lines have come. The user of the other process
/// has no client here, and its steps are skipped: what comes of them shows at the user of this one.
class User : public KorivaDelegate, public std::enable_shared_from_this<User> {
 public:
  User(std::int64_t number, bool isInThisProcess);

  bool isHere() const { return client != nullptr; }

  void logIn(const std::string& url);

  /// Writes down what this user does, and does it.
  void does(const std::string& line, const std::function<void()>& action = {}) const;

  /// Waits until this user has noticed this; throws when that takes too long.
  void notices(const std::string& line);

  /// Waits for the next message and marks it as seen; throws when it holds something else.
  /// Contents that only their sender knows are empty here.
  KRMessage receives(const std::string& contents);

  /// Throws when this user has noticed what no step of the tour has waited for.
  void noticesNoMore() const;

  /// Writes down what this user does, makes the request, and waits for its value; throws when
  /// there is none.
  template <class T>
  T asks(const std::string& line, const std::function<void(KRCompletion<T>)>& request) {
    does(line);
    return answerTo<T>(line, request);
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
  const std::string name;                   ///< the uin as text
  const std::shared_ptr<KorivaSDK> client;  ///< null in the process of the other user

  std::string callID;        ///< the call that this user was called with
  std::string secretChatID;  ///< the secret chat that this user was asked into

 private:
  template <class T>
  T answerTo(const std::string& line, const std::function<void(KRCompletion<T>)>& request) const {
    if (!isHere()) return {};
    const auto answer = std::make_shared<std::optional<KRResult<T>>>();
    request([answer](const KRResult<T>& result) {
      *answer = result;
      KRRunLoop::main().stop();
    });
    waitUntil([&] { return answer->has_value(); }, "an answer: " + line);
    if (!**answer) throw std::runtime_error(name + ' ' + line + ": " + reasonOf(**answer));
    return (*answer)->value();
  }

  template <class T>
  static std::string reasonOf(const KRResult<T>& failure) {
    return failure.error().localizedDescription();
  }

  void notes(const std::string& line);
  void waitUntil(const std::function<bool()>& isDone, const std::string& what) const;

  std::multiset<std::string> noticed_;
  std::queue<KRMessage> received_;
  bool isConnected_ = false;
};

/// Adds to the transcript, in one write; continuation lines are indented.
void writeDown(const std::string& name, const std::string& text);

/// The contents of a message, in words.
std::string contentsOf(const KRMessage& message);
