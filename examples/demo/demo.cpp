// The tour of script/demo: koriva_demo URL
// Ends with 0 only if both users have seen all of it. The transcript goes to standard error,
// because the SDK writes its own lines to standard output: "# CHAPTER", "UIN WHAT HAPPENS",
// "@restart" where the server is to be restarted, and "! PROBLEM".

#include <KorivaSDK/KorivaSDK.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "User.h"

namespace {

using Person = std::shared_ptr<User>;

struct Letter {
  KRMessageType type;
  std::string text;
  std::string attachments;
  std::string contents;  ///< what its receiver is to find in it
  bool isEncrypted = false;
};

Letter textLetter(const std::string& text) {
  return {KRMessageType::text, text, "", "text: " + text};
}

template <class Attachments>
Letter attachedLetter(KRMessageType type, const Attachments& attachments,
                      const std::string& contents) {
  return {type, "", KRJSONEncoder{}.encode(attachments), contents};
}

void expect(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error("this does not hold: " + what);
}

/// What the two users do together. Each chapter returns when both have seen all of it, and throws
/// when something does not come.
class Tour {
 public:
  explicit Tour(std::string url) : url_(std::move(url)) {}

  void logIn() {
    host_->logIn(url_);
    openChat(host_, guest_);
    host_->notices("sees 1002 offline");
    guest_->logIn(url_);
    host_->notices("sees 1002 online");
    openChat(guest_, host_);
    guest_->notices("sees 1001 online");
  }

  void type() {
    showTyping(host_, guest_);
    showTyping(guest_, host_);
  }

  void sendMessages() {
    pass(host_, guest_, chat_, textLetter("It's in \"C:\\new\"."));
    const KRMessage emoji = pass(guest_, host_, chat_, textLetter("🎉👩‍👩‍👧"));
    pass(host_, guest_, chat_,
         attachedLetter(KRMessageType::images, KRImageResponse{{{"photos/sea.jpg", 640, 480, 0}}},
                        "image: photos/sea.jpg"));
    pass(guest_, host_, chat_,
         attachedLetter(KRMessageType::audio, KRAudioResponse{{"hello.ogg", 12}},
                        "audio: hello.ogg, 12 s"));
    pass(host_, guest_, chat_,
         attachedLetter(KRMessageType::file, KRFileResponse{{"docs/map", "map.pdf", "pdf", 2048}},
                        "file: map.pdf at docs/map"));
    pass(guest_, host_, chat_,
         attachedLetter(KRMessageType::sticker, KRSticker{"party-owl"}, "sticker: party-owl"));
    pass(host_, guest_, chat_,
         {KRMessageType::reply, "Me too", emoji.toString(),
          "reply to 🎉👩‍👩‍👧: Me too"});
  }

  void compareHistories() {
    const auto hosts = listChat(host_);
    const auto guests = listChat(guest_);
    expect(hosts == sent_, "1001 finds what was sent");
    expect(guests == sent_, "1002 finds what was sent");
  }

  void meetInGroup() {
    KRConversation wish;
    wish.type = koriva::rawValue(KRDefines::GroupType::group);
    wish.ownerUin = host_->name;
    wish.name = "The tour";
    const auto group = host_->asks<KRConversation>(
        "creates a group: The tour",
        [&](const auto& done) { host_->client->createGroup(wish, "User 1001", "", done); });
    const auto token = host_->asks<std::string>("makes an invitation link", [&](const auto& done) {
      host_->client->createJoinGroupLink(group.groupID, done);
    });
    pass(host_, guest_, chat_, textLetter(token));
    const auto joined = guest_->asks<KRConversation>("joins with the link", [&](const auto& done) {
      guest_->client->joinGroupWithLink(token, done);
    });
    expect(joined.groupID == group.groupID && joined.name == wish.name, "the link leads there");
    host_->notices("receives note: 1002 joins");
    guest_->notices("knows the group_update was seen");
    pass(guest_, host_, group.groupID, textLetter("Hello, group!"));
  }

  void call() {
    const KRCall wish("", KRCall::MEDIA_TYPE_AUDIO, chat_, host_->name, {guest_->name});
    const auto created = host_->asks<KRCallEvent>("calls 1002", [&](const auto& done) {
      host_->client->createCall(KRCallEvent::CreateCall{wish}, done);
    });
    const std::string id = created.as<KRCallEvent::CreateCall>()->call.id;
    guest_->notices("hears 1001 calling");

    const auto signal = [&](const Person& from, const Person& to, const KRCallEvent& event) {
      from->client->send(event, id, chat_, from->name, to->name);
    };
    guest_->does("accepts the call");
    signal(guest_, host_,
           KRCallEvent::AnswerCall{{id, guest_->name, KRAnswerCall::ANSWER_CALL_ACCEPT}});
    host_->notices("hears 1002 accept");
    host_->does("offers a session");
    signal(host_, guest_, KRCallEvent::IceSdp{{"v=0 offer", KRIceSdp::SDP_TYPE_OFFER}});
    guest_->notices("gets the session v=0 offer");
    guest_->does("answers it");
    signal(guest_, host_, KRCallEvent::IceSdp{{"v=0 answer", KRIceSdp::SDP_TYPE_ANSWER}});
    host_->notices("gets the session v=0 answer");
    host_->does("hangs up");
    signal(host_, guest_, KRCallEvent::StopCall{{id, host_->name}});
    guest_->notices("hears 1001 hang up");
    guest_->notices("receives note: there was a call");
    host_->notices("knows the call was seen");
  }

  void chatInSecret() {
    const auto secret = host_->asks<KRConversation>("starts a secret chat", [&](const auto& done) {
      host_->client->startSecretChat(host_->uin, guest_->uin, "laptop", "id-key-1", "base-key-1",
                                     "one-time-key-1", done);
    });
    guest_->notices("gets 1001's key: id-key-1");
    const auto isAccepted = guest_->asks<bool>("accepts", [&](const auto& done) {
      guest_->client->acceptSecretChat(guest_->uin, secret.groupID, "phone", "id-key-2",
                                       "base-key-2", "one-time-key-2", done);
    });
    expect(isAccepted, "the server lets 1002 accept");
    host_->notices("gets 1002's key: id-key-2");
    pass(host_, guest_, secret.groupID,
         {KRMessageType::text, "vH3kQ0xwZ1c9", "", "secret: vH3kQ0xwZ1c9", true});
  }

  void surviveRestart() {
    constexpr std::chrono::seconds patience{25};
    std::clog << "@restart" << std::endl;
    for (const Person& user : {host_, guest_}) user->notices("is disconnected", patience);
    for (const Person& user : {host_, guest_}) user->notices("connects", patience);
    openChat(host_, guest_);
    host_->notices("sees 1002 online");
    openChat(guest_, host_);
    guest_->notices("sees 1001 online");
    pass(host_, guest_, chat_, textLetter("Still there?"));
    pass(guest_, host_, chat_, textLetter("Yes!"));
  }

  void sayGoodbye() {
    host_->does("tells that it leaves");
    host_->client->sendLogoutEvent(host_->uin, 1);
    guest_->notices("sees 1001 offline");
    guest_->does("tells that it leaves");
    guest_->client->sendLogoutEvent(guest_->uin, 1);
    host_->notices("sees 1002 offline");
    for (const Person& user : {host_, guest_}) {
      user->does("logs out");
      user->client->logout();
      user->notices("is disconnected");
    }
  }

 private:
  /// From then on the server tells the user when the peer comes and goes.
  void openChat(const Person& user, const Person& peer) {
    const auto type = std::to_string(koriva::rawValue(KRDefines::GroupType::privateGroup));
    const auto chat = user->asks<KRConversation>("opens the chat", [&](const auto& done) {
      user->client->checkGroup(type, {user->name, peer->name}, done);
    });
    chat_ = chat.groupID;
    for (const KRUserStatus& status : chat.statusList) {
      if (status.uin == peer->name) user->didUpdateUserStatus(status);
    }
  }

  void showTyping(const Person& writer, const Person& watcher) {
    writer->does("types");
    writer->client->sendGroupEvent(writer->name, {chat_, KRGroupEventKind::StartTyping{}});
    watcher->notices("sees typing ...");
    writer->does("stops typing");
    writer->client->sendGroupEvent(writer->name, {chat_, KRGroupEventKind::StopTyping{}});
    watcher->notices("sees no more typing");
  }

  /// Sends a message, and waits until it was received and its sender knows that it was seen.
  KRMessage pass(const Person& sender, const Person& receiver, const std::string& groupID,
                 const Letter& letter) {
    KRMessage message(std::to_string(++messages_), groupID, letter.text, "User " + sender->name, "",
                      sender->name, letter.isEncrypted);
    message.type = koriva::rawValue(letter.type);
    message.attachments = letter.attachments;
    message.version = 1;
    auto stored = sender->asks<KRMessage>("sends " + letter.contents, [&](const auto& done) {
      sender->client->sendMessage(message, done);
    });
    receiver->notices("receives " + letter.contents);
    sender->notices("knows the " + typeName(letter.type) + " was seen");
    if (groupID == chat_) sent_.push_back(letter.contents);
    return stored;
  }

  std::vector<std::string> listChat(const Person& user) const {
    const auto page = user->asks<KRMessageList>("asks for the history", [&](const auto& done) {
      user->client->getListMessage(chat_, "", 0, 20, done);
    });
    std::vector<std::string> found;
    for (auto message = page.messages.rbegin(); message != page.messages.rend(); ++message) {
      found.push_back(contentsOf(*message));
      user->does("finds " + found.back());
    }
    return found;
  }

  const std::string url_;
  const Person host_ = std::make_shared<User>(1001);
  const Person guest_ = std::make_shared<User>(1002);
  std::string chat_;               ///< their private conversation
  std::vector<std::string> sent_;  ///< the contents of what was sent there, oldest first
  int messages_ = 0;
};

struct Chapter {
  const char* title;
  void (Tour::*play)();
};

constexpr Chapter kChapters[] = {
    {"Log in: two users, a connection each", &Tour::logIn},
    {"Typing: shown at once, stored nowhere", &Tour::type},
    {"Messages of many kinds: they arrive unchanged, and are seen", &Tour::sendMessages},
    {"History: the server keeps the messages", &Tour::compareHistories},
    {"A group: joined with an invitation link", &Tour::meetInGroup},
    {"A call: offered, answered and stopped; sound is the application's", &Tour::call},
    {"A secret chat: the SDK carries keys, the application encrypts", &Tour::chatInSecret},
    {"The server is killed and started again: both are back within 10 s", &Tour::surviveRestart},
    {"Goodbye: each sees the other leave", &Tour::sayGoodbye},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: koriva_demo URL" << std::endl;
    return 2;
  }
  Tour tour(argv[1]);
  const char* title = "";
  try {
    for (const Chapter& chapter : kChapters) {
      title = chapter.title;
      std::clog << "# " << title << std::endl;
      (tour.*chapter.play)();
    }
  } catch (const std::exception& problem) {
    std::clog << "! " << title << ": " << problem.what() << std::endl;
    return 1;
  }
}
