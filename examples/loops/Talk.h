#pragma once

#include <KorivaSDK/KorivaSDK.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

/// What every program of this folder does, whatever its main loop: a line that is typed goes to the
/// conversation of users 1001 and 1002, and what arrives is printed.
class Talk : public KorivaDelegate, public std::enable_shared_from_this<Talk> {
 public:
  /// Takes the arguments "URL UIN". Call it after `KRRunLoop::attach`.
  static std::shared_ptr<Talk> begin(int argc, char** argv) {
    const auto talk = std::make_shared<Talk>();
    if (argc != 3 || !talk->sdk_->setBaseUrl(argv[1])) {
      std::cerr << "Usage: " << argv[0] << " URL 1001|1002" << std::endl;
      std::exit(2);
    }
    talk->sdk_->addDelegate(talk);
    talk->sdk_->login(std::string("token-") + argv[2], std::atoll(argv[2]), "loops", true);
    return talk;
  }

  /// To be called when standard input can be read. False at its end, after having logged out.
  bool readInput() {
    const auto text = read();
    if (text) {
      say(*text);
    } else {
      leave();
    }
    return text.has_value();
  }

  /// What was typed, without the end of the line; waits for it. Nothing at the end of input.
  static std::optional<std::string> read() {
    std::array<char, 1024> bytes;
    const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) return std::nullopt;
    std::string text(bytes.data(), static_cast<std::size_t>(count));
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
  }

  void say(const std::string& text) {
    sdk_->runNowOrWhenSDKReady([talk = shared_from_this(), text](bool) { talk->send(text); });
  }

  void leave() { sdk_->logout(); }

  void didReceive(const KRMessage& message) override {
    std::cout << message.senderUin << " says: " << message.message << std::endl;
  }

 private:
  void send(const std::string& text) {
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    KRMessage message;
    message.messageID = std::to_string(now);
    message.groupID = "10010001002";
    message.message = text;
    sdk_->sendMessage(message, [](const KRResult<KRMessage>& result) {
      std::cout << (result ? "sent" : result.error().localizedDescription()) << std::endl;
    });
  }

  std::shared_ptr<KorivaSDK> sdk_ = KorivaSDK::shared();
};
