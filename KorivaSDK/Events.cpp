#include <functional>

#include "KorivaSDK/State.h"

using namespace koriva;
using socketio::Items;
using socketio::Status;

namespace {

struct DeletedGroup {
  std::string groupID;

  static const json::Coding coding;
};

constinit const json::Coding DeletedGroup::coding =
    json::required<json::Field<"group_id", &DeletedGroup::groupID>>;

struct ServerError {
  std::int64_t error = 0;

  static const json::Coding coding;
};

constinit const json::Coding ServerError::coding =
    json::required<json::Field<"error", &ServerError::error>>;

std::optional<KRGroupEventKind> typingKind(std::int64_t eventType) {
  if (eventType == KREvent::EVENT_TYPE_MESSAGING_START_TYPING) {
    return KRGroupEventKind::StartTyping{};
  }
  if (eventType == KREvent::EVENT_TYPE_MESSAGING_STOP_TYPING) return KRGroupEventKind::StopTyping{};
  return std::nullopt;
}

/// The record that a row is about, deduced from how delegates are told of it.
template <class Record>
Record recordOf(void (KorivaDelegate::*)(const Record&));
template <class Tell, class Record>
Record recordOf(void (Tell::*)(KorivaDelegate&, const Record&) const);
template <class Tell>
auto recordOf(Tell) -> decltype(recordOf(&Tell::operator()));

template <class Case, class Record>
constexpr auto asCallEvent =
    [](KorivaDelegate& to, const Record& it) { to.didReceiveCall(Case{it}); };

}  // namespace

void KorivaSDK::addDelegate(std::shared_ptr<KorivaDelegate> delegate) {
  auto delegates = *state_->delegates;
  delegates.push_back(std::move(delegate));
  state_->delegates = std::make_shared<const State::Delegates>(std::move(delegates));
}

void KorivaSDK::removeDelegate(const std::shared_ptr<KorivaDelegate>& delegate) {
  auto delegates = *state_->delegates;
  std::erase(delegates, delegate);
  state_->delegates = std::make_shared<const State::Delegates>(std::move(delegates));
}

socketio::Handlers KorivaSDK::State::makeHandlers() {
  socketio::Handlers made;
  const auto on = [&](std::string_view event, socketio::Handler handler) {
    made.emplace(event, std::move(handler));
  };
  const auto notify = [this](const auto& record, auto tell) {
    if (!record) return;
    forEachDelegate([&](KorivaDelegate& to) { std::invoke(tell, to, *record); });
  };
  const auto push = [&](std::string_view event, auto tell) {
    on(event, [notify, tell](const Items& items) {
      notify(Answer(items).read<decltype(recordOf(tell))>(), tell);
    });
  };
  // Binary beside what is read is no obstacle to these, and not worth a line.
  const auto pushAsItIs = [&](std::string_view event, auto tell) {
    on(event, [notify, tell](const Items& items) {
      notify(json::decodeFirst<decltype(recordOf(tell))>(items.text()), tell);
    });
  };
  using Event = KRCallEvent;
  using Kind = KRGroupEventKind;

  on(socketio::connectEvent, [this](const Items&) {
    isNew = false;
    isReady = true;
    moveToConnected();
    const auto connection = channel.connection();
    printLine(KRLogLevel::info, "KorivaSDK - socket connected");
    if (connection->status() != Status::connected) return;  // a log sink has ended it
    // Taken out before they run, so that a task queued by one of them is kept.
    for (const auto& task : std::exchange(listTasks, {})) {
      guarded([&] { task(true); });
    }
    // Whoever is called may end the connection: nobody hears of the connect after that.
    forEachDelegate([&](KorivaDelegate& to) {
      if (connection->status() == Status::connected) to.didConnect();
    });
    tellChange();
  });
  on(socketio::disconnectEvent, [this](const Items&) { onEnded(lastConnection->ending()); });
  on("login", [this](const Items& items) {
    const auto event = Answer(items).read<KRLoginEvent>();
    if (!event || event->result != KRError::expired.code()) return;
    const auto connection = channel.connection();
    forEachDelegate([](KorivaDelegate& to) { to.didReceiveError(KRError::expired); });
    if (tokenProvider && connection->status() == Status::connected) askForToken();
  });
  on("error", [this, notify](const Items& items) {
    // The client's own errors come under this name too.
    if (const auto text = json::firstText(items.text())) {
      return logLine(KRLogLevel::warning, "KorivaSDK - " + withoutToken(*text));
    }
    notify(
        json::decodeFirst<ServerError>(items.text()),
        [](KorivaDelegate& to, const ServerError& it) { to.didReceiveError(KRError(it.error)); });
  });
  push("user_status", [](KorivaDelegate& to, const KRUserStatusResponse& it) {
    to.didUpdateUserStatus(it.userStatus);
  });

  push("message", &KorivaDelegate::didReceive);
  push("update_message", [](KorivaDelegate& to, const KRMessage& message) {
    to.didReceiveGroupEvent({message.groupID, Kind::UpdateMessage{message}});
  });
  push("delete_message", [](KorivaDelegate& to, const KRMessage& message) {
    to.didReceiveGroupEvent({message.groupID, Kind::DeleteMessage{message}});
  });

  push("group", &KorivaDelegate::didReceiveNewGroup);
  push("update_group", [](KorivaDelegate& to, const KRGroupUpdate& update) {
    to.didUpdateGroup(KRConversation(update));
  });
  pushAsItIs("delete_group", [](KorivaDelegate& to, const DeletedGroup& group) {
    to.didDeleteGroup(group.groupID);
  });
  // No delegate is told of this one.
  on("delete_conversation", [](const Items& items) {
    if (Answer(items).isJson()) printLine(KRLogLevel::debug, "delete_conversation");
  });
  push("block_user", &KorivaDelegate::didBlockContact);
  push("unblock_user", &KorivaDelegate::didUnblockContact);

  push("start_call", [](KorivaDelegate& to, const KRCallResponse& response) {
    to.didReceiveCall(Event::StartCall{response.call});
  });
  push("answer_call", asCallEvent<Event::AnswerCall, KRAnswerCall>);
  push("stop_call", asCallEvent<Event::StopCall, KRStopCall>);
  push("ice_sdp", asCallEvent<Event::IceSdp, KRIceSdp>);
  push("ice_candidate", asCallEvent<Event::IceCandidate, KRIceCandidate>);
  on("event", [this](const Items& items) {
    const auto event = Answer(items).read<KREvent>();
    if (!event) return;
    const auto connection = channel.connection();
    forEachDelegate([&](auto& to) { to.didReceiveCall(Event::CustomEvent{*event}); });
    const auto typing = typingKind(event->type);
    if (!typing || connection->status() != Status::connected) return;
    forEachDelegate([&](auto& to) { to.didReceiveGroupEvent({event->groupId, *typing}); });
  });

  push("start_secret_chat", &KorivaDelegate::didStartSecretChat);
  push("accept_secret_chat", &KorivaDelegate::didAcceptSecretChat);
  push("delete_secret_chat", &KorivaDelegate::didDeleteSecretChat);
  return made;
}
