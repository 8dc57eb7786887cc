#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KorivaSDK/KRConnectionOptions.h"
#include "KorivaSDK/KRError.h"
#include "KorivaSDK/KRLog.h"
#include "KorivaSDK/KRResult.h"
#include "KorivaSDK/KRRunLoop.h"
#include "KorivaSDK/KRVersion.h"
#include "KorivaSDK/KorivaDelegate.h"
#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "extensions/RawValue.h"
#include "extensions/StringRewriters.h"
#include "models/KRAttachments.h"
#include "models/KRBlock.h"
#include "models/KRCall.h"
#include "models/KRCallEvent.h"
#include "models/KRConversation.h"
#include "models/KRDefines.h"
#include "models/KRGroupEvent.h"
#include "models/KRGroupLink.h"
#include "models/KRGroupUpdate.h"
#include "models/KRLoginEvent.h"
#include "models/KRMessage.h"
#include "models/KRSecretChat.h"

/// Takes a session token, from any thread; only the first call counts. Empty: there is no new one.
using KRTokenReply = std::function<void(const std::string& token)>;

/// Is asked for a session token, and has to call `reply` with it, now or later.
using KRTokenProvider = std::function<void(KRTokenReply reply)>;

/// The chat client: one session with the chat server, its requests and its pushed events.
///
/// ```cpp
/// auto sdk = KorivaSDK::shared();
/// sdk->addDelegate(std::make_shared<MyDelegate>());
/// sdk->login("session token", 1001, "device id", true);
/// sdk->runNowOrWhenSDKReady([sdk](bool) {
///   KRMessage message("client-side id", "group id", "Hello", "My name", "", "1001", false);
///   sdk->sendMessage(message, [](KRResult<KRMessage> result) {
///     if (!result) std::cerr << result.error().localizedDescription() << '\n';
///   });
/// });
/// KRRunLoop::main().run();
/// ```
///
/// **Threads.** `shared`, `create`, `isConnected`, `connectionState` and the request methods may be
/// called from any thread; everything else belongs to the main thread, the one that drives
/// `KRRunLoop::main()`. Every completion and delegate call runs there, never inside the request
/// method. Calls from one thread take effect in call order: what was sent before `logout()` still
/// arrives, as long as the run loop is driven on: for a moment, or until `KRRunLoop::stop()` was
/// heeded.
///
/// **Completions.** A request never waits for the connection. With no socket (before `login`, after
/// `logout`) it does nothing, and its completion is never called. Otherwise the completion is
/// called at most once: with what the server answered, or with `KRError::parsingFailed` when no
/// usable answer came within 5 seconds, a dropped connection included. Where a method says no
/// more, a refusal of the server and an answer of another kind are failures with `failed`; with a
/// `KRCompletion<bool>` a refusal is a success with false, and an answer of another kind a failure
/// with `parsingFailed`. Where a method says so, an answer that cannot be read calls nothing. An
/// empty completion is tolerated.
///
/// **Connection.** A lost connection is made again within 10 seconds, for as long as there is a
/// socket. **Only `logout()` ends that; `disconnect()` does not.** `connectionState` says why there
/// is none, a token provider keeps the session alive, and `networkDidChange` saves waiting.
/// KRConnectionOptions change the times that are named here.
///
/// **Several accounts.** Each has a client: `create()` makes further ones beside the shared one. To
/// the server they are devices, each on a connection of its own.
///
/// **Console.** Diagnostics are lines on standard output, some with push tokens or the key material
/// of secret chats; the session token is never among them. `koriva::setLogSink` takes them from
/// there, and shortens what is secret.
class KR_EXPORT KorivaSDK : public std::enable_shared_from_this<KorivaSDK> {
  struct Passkey {
    explicit Passkey() = default;
  };

 public:
  /// The one client, made on first use. From any thread.
  static std::shared_ptr<KorivaSDK> shared();

  /// Replaces the one client; null makes the next `shared()` build a fresh one. A client that
  /// somebody still holds keeps working. When the last reference goes, the connection is closed in
  /// the background and completions still awaited are never called. From any thread.
  static void setShared(std::shared_ptr<KorivaSDK> client);

  /// Another client, for one more account. It has a server, a session, delegates and queued tasks
  /// of its own; the run loop, the network and the log are those of all. From any thread.
  ///
  /// It lives as long as somebody holds it, and ends as a shared one does that was replaced. A
  /// delegate hears the client that it was added to; one that is added to several is not told which
  /// it is.
  [[nodiscard]] static std::shared_ptr<KorivaSDK> create();

  /// Not for applications: use `shared()` or `create()`.
  explicit KorivaSDK(Passkey);
  ~KorivaSDK();
  KorivaSDK(const KorivaSDK&) = delete;
  KorivaSDK& operator=(const KorivaSDK&) = delete;

  // Session and connection.

  /// Sets the server: an http, https, ws or wss URL, of which the host and port count. The host is
  /// an IPv4 address, an IPv6 address in brackets and without a zone, or a name: letters, digits,
  /// `-` and `_`, with single dots between and perhaps one at the end. Used from the next `login`
  /// or reconnection on. Returns false, and changes nothing, for any other text.
  bool setBaseUrl(std::string_view url);

  /// Sets how the client connects, from the next `login` or reconnection on. Returns false, and
  /// changes nothing, where an option cannot be: each says what it may be.
  bool setConnectionOptions(const KRConnectionOptions& options);

  /// Stores the identity and connects. `isNew` marks a new device session, which the server is told
  /// until the first connection succeeds. Called again, it replaces the connection; delegates do
  /// not hear of the old one's end.
  void login(const std::string& token, std::int64_t uin, const std::string& deviceId, bool isNew);

  /// The same as `reconnectIfNeed`; the channel is not used.
  void connectChat(const std::string& channelID);

  /// Connects again if there is a socket that is neither connected nor connecting. It is connecting
  /// at once, but dials a quarter of a second after it last did, or failed to, at the earliest.
  void reconnectIfNeed();

  /// What the timer does every 10 seconds: `reconnectIfNeed`.
  void reconnectFired();

  /// Has a provider, which is kept until there is another one, asked for the token before each
  /// attempt to connect again, but for those that `networkDidChange` begins anew, and when the
  /// session has expired: after `didReceiveError(expired)`, and the session goes on over a new
  /// connection then. It is asked on the main thread, may reply at once or within 20 seconds, and
  /// the new token stays; `login` is with the token that it is given. Without a reply, with an
  /// empty token or the same again, and when the provider throws, the client goes on with the token
  /// that it has, which for a session that has expired means that it does nothing. While it waits
  /// for the reply it is connecting; a `login`, `logout` or `disconnect` in between makes the reply
  /// void. An empty provider is none.
  void setTokenProvider(KRTokenProvider provider);

  /// Tells the client that the device is online, perhaps by another network, or offline. Online: it
  /// connects at once if there is no connection, begins an attempt under way anew, and asks the
  /// server of a connection for a sign of life: without one within 3 seconds, the connection is
  /// lost. Offline: an attempt under way ends, and the next one comes as ever.
  void networkDidChange(bool isOnline);

  /// Tells the client that the application comes to the foreground (true): it connects at once if
  /// there is neither a connection nor an attempt, and asks the server for a sign of life as
  /// `networkDidChange` does. With false nothing happens.
  void setForeground(bool isForeground);

  /// Closes the connection, after what was sent before; delegates hear `didDisconnect` before this
  /// returns. **The client connects again within 10 seconds**: to stay away, call `logout()`.
  void disconnect();

  /// Disconnects, removes every delegate and forgets the socket. Queued tasks stay queued. This is
  /// final: nothing that delegates do meanwhile makes a connection, not even a `login`. Log in
  /// again once this has returned.
  void logout();

  /// Whether the server has accepted the connection. From any thread.
  [[nodiscard]] bool isConnected() const;

  /// What is known of the connection: its phase, why it has ended, when the next attempt comes.
  /// From any thread; KorivaDelegate::connectionDidChange tells of changes.
  [[nodiscard]] KRConnectionState connectionState() const;

  /// Runs `task` with true: at once if the client has been connected since the last `disconnect()`,
  /// even if the connection was lost meanwhile; else when it is next connected, in order. What a
  /// waiting task holds, the client among it, lives until then.
  void runNowOrWhenSDKReady(std::function<void(bool)> task);

  /// Adds a delegate, held until `removeDelegate` or `logout`. One that is added twice hears
  /// everything twice.
  void addDelegate(std::shared_ptr<KorivaDelegate> delegate);

  /// Removes every entry of this very object.
  void removeDelegate(const std::shared_ptr<KorivaDelegate>& delegate);

  // Conversations.

  /// A page of the user's conversations, by last message ("list_group").
  void getListConversation(std::int64_t uin, std::int64_t page, std::int64_t pageSize,
                           KRCompletion<KRConversationList> completion = {});

  /// Deletes a conversation ("delete_conversation"), or a secret one ("delete_secret_chat"):
  /// "Success", or the server's error. An answer without a result code calls nothing.
  void deleteConversation(const std::string& conversationId, bool isSecret,
                          KRCompletion<std::string> completion = {});

  /// Mutes or unmutes a conversation ("mute_group", "unmute_group").
  void muteGroup(const std::string& groupID, bool isMute, KRCompletion<bool> completion);

  /// Pins or unpins a conversation ("pin_group", "unpin_group").
  void togglePin(const std::string& groupID, bool isPin, KRCompletion<bool> completion);

  /// The conversation of these users ("check_group"); `groupType` as the server names its types.
  void checkGroup(const std::string& groupType, const std::vector<std::string>& userIds,
                  KRCompletion<KRConversation> completion = {});

  // Messages.

  /// A page of a conversation's history, before `lastMessageID` unless empty ("list_message").
  void getListMessage(const std::string& groupID, const std::string& lastMessageID,
                      std::int64_t page, std::int64_t pageSize,
                      KRCompletion<KRMessageList> completion);

  /// Sends a message ("create_message"). Its `messageID` is the client-side id by which the server
  /// recognises a repetition (failure `duplicate`); success carries the server's copy. Attachments
  /// travel unless `messageType()` is text.
  void sendMessage(const KRMessage& message, KRCompletion<KRMessage> completion);

  /// Sets a message's delivery status ("update_message"), a `KRDefines::MessageStatus` value. Fails
  /// with `failed` when the server refuses, with `parsingFailed` when the answer cannot be read.
  void updateMessageStatus(const KRMessage& message, std::int64_t status,
                           KRCompletion<KRMessage> completion);

  /// Deletes a message for the user or for everybody ("delete_message"): as `deleteConversation`.
  void deleteMessage(const std::string& messageID, const std::string& groupID, bool isDeleteAll,
                     KRCompletion<std::string> completion);

  // Groups and invitation links.

  /// Creates a group ("create_group") of `occupantsUins` and the owner.
  void createGroup(const KRConversation& group, const std::string& senderName,
                   const std::string& senderAvatar, KRCompletion<KRConversation> completion = {});

  /// Changes a group ("update_group"): adds and removes members, and sets the name, avatar and
  /// owner that are not empty.
  void updateGroup(const KRConversation& group,
                   const std::optional<std::vector<std::string>>& addedUins,
                   const std::optional<std::vector<std::string>>& removedUins,
                   KRCompletion<KRConversation> completion = {});

  /// Deletes a group ("delete_group"): as `deleteConversation`.
  void deleteGroup(const std::string& groupID, KRCompletion<std::string> completion = {});

  /// Leaves a group ("leave_group"): as `deleteConversation`.
  void leaveGroup(const std::string& groupID, KRCompletion<std::string> completion = {});

  /// Tells a group that typing has started or stopped ("event"); the server does not answer.
  void sendGroupEvent(const std::string& senderID, const KRGroupEvent& event);

  /// Creates an invitation link ("create_link").
  void createJoinGroupLink(const std::string& groupID, KRCompletion<std::string> completion);

  /// Joins a group by a link's token ("join_link").
  void joinGroupWithLink(const std::string& token, KRCompletion<KRConversation> completion);

  /// Disables a link by its token ("disable_link").
  void disableJoinGroupLink(const std::string& token, KRCompletion<bool> completion);

  /// A page of a group's links ("list_link").
  void getListGroupLink(const std::string& groupID, std::int64_t pageIndex, std::int64_t pageSize,
                        KRCompletion<std::vector<std::string>> completion);

  /// The group that a link's token leads to ("link_group_info").
  void getGroupInfo(const std::string& token, KRCompletion<KRConversation> completion);

  // Contacts, push tokens and logout.

  /// Blocks or unblocks a contact in a conversation ("block_user", "unblock_user").
  void handleBlockOrUnblockContact(const std::string& blockedID, const std::string& groupID,
                                   bool isBlock, KRCompletion<bool> completion);

  /// The contacts that the user has blocked ("blocked_list").
  void getBlockContactList(const std::string& userID,
                           KRCompletion<KRBlockContactList> completion = {});

  /// Registers the device's push token ("register_profile_token"). Success carries the server's
  /// answer as JSON text, whatever it says: indented, or if that is more than 64 KiB without any
  /// white space. The token appears on the console, shortened in a log sink.
  void registerFCMToken(std::int64_t uin, const std::string& token, KRDefines::TokenType type,
                        const std::string& deviceId, KRCompletion<std::string> completion = {});

  /// Unregisters a push token ("unregister_profile_token"), as `registerFCMToken`; the type is not
  /// sent.
  void unregisterFCMToken(std::int64_t uin, const std::string& token, KRDefines::TokenType type,
                          KRCompletion<std::string> completion = {});

  /// Tells the server that the user logs out ("logout"). The connection stays: call `logout()`
  /// after it.
  void sendLogoutEvent(std::int64_t uin, std::int64_t version);

  // Calls.

  /// Creates a call ("create_call"): success carries the server's view of it. For any other event
  /// than a created call, and for an answer that cannot be read, nothing is called.
  void createCall(const KRCallEvent& event, KRCompletion<KRCallEvent> completion = {});

  /// Whether a call is going on ("call_status"); success with false for every other status.
  void checkCall(std::int64_t groupId, std::int64_t callId, KRCompletion<bool> completion = {});

  /// Sends a signalling step of the call `callId` to the other party, under the event's own name.
  /// The server does not answer and the completion is never called.
  void send(const KRCallEvent& event, const std::string& callId, const std::string& groupId,
            const std::string& senderUin, const std::string& receiverUin,
            KRCompletion<KRCallEvent> completion = {});

  // Secret chats. The keys appear on the console, shortened in a log sink, and travel as they are.

  /// Starts a secret chat ("start_secret_chat"): success carries its conversation. Fails
  /// with `failed` when the server refuses, with `parsingFailed` when the answer cannot be read.
  void startSecretChat(std::int64_t senderId, std::int64_t receiverId, const std::string& deviceId,
                       const std::string& identityKey, const std::string& baseKey,
                       const std::string& oneTimePreKey,
                       KRCompletion<KRConversation> completion = {});

  /// Accepts a secret chat ("accept_secret_chat"). Any answer is a success.
  void acceptSecretChat(std::int64_t acceptId, const std::string& groupId,
                        const std::string& deviceId, const std::string& identityKey,
                        const std::string& baseKey, const std::string& oneTimePreKey,
                        KRCompletion<bool> completion = {});

 private:
  struct State;
  std::unique_ptr<State> state_;
};
