#include <KorivaSDK/KRAsync.h>
#include <KorivaSDK/KorivaSDK.h>

#include <boost/json/object.hpp>
#include <iostream>
#include <memory>
#include <string_view>
#include <tuple>

struct Application : KorivaDelegate {
  void didReceive(const KRMessage& message) override { std::cout << message.message << '\n'; }
};

koriva::Detached send(std::shared_ptr<KorivaSDK> client) {
  const auto sent = co_await koriva::async(&KorivaSDK::sendMessage, client, KRMessage{});
  std::cout << sent.error().localizedDescription() << '\n';
}

/// Uses something of every kind that the library exports, and prints what came of it.
int main() {
  const auto message = KRJSONDecoder{}.decode<KRMessage>(
      R"({"message": "Hello", "type": 2, "version": 1,
          "attachments": "{\"images\": [{\"url\": \"picture\"}]}"})");
  const auto* images = message ? message->kind.as<KRMessageKind::Images>() : nullptr;
  if (images == nullptr) return 1;

  const std::tuple<KRMessage, KRCallEvent, KRConversation, KRGroupUpdate> records;
  if (const auto copy = records; copy != records) return 1;

  Application application;
  static_cast<KorivaDelegate&>(application).didReceive(*message);
  std::cout << koriva::typeName(message->messageType()) << ": " << images->images.at(0).url << '\n'
            << KRJSONEncoder{}.encode(KRImageResponse{images->images}) << '\n'
            << koriva::toJsonString(KRDictionary{{"answer", 42}}).value_or("") << '\n';

  const auto client = KorivaSDK::shared();
  client->addDelegate(std::make_shared<Application>());
  send(client);
  koriva::setLogSink([](KRLogLevel, std::string_view line) { std::cout << line << " (logged)\n"; });
  KorivaSDK::create()->togglePin("1", true, {});
  KRRunLoop::main().post([&] {
    std::cout << (client->isConnected() ? "connected" : "not connected") << '\n';
    KRRunLoop::main().stop();
  });
  KRRunLoop::main().run();

  std::cout << KORIVA_SDK_VERSION_MAJOR << '.' << KORIVA_SDK_VERSION_MINOR << '.'
            << KORIVA_SDK_VERSION_PATCH << " is " << KorivaSDKVersionString << '\n';
}
