// Sends a text to the conversation of users 1001 and 1002 and prints what arrives for a minute.
// Start a server first: node sandbox/server.mjs --port 2082

#include <KorivaSDK/KorivaSDK.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>

struct Printer : KorivaDelegate {
  void didReceive(const KRMessage& message) override {
    std::cout << message.senderUin << " says: " << message.message << std::endl;
  }
};

void chat(std::int64_t uin, const std::string& text) {
  const auto client = KorivaSDK::shared();
  client->setBaseUrl("http://localhost:2082");
  client->addDelegate(std::make_shared<Printer>());
  client->login("token-" + std::to_string(uin), uin, "my-device", true);

  // Runs as soon as the server has accepted the connection.
  client->runNowOrWhenSDKReady([=](bool) {
    KRMessage message;
    message.messageID = std::to_string(std::time(nullptr));  // one that was not used before
    message.groupID = "10010001002";
    message.message = text;
    client->sendMessage(message, [](const KRResult<KRMessage>& result) {
      std::cout << (result ? "sent" : result.error().localizedDescription()) << std::endl;
    });
  });

  KRRunLoop::main().runFor(std::chrono::minutes(1));  // every callback is called from in here
  client->logout();
}

int main(int argc, char** argv) {
  const std::string uin = argc == 3 ? argv[1] : "";
  if (uin != "1001" && uin != "1002") {
    std::cerr << "Usage: koriva_quickstart 1001|1002 TEXT" << std::endl;
    return 2;
  }
  chat(std::stoll(uin), argv[2]);
}
