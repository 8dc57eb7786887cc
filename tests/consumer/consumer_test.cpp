#include <KorivaSDK/KorivaSDK.h>
#include <testing/KRTesting.h>

#include <chrono>
#include <iostream>

/// Tests a client against the server in memory, and prints what happened.
int main() {
  koriva::testing::Server server;
  server.answer("create_message", [](const koriva::testing::Request& request) {
    return KRDictionary{{"result", 0}, {"message", request.payload}};
  });

  const auto client = KorivaSDK::shared();
  client->login("token", 1001, "device", true);
  server.run();
  KRMessage message;
  message.message = "Hello";
  client->sendMessage(message, [](const KRResult<KRMessage>& sent) {
    if (sent) std::cout << "sent: " << sent.value().message << '\n';
  });
  server.run();

  server.drop();
  server.run();
  std::cout << server.pending() << '\n';
  server.advance(std::chrono::seconds(10));
  std::cout << (client->isConnected() ? "connected" : "not connected") << " after "
            << server.logins().size() << " logins\n";
}
