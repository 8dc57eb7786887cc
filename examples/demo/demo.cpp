// The client of one user in the tour of script/demo: koriva_demo URL 1001|1002
// Ends with 0 only if that user has seen all of it. The transcript goes to standard error, because
// the SDK writes its own lines to standard output: "UIN WHAT HAPPENS", "UIN # CHAPTER",
// "UIN @restart" where the server is to be restarted, and "UIN ! PROBLEM".

#include <KorivaSDK/KorivaSDK.h>

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

/// An empty text stands for one that only its sender knows.
Letter textLetter(const std::string& text) {
  return {KRMessageType::text, text, "", text.empty() ? "" : "text: " + text};
}

template <class Attachments>
Letter attachedLetter(KRMessageType type, const Attachments& attachments,
                      const std::string& contents) {
  return {type, "", KRJSONEncoder{}.encode(attachments), contents};
}

std::string shortened(const std::string& text) {
  const auto end = text.find('\n');
  return end == std::string::npos ? text : text.substr(0, end) + " ...";
}

void expect(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error("this does not hold: " + what);
}

/// What the two users do together; the process of each walks through all of it. Each chapter
/// returns when the user of this process has seen its part, and throws when something does not
/// come.
class Tour {
 public:
  Tour(std::string url, std::int64_t self) : url_(std::move(url)), self_(self) {}

  void logIn() {
    for (const Person& user : {host_, guest_}) user->logIn(url_);
    meet();
  }

  void type() {
    showTyping(host_, guest_);
    showTyping(guest_, host_);
  }

  void sendMessages() {
    pass(host_, guest_, chat_,
         textLetter("Is \"C:\\new\" a path?\nIt's one! 🎉👩‍👩‍👧\nYes \\o/"));
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
    for (const Person& user : {host_, guest_}) {
      if (user->isHere()) expect(listChat(user) == sent_, user->name + " finds what was sent");
    }
  }

  void meetInGroup() {
    KRConversation wish;
    wish.type = koriva::rawValue(KRDefines::GroupType::group);
    wish.ownerUin = host_->name;
    wish.name = "The tour";
    const auto group = host_->asks<KRConversation>(
        "creates a group: The tour",
        [&](const auto& done) { host_->client->createGroup(wish, "User 1001", "", done); });
    const auto link = host_->asks<std::string>("makes an invitation link", [&](const auto& done) {
      host_->client->createJoinGroupLink(group.groupID, done);
    });
    const std::string token = pass(host_, guest_, chat_, textLetter(link)).message;
    const auto joined = guest_->asks<KRConversation>("joins with the link", [&](const auto& done) {
      guest_->client->joinGroupWithLink(token, done);
    });
    if (guest_->isHere()) expect(joined.name == wish.name, "the link leads there");
    host_->receives("note: 1002 joins");
    guest_->notices("knows the group_update was seen");
    pass(guest_, host_, joined.groupID, textLetter("Hello, group!"));
  }

  void call() {
    const KRCall wish("", KRCall::MEDIA_TYPE_AUDIO, chat_, host_->name, {guest_->name});
    const auto created = host_->asks<KRCallEvent>("calls 1002", [&](const auto& done) {
      host_->client->createCall(KRCallEvent::CreateCall{wish}, done);
    });
    guest_->notices("hears 1001 calling");
    const auto* call = created.as<KRCallEvent::CreateCall>();
    const std::string id = call ? call->call.id : guest_->callID;

    const auto signal = [&](const Person& from, const std::string& line, const Person& to,
                            const KRCallEvent& event) {
      from->does(line, [&] { from->client->send(event, id, chat_, from->name, to->name); });
    };
    signal(guest_, "accepts the call", host_,
           KRCallEvent::AnswerCall{{id, guest_->name, KRAnswerCall::ANSWER_CALL_ACCEPT}});
    host_->notices("hears 1002 accept");
    signal(host_, "offers a session", guest_,
           KRCallEvent::IceSdp{{"v=0 offer", KRIceSdp::SDP_TYPE_OFFER}});
    guest_->notices("gets the session v=0 offer");
    signal(guest_, "answers it", host_,
           KRCallEvent::IceSdp{{"v=0 answer", KRIceSdp::SDP_TYPE_ANSWER}});
    host_->notices("gets the session v=0 answer");
    signal(host_, "hangs up", guest_, KRCallEvent::StopCall{{id, host_->name}});
    guest_->notices("hears 1001 hang up");
    guest_->receives("note: there was a call");
    host_->notices("knows the call was seen");
  }

  void chatInSecret() {
    const auto secret = host_->asks<KRConversation>("starts a secret chat", [&](const auto& done) {
      host_->client->startSecretChat(host_->uin, guest_->uin, "laptop", "id-key-1", "base-key-1",
                                     "one-time-key-1", done);
    });
    guest_->notices("gets 1001's key: id-key-1");
    const auto isAccepted = guest_->asks<bool>("accepts", [&](const auto& done) {
      guest_->client->acceptSecretChat(guest_->uin, guest_->secretChatID, "phone", "id-key-2",
                                       "base-key-2", "one-time-key-2", done);
    });
    if (guest_->isHere()) expect(isAccepted, "the server lets 1002 accept");
    host_->notices("gets 1002's key: id-key-2");
    pass(host_, guest_, secret.groupID,
         {KRMessageType::text, "vH3kQ0xwZ1c9", "", "secret: vH3kQ0xwZ1c9", true});
  }

  void surviveRestart() {
    host_->does("@restart");
    for (const Person& user : {host_, guest_}) user->notices("is disconnected");
    for (const Person& user : {host_, guest_}) user->notices("connects");
    meet();
    pass(host_, guest_, chat_, textLetter("Still there?"));
    pass(guest_, host_, chat_, textLetter("Yes!"));
  }

  void sayGoodbye() {
    const auto leave = [](const Person& user) {
      user->does("tells that it leaves", [&] { user->client->sendLogoutEvent(user->uin, 1); });
    };
    leave(host_);
    guest_->notices("sees 1001 offline");
    leave(guest_);
    host_->notices("sees 1002 offline");
    for (const Person& user : {host_, guest_}) {
      user->does("logs out", [&] { user->client->logout(); });
      user->notices("is disconnected");
      user->noticesNoMore();
    }
  }

 private:
  void meet() {
    openChat(host_, guest_);
    openChat(guest_, host_);
    host_->notices("sees 1002 online");
    guest_->notices("sees 1001 online");
  }

  /// From then on the server tells the user when the peer comes and goes.
  void openChat(const Person& user, const Person& peer) {
    const auto type = std::to_string(koriva::rawValue(KRDefines::GroupType::privateGroup));
    if (!user->isHere()) return;
    const auto chat = user->asks<KRConversation>("opens the chat", [&](const auto& done) {
      user->client->checkGroup(type, {user->name, peer->name}, done);
    });
    chat_ = chat.groupID;
    for (const KRUserStatus& status : chat.statusList) {
      const bool isOnline = status.status() == KRDefines::OnlineStatus::online;
      if (status.uin == peer->name && isOnline) user->didUpdateUserStatus(status);
    }
  }

  void showTyping(const Person& writer, const Person& watcher) {
    const auto tell = [&](const std::string& line, const KRGroupEventKind& kind) {
      writer->does(line, [&] { writer->client->sendGroupEvent(writer->name, {chat_, kind}); });
    };
    tell("types", KRGroupEventKind::StartTyping{});
    watcher->notices("sees typing ...");
    tell("stops typing", KRGroupEventKind::StopTyping{});
    watcher->notices("sees no more typing");
  }

  /// Sends a message, and waits until it was received and its sender knows that it was seen. Gives
  /// the message as the user of this process knows it.
  KRMessage pass(const Person& sender, const Person& receiver, const std::string& groupID,
                 const Letter& letter) {
    KRMessage message(std::to_string(++messages_), groupID, letter.text, "User " + sender->name, "",
                      sender->name, letter.isEncrypted);
    message.type = koriva::rawValue(letter.type);
    message.attachments = letter.attachments;
    message.version = 1;
    if (groupID == chat_) sent_.push_back(letter.contents);
    const auto stored = sender->asks<KRMessage>("sends " + letter.contents, [&](const auto& done) {
      sender->client->sendMessage(message, done);
    });
    const auto received = receiver->receives(letter.contents);
    sender->notices("knows the " + koriva::typeName(letter.type) + " was seen");
    return sender->isHere() ? stored : received;
  }

  std::vector<std::string> listChat(const Person& user) const {
    const auto page = user->asks<KRMessageList>("asks for the history", [&](const auto& done) {
      user->client->getListMessage(chat_, "", 0, 20, done);
    });
    std::vector<std::string> found;
    for (auto message = page.messages.rbegin(); message != page.messages.rend(); ++message) {
      found.push_back(contentsOf(*message));
      user->does("finds " + shortened(found.back()));
    }
    return found;
  }

  const std::string url_;
  const std::int64_t self_;
  const Person host_ = std::make_shared<User>(1001, self_ == 1001);
  const Person guest_ = std::make_shared<User>(1002, self_ == 1002);
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
  const std::string self = argc == 3 ? argv[2] : "";
  if (self != "1001" && self != "1002") {
    std::cerr << "Usage: koriva_demo URL 1001|1002" << std::endl;
    return 2;
  }
  Tour tour(argv[1], std::stoll(self));
  const char* title = "";
  try {
    for (const Chapter& chapter : kChapters) {
      title = chapter.title;
      writeDown(self, std::string("# ") + title);
      (tour.*chapter.play)();
    }
  } catch (const std::exception& problem) {
    writeDown(self, std::string("! ") + title + ": " + problem.what());
    return 1;
  }
}
