#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// Answers every text of others with the same text, until its session ends.
class EchoBot : public KorivaDelegate, public std::enable_shared_from_this<EchoBot> {
 public:
  /// Hears why the bot has logged out.
  using EndHandler = std::function<void(const std::string& reason)>;

  /// The client holds its delegates, so that the bot may refer to it.
  EchoBot(KorivaSDK& sdk, std::int64_t uin, EndHandler onEnd);

  void start(const std::string& token);

  /// How many echoes the server has.
  int delivered() const { return delivered_; }

  void didReceive(const KRMessage& message) override;
  void didReceiveError(KRError error) override;

 private:
  void send(const KRMessage& echo);

  KorivaSDK& sdk_;
  const std::int64_t uin_;
  const EndHandler onEnd_;
  int delivered_ = 0;
};
