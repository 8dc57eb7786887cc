#include "User.h"

#include <chrono>
#include <iostream>
#include <variant>

namespace {

// How long a step may take: enough for two attempts to connect.
constexpr std::chrono::seconds kLimit{25};

constexpr auto kSeen = koriva::rawValue(KRDefines::MessageStatus::seen);

}  // namespace

User::User(std::int64_t number, bool isInThisProcess)
    : uin(number),
      name(std::to_string(number)),
      client(isInThisProcess ? KorivaSDK::shared() : nullptr) {}

void User::logIn(const std::string& url) {
  if (!isHere()) return;
  if (!client->setBaseUrl(url)) throw std::runtime_error("no URL of a chat server: " + url);
  client->addDelegate(shared_from_this());
  client->login("token-" + name, uin, "device-of-" + name, true);
  notices("connects");
}

void User::does(const std::string& line, const std::function<void()>& action) const {
  if (!isHere()) return;
  writeDown(name, line);
  if (action) action();
}

void User::notes(const std::string& line) {
  writeDown(name, line);
  noticed_.insert(line);
  KRRunLoop::main().stop();
}

void User::notices(const std::string& line) {
  if (!isHere()) return;
  waitUntil([&] { return noticed_.contains(line); }, line);
  noticed_.erase(noticed_.find(line));
}

KRMessage User::receives(const std::string& contents) {
  if (!isHere()) return {};
  waitUntil([this] { return !received_.empty(); }, "receives " + contents);
  const KRMessage message = std::move(received_.front());
  received_.pop();
  const std::string found = contentsOf(message);
  if (!contents.empty() && found != contents) {
    throw std::runtime_error(name + " receives " + found + ", instead of: " + contents);
  }
  return answerTo<KRMessage>("marks it as seen", [&](const auto& done) {
    client->updateMessageStatus(message, kSeen, done);
  });
}

void User::noticesNoMore() const {
  if (!noticed_.empty())
    throw std::runtime_error("not expected: " + name + ' ' + *noticed_.begin());
  if (!received_.empty()) {
    throw std::runtime_error("not expected: " + name + " receives " +
                             contentsOf(received_.front()));
  }
}

void User::waitUntil(const std::function<bool()>& isDone, const std::string& what) const {
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  while (!isDone()) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= left.zero()) {
      throw std::runtime_error("not seen within " + std::to_string(kLimit.count()) + " s: " + name +
                               ' ' + what);
    }
    KRRunLoop::main().runFor(left);
  }
}

void User::didConnect() {
  isConnected_ = true;
  notes("connects");
}

void User::didDisconnect() {
  if (!isConnected_) return;  // an attempt to connect has failed
  isConnected_ = false;
  notes("is disconnected");
}

void User::didReceive(const KRMessage& message) {
  if (message.senderUin == name) return;  // the server's note about what this user did
  writeDown(name, "receives " + contentsOf(message));
  received_.push(message);
  KRRunLoop::main().stop();
}

void User::didReceiveGroupEvent(const KRGroupEvent& event) {
  if (event.kind.as<KRGroupEventKind::StartTyping>()) notes("sees typing ...");
  if (event.kind.as<KRGroupEventKind::StopTyping>()) notes("sees no more typing");
  const auto* update = event.kind.as<KRGroupEventKind::UpdateMessage>();
  if (!update || update->message.senderUin != name || update->message.status != kSeen) return;
  notes("knows the " + koriva::typeName(update->message.messageType()) + " was seen");
}

void User::didReceiveCall(const KRCallEvent& event) {
  if (const auto* start = event.as<KRCallEvent::StartCall>()) {
    callID = start->call.id;
    notes("hears " + start->call.callerUin + " calling");
  } else if (const auto* answer = event.as<KRCallEvent::AnswerCall>()) {
    const bool isAccepted = answer->answerCall.type == KRAnswerCall::ANSWER_CALL_ACCEPT;
    notes("hears " + answer->answerCall.calleeUin + (isAccepted ? " accept" : " decline"));
  } else if (const auto* session = event.as<KRCallEvent::IceSdp>()) {
    notes("gets the session " + session->iceSdp.sdp);
  } else if (const auto* stop = event.as<KRCallEvent::StopCall>()) {
    notes("hears " + stop->stopCall.uin + " hang up");
  }
}

void User::didUpdateUserStatus(const KRUserStatus& status) {
  const bool isOnline = status.status() == KRDefines::OnlineStatus::online;
  notes("sees " + status.uin + (isOnline ? " online" : " offline"));
}

void User::didStartSecretChat(const KRStartSecretChat& info) {
  secretChatID = info.group_id;
  notes("gets " + info.uin + "'s key: " + info.identity_key);
}

void User::didAcceptSecretChat(const KRAcceptSecretChat& info) {
  notes("gets " + info.uin + "'s key: " + info.identity_key);
}

void writeDown(const std::string& name, const std::string& text) {
  std::string lines = name + ' ';
  for (const char c : text) {
    lines += c;
    if (c == '\n') lines += name + "   ";
  }
  std::clog << lines + '\n' << std::flush;
}

std::string contentsOf(const KRMessage& message) {
  using Kind = KRMessageKind;
  return std::visit(
      koriva::Overloaded{
          [&](const Kind::Text&) {
            return (message.isEncrypted ? "secret: " : "text: ") + message.message;
          },
          [](const Kind::Images& it) { return "image: " + it.images.at(0).url; },
          [](const Kind::Audio& it) {
            return "audio: " + it.audio.url + ", " + std::to_string(it.audio.duration) + " s";
          },
          [](const Kind::File& it) { return "file: " + it.file.fileName + " at " + it.file.url; },
          [](const Kind::Sticker& it) { return "sticker: " + it.sticker.sticker; },
          [](const Kind::Reply& it) { return "reply to " + it.message->message + ": " + it.text; },
          [](const Kind::GroupUpdate& it) {
            const auto* join = it.groupUpdate.as<KRGroupUpdateType::AddMembers>();
            return "note: " + (join ? join->uins.at(0) + " joins" : std::string("another change"));
          },
          [](const Kind::Call&) { return std::string("note: there was a call"); },
          [](const auto&) { return std::string("something else"); }},
      message.kind.value);
}
