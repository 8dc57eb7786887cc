#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Calls.h"
#include "Console.h"
#include "Conversations.h"
#include "Requests.h"

/// One user's side of the chat: makes the requests that the commands ask for, and shows what they
/// bring and what the server pushes. What cannot be done throws a Complaint.
class Chat : public KorivaDelegate {
 public:
  struct Identity {
    std::string url;
    std::int64_t uin = 0;
    std::string token;
    std::string deviceId;
    bool isNew = false;
  };

  Chat(Console& console, Identity identity);

  void begin();

  /// To be followed by `end()` when idle, so that what was sent last is not lost.
  void sayGoodbye();
  void end();

  /// Whether the requests made so far have come to their end.
  bool isIdle() const { return requests_.isIdle(); }

  // What the commands do. Most need an open conversation.
  void list(std::int64_t page);
  void openUser(const std::string& uin);
  void openNumber(std::size_t number);
  void showHistory(std::int64_t count, bool older);
  void sendText(const std::string& text);
  void sendImage(const KRImage& image);
  void sendFile(const KRFile& file);
  void tellTyping(bool isTyping);
  void pin(bool isPinned);
  void mute(bool isMuted);
  void createGroup(const std::string& name, const std::vector<std::string>& uins);
  void createInvitation();
  void addMembers(const std::vector<std::string>& uins);
  void join(const std::string& token);
  void leave();
  void block(const std::string& uin, bool isBlocked);
  void listBlocked();
  void call(bool withVideo);
  void answer(bool isAccepted);
  void hangUp();
  void startSecret(const std::string& uin);
  void acceptSecret();
  void showStatus();

  void didReceive(const KRMessage& message) override;
  void didConnect() override;
  void connectionDidChange(const KRConnectionState& state) override;
  void didReceiveGroupEvent(const KRGroupEvent& event) override;
  void didUpdateUserStatus(const KRUserStatus& status) override;
  void didReceiveNewGroup(const KRConversation& group) override;
  void didUpdateGroup(const KRConversation& group) override;
  void didDeleteGroup(const std::string& groupID) override;
  void didReceiveError(KRError error) override;
  void didReceiveCall(const KRCallEvent& event) override;
  void didStartSecretChat(const KRStartSecretChat& info) override;
  void didAcceptSecretChat(const KRAcceptSecretChat& info) override;
  void didDeleteSecretChat(const KRDeleteSecretChat& info) override;
  void didBlockContact(const KRBlock& block) override;
  void didUnblockContact(const KRBlock& block) override;

 private:
  enum class Link { none, good, lost, over };

  std::shared_ptr<KorivaSDK> connected() const;
  Conversation& open();
  void openConversation(Conversation& conversation);
  void closeConversation(const std::string& groupID);
  KRMessage newMessage(const std::string& text);
  void send(const KRMessage& message);
  void tellStatus(const KRMessage& message, KRDefines::MessageStatus status);
  void showMessage(const KRMessage& message);
  std::string named(const Conversation& conversation) const;
  std::string named(const std::string& groupID);
  void note(const std::string& text);

  Console& console_;
  Identity identity_;
  std::string me_;
  Requests requests_;
  Calls calls_;
  Conversations conversations_;
  std::string openID_;
  std::string offeredSecretID_;
  std::string noncePrefix_;
  std::uint64_t messagesSent_ = 0;
  Link link_ = Link::none;
  KRConnectionCause lostBy_{};
};
