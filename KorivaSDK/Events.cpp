#include "KorivaSDK/RequestChannel.h"
#include "KorivaSDK/State.h"

using koriva::socketio::Items;
using koriva::socketio::Status;

namespace {

/// An event of the server, the record that it carries, and what a delegate hears of it.
template <class Record>
struct Push {
  std::string_view event;
  void (*tell)(KorivaDelegate& delegate, const Record& record);
};

struct DeletedGroup {
  std::string groupID;

  template <class R>
  static constexpr auto fields =
      koriva::json::fields(koriva::json::required<&R::groupID>("group_id"));
};

struct ServerError {
  std::int64_t error = 0;

  template <class R>
  static constexpr auto fields = koriva::json::fields(koriva::json::required<&R::error>("error"));
};

std::optional<KRGroupEventKind> typingKind(std::int64_t eventType) {
  if (eventType == KREvent::EVENT_TYPE_MESSAGING_START_TYPING) {
    return KRGroupEventKind::StartTyping{};
  }
  if (eventType == KREvent::EVENT_TYPE_MESSAGING_STOP_TYPING) return KRGroupEventKind::StopTyping{};
  return std::nullopt;
}

std::optional<std::string_view> itemsAsTheyAre(const Items& items) { return items.text(); }

}  // namespace

void KorivaSDK::tellDisconnected() {
  koriva::printLine("KorivaSDK - socket disconnected");
  forEachDelegate([](KorivaDelegate& delegate) { delegate.didDisconnect(); });
}

void KorivaSDK::makeHandlers() {
  auto handlers = std::make_shared<koriva::socketio::Handlers>();
  state_->handlers = handlers;
  const auto on = [&](std::string_view event,
                      std::function<void(KorivaSDK & sdk, const Items& items)> handler) {
    handlers->emplace(event,
                      [weak = weak_from_this(), handler = std::move(handler)](const Items& items) {
                        if (const auto sdk = weak.lock()) handler(*sdk, items);
                      });
  };
  on(koriva::socketio::disconnectEvent,
     [](KorivaSDK& sdk, const Items&) { sdk.tellDisconnected(); });
  on("login", [](KorivaSDK& sdk, const Items& items) {
    const auto data = getDataFromAck(items);
    if (!data) return;
    const auto event = koriva::json::decodeFirst<KRLoginEvent>(*data);
    if (!event || event->result != KRError::expired.code()) return;
    sdk.forEachDelegate(
        [](KorivaDelegate& delegate) { delegate.didReceiveError(KRError::expired); });
  });
  on(koriva::socketio::connectEvent, [](KorivaSDK& sdk, const Items&) {
    koriva::printLine("KorivaSDK - socket connected");
    sdk.state_->isNew = false;
    sdk.state_->isReady = true;
    const auto connection = sdk.state_->lastConnection;
    sdk.completeUndoneTasks();
    // Whoever is called may end the connection: nobody hears of the connect after that.
    sdk.forEachDelegate([&](KorivaDelegate& delegate) {
      if (connection->status() == Status::connected) delegate.didConnect();
    });
  });
  const auto add = [&]<class Record>(Push<Record> push, auto* dataOf) {
    on(push.event, [tell = push.tell, dataOf](KorivaSDK& sdk, const Items& items) {
      const auto data = dataOf(items);
      if (!data) return;
      const auto record = koriva::json::decodeFirst<Record>(*data);
      if (!record) return;
      sdk.forEachDelegate([&](KorivaDelegate& delegate) { tell(delegate, *record); });
    });
  };
  const auto push = [&](auto row) { add(row, getDataFromAck); };
  using Event = KRCallEvent;
  using Kind = KRGroupEventKind;

  push(Push<KRMessage>{"message", [](auto& to, auto& message) { to.didReceive(message); }});
  push(Push<KRMessage>{"update_message", [](auto& to, auto& message) {
                         to.didReceiveGroupEvent({message.groupID, Kind::UpdateMessage{message}});
                       }});
  push(Push<KRMessage>{"delete_message", [](auto& to, auto& message) {
                         to.didReceiveGroupEvent({message.groupID, Kind::DeleteMessage{message}});
                       }});
  push(Push<KRUserStatusResponse>{
      "user_status", [](auto& to, auto& it) { to.didUpdateUserStatus(it.userStatus); }});
  add(Push<DeletedGroup>{"delete_group", [](auto& to, auto& it) { to.didDeleteGroup(it.groupID); }},
      itemsAsTheyAre);
  push(Push<KRConversation>{"group", [](auto& to, auto& group) { to.didReceiveNewGroup(group); }});
  push(Push<KRGroupUpdate>{"update_group",
                           [](auto& to, auto& it) { to.didUpdateGroup(KRConversation(it)); }});
  // The client's own errors come under this name too, as texts.
  add(Push<ServerError>{"error", [](auto& to, auto& it) { to.didReceiveError(KRError(it.error)); }},
      itemsAsTheyAre);
  push(Push<KRCallResponse>{
      "start_call", [](auto& to, auto& it) { to.didReceiveCall(Event::StartCall{it.call}); }});
  push(Push<KRAnswerCall>{"answer_call",
                          [](auto& to, auto& it) { to.didReceiveCall(Event::AnswerCall{it}); }});
  push(Push<KRStopCall>{"stop_call",
                        [](auto& to, auto& it) { to.didReceiveCall(Event::StopCall{it}); }});
  push(Push<KRIceSdp>{"ice_sdp", [](auto& to, auto& it) { to.didReceiveCall(Event::IceSdp{it}); }});
  push(Push<KRIceCandidate>{
      "ice_candidate", [](auto& to, auto& it) { to.didReceiveCall(Event::IceCandidate{it}); }});
  on("event", [](KorivaSDK& sdk, const Items& items) {
    const auto data = getDataFromAck(items);
    if (!data) return;
    const auto event = koriva::json::decodeFirst<KREvent>(*data);
    if (!event) return;
    const auto connection = sdk.state_->lastConnection;
    sdk.forEachDelegate([&](auto& to) { to.didReceiveCall(Event::CustomEvent{*event}); });
    const auto typing = typingKind(event->type);
    if (!typing || connection->status() != koriva::socketio::Status::connected) return;
    sdk.forEachDelegate([&](auto& to) { to.didReceiveGroupEvent({event->groupId, *typing}); });
  });
  // No delegate is told of this one.
  on("delete_conversation", [](KorivaSDK&, const Items& items) {
    const auto data = getDataFromAck(items);
    if (data && koriva::isReadable(*data)) koriva::printLine("delete_conversation");
  });
  push(Push<KRStartSecretChat>{"start_secret_chat",
                               [](auto& to, auto& info) { to.didStartSecretChat(info); }});
  push(Push<KRAcceptSecretChat>{"accept_secret_chat",
                                [](auto& to, auto& info) { to.didAcceptSecretChat(info); }});
  push(Push<KRDeleteSecretChat>{"delete_secret_chat",
                                [](auto& to, auto& info) { to.didDeleteSecretChat(info); }});
  push(Push<KRBlock>{"block_user", [](auto& to, auto& block) { to.didBlockContact(block); }});
  push(Push<KRBlock>{"unblock_user", [](auto& to, auto& block) { to.didUnblockContact(block); }});
}
