#pragma once

#include <string>

#include "KorivaSDK/KRConnectionState.h"
#include "KorivaSDK/KRError.h"
#include "extensions/KRExport.h"
#include "models/KRBlock.h"
#include "models/KRCallEvent.h"
#include "models/KRConversation.h"
#include "models/KRDefines.h"
#include "models/KRGroupEvent.h"
#include "models/KRMessage.h"
#include "models/KRSecretChat.h"

/// Hears what the server pushes. Override what is of interest; everything else does nothing.
///
/// All calls come on the thread that drives KRRunLoop::main(), one after the other, in the order
/// in which the delegates were added. Records live for the time of the call: copy what is kept.
/// Delegates may be added and removed, and requests made, from inside a call. One that is removed
/// during an event still hears that event (of an event that makes two calls, the one under way);
/// one that is added hears the next.
class KR_EXPORT KorivaDelegate {
 public:
  virtual ~KorivaDelegate() = default;

  /// A new message; server event "message".
  virtual void didReceive([[maybe_unused]] const KRMessage& message) {}

  /// The server has accepted the connection, the first or a new one. The tasks that waited for it
  /// come first. When they, or a delegate called before, end the connection, this is not called.
  virtual void didConnect() {}

  /// The connection is lost or was closed, or an attempt has failed.
  virtual void didDisconnect() {}

  /// A message was updated or deleted, or somebody types; server events "update_message",
  /// "delete_message" and "event".
  virtual void didReceiveGroupEvent([[maybe_unused]] const KRGroupEvent& event) {}

  /// A user's presence has changed; server event "user_status".
  virtual void didUpdateUserStatus([[maybe_unused]] const KRUserStatus& status) {}

  /// A new conversation; server event "group".
  virtual void didReceiveNewGroup([[maybe_unused]] const KRConversation& group) {}

  /// A conversation has changed; it holds just what the update tells. Server event "update_group".
  virtual void didUpdateGroup([[maybe_unused]] const KRConversation& group) {}

  /// A group was deleted; server event "delete_group".
  virtual void didDeleteGroup([[maybe_unused]] const std::string& groupID) {}

  /// The server reports an error (event "error") or an expired session (event "login").
  virtual void didReceiveError([[maybe_unused]] KRError error) {}

  /// A step of call signalling; server events "start_call", "answer_call", "stop_call", "ice_sdp",
  /// "ice_candidate" and "event" (typing notices too, before didReceiveGroupEvent()).
  virtual void didReceiveCall([[maybe_unused]] const KRCallEvent& event) {}

  /// Reserved: the client does not call it.
  virtual void didDeleteConversation([[maybe_unused]] const std::string& conversationId) {}

  /// A user starts a secret chat; server event "start_secret_chat".
  virtual void didStartSecretChat([[maybe_unused]] const KRStartSecretChat& info) {}

  /// A user has accepted a secret chat; server event "accept_secret_chat".
  virtual void didAcceptSecretChat([[maybe_unused]] const KRAcceptSecretChat& info) {}

  /// A secret chat was deleted; server event "delete_secret_chat".
  virtual void didDeleteSecretChat([[maybe_unused]] const KRDeleteSecretChat& info) {}

  /// A contact was blocked; server event "block_user".
  virtual void didBlockContact([[maybe_unused]] const KRBlock& block) {}

  /// A contact was unblocked; server event "unblock_user".
  virtual void didUnblockContact([[maybe_unused]] const KRBlock& block) {}

  /// The connection has changed: as `KorivaSDK::connectionState()`. After `didConnect` and
  /// `didDisconnect` of the same moment; also when an attempt begins, soon after the method that
  /// begins it has returned, and when `logout` ends the session. A state that is over before it
  /// could be told is left out.
  virtual void connectionDidChange([[maybe_unused]] const KRConnectionState& state) {}
};
