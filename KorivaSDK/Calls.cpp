#include <boost/json/object.hpp>

#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"

using namespace koriva;

namespace {

struct CallStatus {
  std::int64_t status = 0;

  static const json::Coding coding;
};

constinit const json::Coding CallStatus::coding =
    json::required<json::Field<"status", &CallStatus::status>>;

constexpr auto decodeOngoing = decodeWhether(&CallStatus::status, KRCall::CALL_STATUS_ONGOING);

Decoded<KRCallEvent> decodeCreatedCall(Answer& answer) {
  auto response = answer.read<KRCallResponse>();
  if (!response) return std::nullopt;
  return KRResult<KRCallEvent>::success(KRCallEvent::CreateCall{std::move(response->call)});
}

Decoded<KRCallEvent> ignoreAnswer(Answer&) { return std::nullopt; }

}  // namespace

// Its failures are looked for in logs as those of "create_message".
void KorivaSDK::createCall(const KRCallEvent& event, KRCompletion<KRCallEvent> completion) {
  const bool isNewCall = event.as<KRCallEvent::CreateCall>() != nullptr;
  state_->channel.request(rawValue(event.key()), event.toDictionary(),
                          isNewCall ? decodeCreatedCall : ignoreAnswer, std::move(completion),
                          "create_message");
}

void KorivaSDK::checkCall(std::int64_t groupId, std::int64_t callId,
                          KRCompletion<bool> completion) {
  state_->channel.request("call_status", {{"group_id", groupId}, {"call_id", callId}},
                          decodeOngoing, std::move(completion));
}

void KorivaSDK::send(const KRCallEvent& event, const std::string& callId,
                     const std::string& groupId, const std::string& senderUin,
                     const std::string& receiverUin,
                     // NOLINTNEXTLINE(performance-unnecessary-value-param): as in all requests
                     KRCompletion<KRCallEvent> /*completion*/) {
  using Event = KRCallEvent;
  auto payload = std::visit(
      Overloaded{
          [&](const Event::StopCall&) -> Payload {
            return {{"group_id", groupId}, {"call_id", callId}, {"uin", senderUin}};
          },
          [&](const Event::IceSdp& it) -> Payload {
            return {{"group_id", groupId},     {"call_id", callId},
                    {"sender_uin", senderUin}, {"receiver_uin", receiverUin},
                    {"type", it.iceSdp.type},  {"sdp", it.iceSdp.sdp}};
          },
          [&](const Event::IceCandidate& it) -> Payload {
            return {{"group_id", groupId},
                    {"call_id", callId},
                    {"sender_uin", senderUin},
                    {"receiver_uin", receiverUin},
                    {"candidate", it.iceCandidate.candidate},
                    {"sdp_mid", it.iceCandidate.sdpMid},
                    {"sdp_mline_index", it.iceCandidate.sdpMlineIndex}};
          },
          [&](const Event::AnswerCall& it) -> Payload {
            return {{"group_id", groupId},
                    {"call_id", callId},
                    {"callee_uin", it.answerCall.calleeUin},
                    {"answer", it.answerCall.type}};
          },
          [&](const Event::CustomEvent& it) -> Payload {
            return {{"group_id", groupId},
                    {"sender_uin", senderUin},
                    {"receiver_uin", receiverUin},
                    {"type", it.event.type},
                    {"data", it.event.data}};
          },
          [&](const Event::SendEventCall& it) -> Payload {
            return {{"group_id", groupId}, {"call_id", callId}, {"event", it.startCall.event}};
          },
          [](const auto&) { return Payload{}; },
      },
      event.value);
  state_->channel.emit(event.type(), std::move(payload));
}
