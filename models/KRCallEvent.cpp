#include "models/KRCallEvent.h"

#include <boost/json/object.hpp>

#include "extensions/JSONFields.h"

using namespace koriva::json;

namespace {

bool appendPayload(std::string& out, const KRCallEvent& event) {
  return std::visit(
      [&out](const auto& chosen) {
        const auto& [record] = chosen;
        return koriva::json::append(out, record);
      },
      event.value);
}

bool writeEvent(const KRCallEvent& event, std::string& out) {
  out.append("{\"").append(event.type()).append("\":");
  if (!appendPayload(out, event)) return false;
  out += '}';
  return true;
}

}  // namespace

std::string KRCallEvent::type() const { return std::string(koriva::rawValue(key())); }

KRDictionary KRCallEvent::toDictionary() const {
  std::string payload;
  appendPayload(payload, *this);
  return koriva::json::parseDictionary(payload).value_or(KRDictionary());
}

constinit const Coding KRCallEvent::encoding = writtenBy<&writeEvent>;

constinit const Coding KRStartCall::coding =
    lenient<Field<"group_id", &KRStartCall::groupID>, Field<"call_id", &KRStartCall::callID>,
            Field<"event", &KRStartCall::event>>;

constinit const Coding KRAnswerCall::coding =
    lenient<Field<"call_id", &KRAnswerCall::id>, Field<"callee_uin", &KRAnswerCall::calleeUin>,
            Field<"answer", &KRAnswerCall::type>>;

constinit const Coding KRStopCall::coding =
    lenient<Field<"call_id", &KRStopCall::callId>, Field<"uin", &KRStopCall::uin>>;

constinit const Coding KRIceSdp::coding =
    lenient<Field<"sdp", &KRIceSdp::sdp>, Field<"type", &KRIceSdp::type>>;

constinit const Coding KRIceCandidate::coding =
    lenient<Field<"candidate", &KRIceCandidate::candidate>,
            Field<"sdp_mid", &KRIceCandidate::sdpMid>,
            Field<"sdp_mline_index", &KRIceCandidate::sdpMlineIndex>>;

constinit const Coding KREvent::coding =
    lenient<Field<"sender_uin", &KREvent::senderUin>, Field<"receiver_uin", &KREvent::receiverUin>,
            Field<"type", &KREvent::type>, Field<"data", &KREvent::data>,
            Field<"group_id", &KREvent::groupId>, Field<"call_id", &KREvent::callId>>;
