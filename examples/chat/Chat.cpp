#include "Chat.h"

#include <algorithm>
#include <random>
#include <utility>

#include "Complaint.h"
#include "Text.h"

namespace {

constexpr std::int64_t kConversationsPerPage = 10;
constexpr std::int64_t kLogoutVersion = 1;

std::string randomHex() {
  std::random_device random;
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < 16; ++i) text += digits[random() % digits.size()];
  return text;
}

bool holds(const std::vector<std::string>& uins, const std::string& uin) {
  return std::find(uins.begin(), uins.end(), uin) != uins.end();
}

std::string summaryOf(const KRConversation& record, const std::string& me) {
  std::string text;
  if (record.lastMessage) text += "  " + contentsOf(*record.lastMessage);
  if (holds(record.pinnedUins, me)) text += "  (pinned)";
  if (holds(record.mutedUins, me)) text += "  (muted)";
  return text;
}

std::vector<std::string> withoutAll(std::vector<std::string> uins,
                                    const std::vector<std::string>& unwanted) {
  const auto isUnwanted = [&](const std::string& uin) { return holds(unwanted, uin); };
  uins.erase(std::remove_if(uins.begin(), uins.end(), isUnwanted), uins.end());
  return uins;
}

}  // namespace

// The completions hold plain pointers to this object: it lives until the loop is driven no more.
Chat::Chat(Console& console, Identity identity)
    : console_(console),
      identity_(std::move(identity)),
      me_(std::to_string(identity_.uin)),
      requests_(console),
      calls_(console, requests_, me_),
      noncePrefix_(me_ + "-" + randomHex() + "-") {}

void Chat::begin() {
  KorivaSDK::shared()->login(identity_.token, identity_.uin, identity_.deviceId, identity_.isNew);
}

void Chat::sayGoodbye() {
  link_ = Link::over;
  const auto sdk = KorivaSDK::shared();
  if (!sdk->isConnected()) return;
  calls_.hangUpQuietly();
  sdk->sendLogoutEvent(identity_.uin, kLogoutVersion);
  // Neither is answered. The answer to this one says that they have arrived.
  sdk->getListConversation(
      identity_.uin, 0, 1,
      requests_.orComplain<KRConversationList>("say goodbye", [](const KRConversationList&) {}));
}

void Chat::end() { KorivaSDK::shared()->logout(); }

void Chat::list(std::int64_t page) {
  connected()->getListConversation(
      identity_.uin, page - 1, kConversationsPerPage,
      requests_.orComplain<KRConversationList>("list", [this](const KRConversationList& list) {
        if (list.conversations.empty()) note("no conversations here; /open UIN begins one");
        for (const KRConversation& record : list.conversations) {
          const Conversation& known = conversations_.remember(record);
          console_.show(Console::Style::plain, named(known) + summaryOf(record, me_));
        }
      }));
}

void Chat::openUser(const std::string& uin) {
  if (uin == me_) throw Complaint("that is you");
  const auto type = std::to_string(koriva::rawValue(KRDefines::GroupType::privateGroup));
  connected()->checkGroup(
      type, {me_, uin},
      requests_.orComplain<KRConversation>("open", [this](const KRConversation& record) {
        openConversation(conversations_.remember(record));
      }));
}

void Chat::openNumber(std::size_t number) {
  Conversation* known = conversations_.at(number);
  if (!known)
    throw Complaint("there is no conversation #" + std::to_string(number) + "; see /list");
  openConversation(*known);
}

void Chat::showHistory(std::int64_t count, bool older) {
  const Conversation& conversation = open();
  const std::string groupID = conversation.record.groupID;
  const std::string before = older ? conversation.oldestShown : "";
  connected()->getListMessage(
      groupID, before, 0, count,
      requests_.orComplain<KRMessageList>(
          "read the history", [this, groupID, count](const KRMessageList& page) {
            for (auto it = page.messages.rbegin(); it != page.messages.rend(); ++it) {
              showMessage(*it);  // the newest comes first
              tellStatus(*it, KRDefines::MessageStatus::seen);
            }
            Conversation* known = conversations_.find(groupID);
            if (known && !page.messages.empty()) {
              known->oldestShown = page.messages.back().messageID;
            }
            const bool isAll = static_cast<std::int64_t>(page.messages.size()) < count;
            note(isAll ? "that is all" : "/history more goes on");
          }));
}

void Chat::sendText(const std::string& text) { send(newMessage(text)); }

void Chat::sendImage(const KRImage& image) {
  KRMessage message = newMessage("");
  message.type = koriva::rawValue(KRMessageType::images);
  message.version = 1;
  message.attachments = KRJSONEncoder{}.encode(KRImageResponse{{image}});
  send(message);
}

void Chat::sendFile(const KRFile& file) {
  KRMessage message = newMessage("");
  message.type = koriva::rawValue(KRMessageType::file);
  message.version = 1;
  message.attachments = KRJSONEncoder{}.encode(KRFileResponse{file});
  send(message);
}

void Chat::tellTyping(bool isTyping) {
  using Kind = KRGroupEventKind;
  const Kind kind = isTyping ? Kind(Kind::StartTyping{}) : Kind(Kind::StopTyping{});
  connected()->sendGroupEvent(me_, {open().record.groupID, kind});
}

void Chat::pin(bool isPinned) {
  connected()->togglePin(open().record.groupID, isPinned,
                         requests_.orComplain("pin", [this, isPinned] {
                           note(isPinned ? "pinned" : "no longer pinned");
                         }));
}

void Chat::mute(bool isMuted) {
  connected()->muteGroup(open().record.groupID, isMuted,
                         requests_.orComplain("mute", [this, isMuted] {
                           note(isMuted ? "muted" : "no longer muted");
                         }));
}

void Chat::createGroup(const std::string& name, const std::vector<std::string>& uins) {
  KRConversation group;
  group.type = koriva::rawValue(KRDefines::GroupType::group);
  group.ownerUin = me_;
  group.occupantsUins = uins;
  group.name = name;
  connected()->createGroup(
      group, "User " + me_, "",
      requests_.orComplain<KRConversation>("create a group", [this](const KRConversation& made) {
        openConversation(conversations_.remember(made));
      }));
}

void Chat::createInvitation() {
  connected()->createJoinGroupLink(
      open().record.groupID,
      requests_.orComplain<std::string>("invite", [this](const std::string& token) {
        note("others can now join: /join " + token);
      }));
}

void Chat::addMembers(const std::vector<std::string>& uins) {
  KRConversation group;
  group.groupID = open().record.groupID;  // a name or owner here would change the group's
  connected()->updateGroup(
      group, uins, std::nullopt,
      requests_.orComplain<KRConversation>("add members", [this](const KRConversation& changed) {
        conversations_.remember(changed);
        note(named(changed.groupID) + " has the members " + joined(changed.occupantsUins));
      }));
}

void Chat::join(const std::string& token) {
  connected()->joinGroupWithLink(
      token,
      requests_.orComplain<KRConversation>("join", [this](const KRConversation& joinedGroup) {
        openConversation(conversations_.remember(joinedGroup));
      }));
}

void Chat::leave() {
  const Conversation& conversation = open();
  const std::string groupID = conversation.record.groupID;
  const auto completion =
      requests_.orComplain<std::string>("leave", [this, groupID](const std::string&) {
        note("you have left " + named(groupID));
        closeConversation(groupID);
      });
  if (conversation.isSecret) {
    connected()->deleteConversation(groupID, true, completion);
  } else {
    connected()->leaveGroup(groupID, completion);
  }
}

void Chat::block(const std::string& uin, bool isBlocked) {
  if (!holds(open().record.occupantsUins, uin)) throw Complaint(uin + " is not in here");
  connected()->handleBlockOrUnblockContact(
      uin, open().record.groupID, isBlocked,
      requests_.orComplain(isBlocked ? "block" : "unblock", [this, uin, isBlocked] {
        note(uin + (isBlocked ? " is blocked" : " is no longer blocked"));
      }));
}

void Chat::listBlocked() {
  connected()->getBlockContactList(
      me_, requests_.orComplain<KRBlockContactList>(
               "list who is blocked", [this](const KRBlockContactList& blocked) {
                 if (blocked.list.empty()) note("you block nobody");
                 for (const KRBlockContact& contact : blocked.list) {
                   note(contact.uin + " is blocked in " + named(contact.group_id));
                 }
               }));
}

void Chat::call(bool withVideo) {
  connected();
  calls_.start(open(), withVideo);
}

void Chat::answer(bool isAccepted) {
  connected();
  calls_.answer(isAccepted);
}

void Chat::hangUp() {
  connected();
  calls_.hangUp();
}

// Real keys come from a cryptographic library, which then encrypts the messages.
void Chat::startSecret(const std::string& uin) {
  if (uin == me_) throw Complaint("that is you");
  connected()->startSecretChat(
      identity_.uin, std::stoll(uin), identity_.deviceId, randomHex(), randomHex(), randomHex(),
      requests_.orComplain<KRConversation>(
          "start a secret chat", [this](const KRConversation& made) {
            Conversation& conversation = conversations_.remember(made);
            conversation.isSecret = true;
            openConversation(conversation);
            note("this example sends random texts as keys, and encrypts nothing");
          }));
}

void Chat::acceptSecret() {
  Conversation* offered = conversations_.find(offeredSecretID_);
  if (!offered) throw Complaint("nobody has offered a secret chat");
  const std::string groupID = offeredSecretID_;
  connected()->acceptSecretChat(identity_.uin, groupID, identity_.deviceId, randomHex(),
                                randomHex(), randomHex(),
                                requests_.orComplain("accept the secret chat", [this, groupID] {
                                  Conversation* accepted = conversations_.find(groupID);
                                  if (accepted) openConversation(*accepted);
                                }));
  offeredSecretID_.clear();
}

void Chat::showStatus() {
  const Conversation* open = conversations_.find(openID_);
  const auto show = [this](const std::string& text) { console_.show(Console::Style::plain, text); };
  show("you: " + me_ + " on device " + identity_.deviceId);
  show("server: " + identity_.url + ", " + explain(KorivaSDK::shared()->connectionState()));
  show("open: " + (open ? named(*open) : "nothing"));
  if (open) show("members: " + joined(open->record.occupantsUins));
  calls_.showState();
}

void Chat::didReceive(const KRMessage& message) {
  Conversation& conversation = conversations_.of(message);
  const bool isOpen = message.groupID == openID_;
  showMessage(message);
  if (!isOpen && message.senderUin != me_) conversation.unseen.push_back(message);
  tellStatus(message, isOpen ? KRDefines::MessageStatus::seen : KRDefines::MessageStatus::received);
}

void Chat::didConnect() {
  note(link_ == Link::lost ? "connected again; /history shows what was missed"
                           : "connected to " + identity_.url + " as " + me_);
  link_ = Link::good;
}

void Chat::connectionDidChange(const KRConnectionState& state) {
  if (link_ == Link::over || state.phase() != KRConnectionState::Phase::waiting) return;
  const bool isNews = std::exchange(link_, Link::lost) != Link::lost || state.cause() != lostBy_;
  lostBy_ = state.cause();
  if (isNews) console_.show(Console::Style::error, "! " + explain(state));
}

void Chat::didReceiveGroupEvent(const KRGroupEvent& event) {
  using Kind = KRGroupEventKind;
  if (const auto* deleted = event.kind.as<Kind::DeleteMessage>()) {
    note("deleted in " + named(event.groupID) + ": " + contentsOf(deleted->message));
  }
  const auto* update = event.kind.as<Kind::UpdateMessage>();
  if (!update || update->message.senderUin != me_) return;
  const KRMessage& message = update->message;
  if (!message.seenUins.empty()) {
    note("seen by " + joined(message.seenUins) + ": " + contentsOf(message));
  } else if (!message.receivedUins.empty()) {
    note("received by " + joined(message.receivedUins) + ": " + contentsOf(message));
  }
}

void Chat::didUpdateUserStatus(const KRUserStatus& status) {
  note(status.uin + " is " + nameOf(status.status()));
}

void Chat::didReceiveNewGroup(const KRConversation& group) {
  note("new conversation: " + named(conversations_.remember(group)));
}

void Chat::didUpdateGroup(const KRConversation& group) {
  Conversation* known = conversations_.find(group.groupID);
  if (known) {
    KRConversation& record = known->record;
    if (!group.name.empty()) record.name = group.name;
    if (!group.ownerUin.empty()) record.ownerUin = group.ownerUin;
    record.occupantsUins = withoutAll(std::move(record.occupantsUins), group.removedUins);
    const auto newcomers = withoutAll(group.addedUins, record.occupantsUins);
    record.occupantsUins.insert(record.occupantsUins.end(), newcomers.begin(), newcomers.end());
  }
  std::string text = named(group.groupID) + " has changed";
  if (!group.addedUins.empty()) text += "; now with " + joined(group.addedUins);
  if (!group.removedUins.empty()) text += "; without " + joined(group.removedUins);
  note(text);
  if (holds(group.removedUins, me_)) closeConversation(group.groupID);
}

void Chat::didDeleteGroup(const std::string& groupID) {
  note(named(groupID) + " was deleted");
  closeConversation(groupID);
}

void Chat::didReceiveError(KRError error) {
  console_.show(Console::Style::error, "! the server says: " + error.localizedDescription());
}

// Typing notices come here too, and only here with the one who types.
void Chat::didReceiveCall(const KRCallEvent& event) {
  const auto* custom = event.as<KRCallEvent::CustomEvent>();
  const std::int64_t type = custom ? custom->event.type : KREvent::EVENT_TYPE_UNKNOWN;
  if (type == KREvent::EVENT_TYPE_MESSAGING_START_TYPING) {
    note(custom->event.senderUin + " is typing in " + named(custom->event.groupId));
  } else if (type == KREvent::EVENT_TYPE_MESSAGING_STOP_TYPING) {
    note(custom->event.senderUin + " has stopped typing");
  } else {
    calls_.handle(event);
  }
}

void Chat::didStartSecretChat(const KRStartSecretChat& info) {
  KRConversation record;
  record.groupID = info.group_id;
  record.type = koriva::rawValue(KRDefines::GroupType::privateGroup);
  record.occupantsUins = {info.uin, me_};
  record.secrets = {
      {info.uin, info.device_id, info.identity_key, info.base_key, info.one_time_pre_key}};
  offeredSecretID_ = info.group_id;
  note(info.uin + " offers a secret chat, " + named(conversations_.remember(record)) +
       ": /secret accept");
}

void Chat::didAcceptSecretChat(const KRAcceptSecretChat& info) {
  note(info.uin + " has accepted " + named(info.group_id));
}

void Chat::didDeleteSecretChat(const KRDeleteSecretChat& info) {
  note(named(info.group_id) + " was deleted");
  closeConversation(info.group_id);
}

void Chat::didBlockContact(const KRBlock& block) {
  note(block.blocked_uin + " was blocked in " + named(block.group_id));
}

void Chat::didUnblockContact(const KRBlock& block) {
  note(block.blocked_uin + " was unblocked in " + named(block.group_id));
}

std::shared_ptr<KorivaSDK> Chat::connected() const {
  auto sdk = KorivaSDK::shared();
  if (!sdk->isConnected()) throw Complaint("not connected at the moment; see /status");
  return sdk;
}

Conversation& Chat::open() {
  Conversation* known = conversations_.find(openID_);
  if (!known) throw Complaint("open a conversation first: /open UIN, or /list and /open #NUMBER");
  return *known;
}

void Chat::openConversation(Conversation& conversation) {
  openID_ = conversation.record.groupID;
  conversation.oldestShown.clear();
  console_.setPrompt(conversation.title(me_) + "> ");
  note("open: " + named(conversation));
  for (const KRMessage& message : std::exchange(conversation.unseen, {})) {
    tellStatus(message, KRDefines::MessageStatus::seen);
  }
}

void Chat::closeConversation(const std::string& groupID) {
  if (groupID != openID_) return;
  openID_.clear();
  console_.setPrompt("> ");
}

/// The id is the nonce by which the server knows a message that is sent twice.
KRMessage Chat::newMessage(const std::string& text) {
  const std::string nonce = noncePrefix_ + std::to_string(++messagesSent_);
  return KRMessage(nonce, open().record.groupID, text, "User " + me_, "", me_, false);
}

void Chat::send(const KRMessage& message) {
  connected()->sendMessage(message,
                           requests_.orComplain<KRMessage>(
                               "send", [this](const KRMessage& sent) { showMessage(sent); }));
}

/// To the sender of a message that was not known to have been seen.
void Chat::tellStatus(const KRMessage& message, KRDefines::MessageStatus status) {
  if (message.senderUin == me_ || holds(message.seenUins, me_)) return;
  KorivaSDK::shared()->updateMessageStatus(message, koriva::rawValue(status), {});
}

void Chat::showMessage(const KRMessage& message) {
  const bool isOwn = message.senderUin == me_;
  const std::string place = message.groupID == openID_ ? "" : named(message.groupID) + " | ";
  console_.show(isOwn ? Console::Style::own : Console::Style::message,
                clockOf(message) + " " + place + message.senderUin + ": " + contentsOf(message));
}

std::string Chat::named(const Conversation& conversation) const {
  return "#" + std::to_string(conversation.number) + " " + conversation.title(me_);
}

std::string Chat::named(const std::string& groupID) {
  const Conversation* known = conversations_.find(groupID);
  return known ? named(*known) : "conversation " + groupID;
}

void Chat::note(const std::string& text) { console_.show(Console::Style::note, "* " + text); }
