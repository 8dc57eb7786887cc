#include "Calls.h"

#include <charconv>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "Complaint.h"
#include "Text.h"

namespace {

std::optional<std::int64_t> asInteger(const std::string& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

Calls::Calls(Console& console, Requests& requests, std::string me)
    : console_(console), requests_(requests), me_(std::move(me)) {}

void Calls::start(const Conversation& conversation, bool withVideo) {
  if (state_ != State::none) throw Complaint("there is a call already: " + stateName());
  const auto media = withVideo ? KRCall::MEDIA_TYPE_VIDEO : KRCall::MEDIA_TYPE_AUDIO;
  const auto callees = conversation.others(me_);
  KRCall call("", media, conversation.record.groupID, me_, callees);
  if (conversation.isGroup()) call.type = KRCall::CALL_TYPE_GROUP;
  KorivaSDK::shared()->createCall(
      KRCallEvent::CreateCall{std::move(call)},
      requests_.orComplain<KRCallEvent>("call", [this](const KRCallEvent& created) {
        const auto* it = created.as<KRCallEvent::CreateCall>();
        if (!it) return;
        call_ = it->call;
        peer_ = call_.calleeUins.empty() ? "" : call_.calleeUins.front();
        become(State::dialling);
      }));
}

void Calls::answer(bool isAccepted) {
  if (state_ != State::ringing) throw Complaint("nobody calls");
  sendAnswer(call_,
             isAccepted ? KRAnswerCall::ANSWER_CALL_ACCEPT : KRAnswerCall::ANSWER_CALL_REJECT);
  become(isAccepted ? State::connecting : State::none);
}

void Calls::hangUp() {
  if (state_ == State::none) throw Complaint("there is no call");
  if (state_ == State::ringing) return answer(false);
  send(KRCallEvent::StopCall{{call_.id, me_}});
  become(State::none);
}

void Calls::hangUpQuietly() {
  if (state_ != State::none) hangUp();
}

void Calls::handle(const KRCallEvent& event) {
  using Event = KRCallEvent;
  std::visit(koriva::Overloaded{[&](const Event::StartCall& it) { handle(it.call); },
                                [&](const Event::CreateCall& it) { handle(it.call); },
                                [&](const Event::AnswerCall& it) { handle(it.answerCall); },
                                [&](const Event::StopCall& it) { handle(it.stopCall); },
                                [&](const Event::IceSdp& it) { handle(it.iceSdp); },
                                [&](const Event::IceCandidate& it) { handle(it.iceCandidate); },
                                [&](const Event::CustomEvent& it) { handle(it.event); },
                                [&](const Event::SendEventCall& it) { handle(it.startCall); }},
             event.value);
}

void Calls::handle(const KRCall& call) {
  if (state_ != State::none) {
    note(call.callerUin + " calls too, and is told that you are busy");
    return sendAnswer(call, KRAnswerCall::ANSWER_CALL_REJECT);
  }
  call_ = call;
  peer_ = call.callerUin;
  become(State::ringing);
}

void Calls::handle(const KRAnswerCall& answer) {
  note("call " + answer.id + ": " + answerName(answer.type) + " by " + answer.calleeUin);
  if (state_ == State::none || answer.id != call_.id) return;
  const bool isAccepted = answer.type == KRAnswerCall::ANSWER_CALL_ACCEPT;
  if (answer.calleeUin == me_) return become(State::none);  // on another device of this user
  if (isAccepted && call_.callerUin == me_) {
    peer_ = answer.calleeUin;
    become(State::connecting);
    sendDescription(KRIceSdp::SDP_TYPE_OFFER);
  } else if (!isAccepted && call_.type != KRCall::CALL_TYPE_GROUP) {
    become(State::none);
  }
}

void Calls::handle(const KRStopCall& stop) {
  note("call " + stop.callId + ": ended by " + stop.uin);
  if (state_ == State::none || stop.callId != call_.id) return;
  const bool isOver = call_.type != KRCall::CALL_TYPE_GROUP || stop.uin == call_.callerUin;
  if (isOver || stop.uin == me_) become(State::none);
}

void Calls::handle(const KRIceSdp& description) {
  const bool isOffer = description.type == KRIceSdp::SDP_TYPE_OFFER;
  note(isOffer ? "session description: an offer" : "session description: an answer");
  if (state_ != State::connecting) return;
  if (isOffer) sendDescription(KRIceSdp::SDP_TYPE_ANSWER);
  sendCandidate();
  become(State::connected);
}

void Calls::handle(const KRIceCandidate& candidate) {
  note("connectivity candidate: " + candidate.candidate);
}

void Calls::handle(const KREvent& event) {
  note("event " + std::to_string(event.type) + " from " + event.senderUin +
       (event.data.empty() ? "" : ": " + event.data));
}

void Calls::handle(const KRStartCall& event) {
  note("call " + event.callID + ": event " + std::to_string(event.event));
}

void Calls::showState() {
  console_.show(Console::Style::plain, "call: " + stateName());
  if (state_ == State::none) return;
  const auto groupId = asInteger(call_.groupID);
  const auto callId = asInteger(call_.id);
  if (!groupId || !callId) return;  // the server is asked by integers
  KorivaSDK::shared()->checkCall(
      *groupId, *callId, requests_.orComplain<bool>("ask about the call", [this](bool isOngoing) {
        console_.show(Console::Style::plain, std::string("call, as the server sees it: ") +
                                                 (isOngoing ? "going on" : "over"));
      }));
}

void Calls::send(const KRCallEvent& event) {
  KorivaSDK::shared()->send(event, call_.id, call_.groupID, me_, peer_);
}

void Calls::sendAnswer(const KRCall& call, std::int64_t answer) {
  KorivaSDK::shared()->send(KRCallEvent::AnswerCall{{call.id, me_, answer}}, call.id, call.groupID,
                            me_, call.callerUin);
}

void Calls::sendDescription(std::int64_t type) {
  send(KRCallEvent::IceSdp{{"v=0\r\ns=placeholder\r\n", type}});
}

void Calls::sendCandidate() {
  send(KRCallEvent::IceCandidate{{"candidate:1 1 udp 1 192.0.2.1 9 typ host", "0", 0}});
}

void Calls::become(State state) {
  const bool isOver = state == State::none;
  const std::string before = nameOf(call_) + " " + call_.id;
  state_ = state;
  note(isOver ? before + " is over" : stateName());
}

std::string Calls::stateName() const {
  const std::string call = nameOf(call_) + " " + call_.id;
  switch (state_) {
    case State::dialling:
      return call + " to " + joined(call_.calleeUins) + ": ringing there";
    case State::ringing:
      return call + " from " + call_.callerUin + ": /answer or /hangup";
    case State::connecting:
      return call + " with " + peer_ + ": connecting";
    case State::connected:
      return call + " with " + peer_ + ": connected";
    case State::none:
      break;
  }
  return "none";
}

void Calls::note(const std::string& text) { console_.show(Console::Style::note, "* " + text); }
