// One of the two sides of script/demo: koriva_demo URL UIN PEER begin|answer
// "begin" sends a text, "answer" answers it with a picture. Ends with 0 only if everything that
// this side waits for has happened in time.

#include <KorivaSDK/KorivaSDK.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace {

const std::string kText =
    "She said: \"Don't panic!\" 🎉👩‍👩‍👧\n"
    "C:\\new\\table\\\"quoted\" keeps its backslashes,\n"
    "\n"
    "and this is the fourth line.";
const std::string kPictureUrl = "https://example.com/pictures/1.jpg";

/// The sandbox's conversation of two users needs no request to make it.
std::string privateGroup(std::int64_t one, std::int64_t other) {
  return std::to_string(std::min(one, other) * 10'000'000 + std::max(one, other));
}

class Side : public KorivaDelegate {
 public:
  Side(std::int64_t uin, std::int64_t peer, bool begins)
      : uin_(uin), group_(privateGroup(uin, peer)), begins_(begins) {}

  void didConnect() override {
    std::cout << "online" << std::endl;
    done("log in");
    if (begins_) sendText();
  }

  void didReceive(const KRMessage& message) override {
    if (begins_) {
      const auto* images = message.kind.as<KRMessageKind::Images>();
      if (!images || images->images.size() != 1) return fail("the picture came as something else");
      const KRImage& image = images->images.front();
      if (image.url != kPictureUrl || image.width != 640U) return fail("the picture has changed");
      std::cout << "received a picture: " << image.url << std::endl;
    } else {
      if (!message.kind.as<KRMessageKind::Text>()) return fail("the text came as something else");
      if (message.message != kText) return fail("the text has changed: " + message.message);
      std::cout << "received a text:\n" << message.message << std::endl;
    }
    done("receive the other's message");
    markSeen(message);
    if (!begins_) sendPicture();
  }

  void didReceiveGroupEvent(const KRGroupEvent& event) override {
    const auto* update = event.kind.as<KRGroupEventKind::UpdateMessage>();
    if (!update || update->message.senderUin != std::to_string(uin_) || !isSeen(update->message)) {
      return;
    }
    std::cout << "my message has been seen" << std::endl;
    done("hear that the own message was seen");
  }

  bool succeeded() const {
    for (std::string_view step : missing_) std::cout << "did not " << step << std::endl;
    return missing_.empty();
  }

 private:
  static bool isSeen(const KRMessage& message) {
    return message.status == koriva::rawValue(KRDefines::MessageStatus::seen);
  }

  /// What a reader gets to see of a message.
  static std::string contents(const KRMessage& message) {
    const auto* images = message.kind.as<KRMessageKind::Images>();
    return images && !images->images.empty() ? images->images.front().url : message.message;
  }

  KRMessage newMessage(const std::string& text) const {
    const std::string uin = std::to_string(uin_);
    return KRMessage("nonce-" + uin, group_, text, "User " + uin, "", uin, false);
  }

  void sendText() {
    std::cout << "sending a text:\n" << kText << std::endl;
    send(newMessage(kText));
  }

  void sendPicture() {
    KRMessage message = newMessage("");
    message.type = koriva::rawValue(KRMessageType::images);
    message.version = 1;
    message.attachments = KRJSONEncoder{}.encode(KRImageResponse{{{kPictureUrl, 640, 480, 0}}});
    std::cout << "sending a picture: " << kPictureUrl << std::endl;
    send(message);
  }

  void send(const KRMessage& message) {
    KorivaSDK::shared()->sendMessage(message, [this](const KRResult<KRMessage>& result) {
      if (!result) return fail("sending failed: " + result.error().localizedDescription());
      done("send a message");
    });
  }

  void markSeen(const KRMessage& message) {
    KorivaSDK::shared()->updateMessageStatus(message,
                                             koriva::rawValue(KRDefines::MessageStatus::seen),
                                             [this](const KRResult<KRMessage>& result) {
                                               if (!result || !isSeen(result.value()))
                                                 return fail("marking as seen failed");
                                               done("mark the other's message as seen");
                                             });
  }

  void listHistory() {
    KorivaSDK::shared()->getListMessage(
        group_, "", 0, 20, [this](const KRResult<KRMessageList>& result) {
          if (!result) return fail("listing failed: " + result.error().localizedDescription());
          auto messages = result.value().messages;
          if (messages.size() != 2) return fail("the history does not hold two messages");
          std::reverse(messages.begin(), messages.end());  // the newest comes first
          bool intact = false;
          for (const KRMessage& message : messages) {
            if (!isSeen(message)) return fail("a message of the history has not been seen");
            intact = intact || message.message == kText;
            std::cout << "in the history, from " << message.senderUin << ", "
                      << typeName(message.messageType()) << ", seen:\n"
                      << contents(message) << std::endl;
          }
          if (!intact) return fail("the text has changed in the history");
          done("list the history");
        });
  }

  void done(std::string_view step) {
    missing_.erase(step);
    if (missing_.empty()) {
      KRRunLoop::main().stop();
    } else if (missing_ == Steps{"list the history"}) {
      listHistory();
    }
  }

  void fail(const std::string& why) {
    std::cout << "error: " << why << std::endl;
    KRRunLoop::main().stop();
  }

  using Steps = std::set<std::string_view>;

  std::int64_t uin_;
  std::string group_;
  bool begins_;
  Steps missing_{"log in",
                 "send a message",
                 "receive the other's message",
                 "mark the other's message as seen",
                 "hear that the own message was seen",
                 "list the history"};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 || !KorivaSDK::shared()->setBaseUrl(argv[1])) {
    std::cerr << "Usage: koriva_demo URL UIN PEER begin|answer" << std::endl;
    return 2;
  }
  const std::int64_t uin = std::stoll(argv[2]);
  const auto side =
      std::make_shared<Side>(uin, std::stoll(argv[3]), argv[4] == std::string("begin"));

  const auto client = KorivaSDK::shared();
  client->addDelegate(side);
  client->login("token-" + std::to_string(uin), uin, "demo-device", true);
  KRRunLoop::main().runFor(std::chrono::seconds(20));
  client->logout();
  return side->succeeded() ? 0 : 1;
}
