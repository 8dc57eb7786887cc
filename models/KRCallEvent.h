#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "extensions/RawValue.h"
#include "models/KRCall.h"
#include "models/TaggedVariant.h"

/// An event inside a call. Every key is read leniently.
struct KRStartCall {
  static constexpr std::int64_t EVENT_CALL_TYPE = 2;  ///< `event`: the kind this record is for

  std::string groupID;     ///< the conversation
  std::string callID;      ///< the call
  std::int64_t event = 0;  ///< the kind of event

  bool operator==(const KRStartCall&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A callee's answer. Every key is read leniently.
struct KRAnswerCall {
  static constexpr std::int64_t ANSWER_CALL_UNKNOWN = 0;  ///< `type`: not known
  static constexpr std::int64_t ANSWER_CALL_ACCEPT = 1;   ///< `type`: accepted
  static constexpr std::int64_t ANSWER_CALL_REJECT = 2;   ///< `type`: rejected
  static constexpr std::int64_t ANSWER_CALL_TIMEOUT = 3;  ///< `type`: not answered in time
  static constexpr std::int64_t ANSWER_CALL_FAILED = 4;   ///< `type`: failed

  std::string id;         ///< the call, under "call_id"
  std::string calleeUin;  ///< who answers
  std::int64_t type = 0;  ///< an ANSWER_CALL constant, under "answer"

  bool operator==(const KRAnswerCall&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A party leaves or ends the call. Every key is read leniently.
struct KRStopCall {
  std::string callId;  ///< the call
  std::string uin;     ///< who stops

  bool operator==(const KRStopCall&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A session description. Every key is read leniently.
struct KRIceSdp {
  static constexpr std::int64_t SDP_TYPE_UNKNOWN = 0;  ///< `type`: not known
  static constexpr std::int64_t SDP_TYPE_OFFER = 1;    ///< `type`: an offer
  static constexpr std::int64_t SDP_TYPE_ANSWER = 2;   ///< `type`: an answer

  std::string sdp;        ///< the description, as the media stack wrote it
  std::int64_t type = 0;  ///< an SDP_TYPE constant

  bool operator==(const KRIceSdp&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One connectivity candidate. Every key is read leniently.
struct KRIceCandidate {
  std::string candidate;           ///< the candidate line
  std::string sdpMid;              ///< the media stream's identification
  std::int64_t sdpMlineIndex = 0;  ///< the index of the media line

  bool operator==(const KRIceCandidate&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// A free-form call or typing event between two users. Every key is read leniently.
struct KREvent {
  static constexpr std::int64_t EVENT_TYPE_UNKNOWN = 0;                  ///< not known
  static constexpr std::int64_t EVENT_TYPE_CALL_CANCEL = 1;              ///< call withdrawn
  static constexpr std::int64_t EVENT_TYPE_CALL_AVAILABLE = 2;           ///< ready for the call
  static constexpr std::int64_t EVENT_TYPE_CALL_BUSY = 3;                ///< in another call
  static constexpr std::int64_t EVENT_TYPE_CALL_RECEIVED_EVENT = 4;      ///< event received
  static constexpr std::int64_t EVENT_TYPE_CALL_REQUEST_VIDEO = 5;       ///< video asked for
  static constexpr std::int64_t EVENT_TYPE_CALL_INACTIVE_VIDEO = 6;      ///< video off
  static constexpr std::int64_t EVENT_TYPE_CALL_ACTIVE_VIDEO = 7;        ///< video on
  static constexpr std::int64_t EVENT_TYPE_CALL_CHECKING_AVAILABLE = 8;  ///< ready for a call?
  static constexpr std::int64_t EVENT_TYPE_MESSAGING_START_TYPING = 9;   ///< started to type
  static constexpr std::int64_t EVENT_TYPE_MESSAGING_STOP_TYPING = 10;   ///< stopped typing
  static constexpr std::int64_t EVENT_TYPE_CALL_CONNECTING = 11;         ///< media connecting

  std::string senderUin;    ///< who sends
  std::string receiverUin;  ///< who receives
  std::int64_t type = 0;    ///< an EVENT_TYPE constant
  std::string data;         ///< the application's own text, never a nested object
  std::string groupId;      ///< the conversation
  std::string callId;       ///< the call

  bool operator==(const KREvent&) const = default;
  KR_EXPORT static const koriva::json::Coding coding;  ///< how it travels as JSON
};

/// One step of call signalling. Only ever written: as an object whose one member, named `type()`,
/// is the payload's object.
struct KR_EXPORT KRCallEvent : koriva::TaggedVariant<KRCallEvent> {
  /// "start_call": a call has started.
  struct StartCall {
    KRCall call;  ///< the call
    bool operator==(const StartCall&) const = default;
  };
  /// "create_call": a new call.
  struct CreateCall {
    KRCall call;  ///< the call
    bool operator==(const CreateCall&) const = default;
  };
  /// "answer_call": an answer.
  struct AnswerCall {
    KRAnswerCall answerCall;  ///< the answer
    bool operator==(const AnswerCall&) const = default;
  };
  /// "stop_call": an end.
  struct StopCall {
    KRStopCall stopCall;  ///< who stops what
    bool operator==(const StopCall&) const = default;
  };
  /// "ice_sdp": a session description.
  struct IceSdp {
    KRIceSdp iceSdp;  ///< the description
    bool operator==(const IceSdp&) const = default;
  };
  /// "ice_candidate": a connectivity candidate.
  struct IceCandidate {
    KRIceCandidate iceCandidate;  ///< the candidate
    bool operator==(const IceCandidate&) const = default;
  };
  /// "event": a free-form event.
  struct CustomEvent {
    KREvent event;  ///< the event
    bool operator==(const CustomEvent&) const = default;
  };
  /// "call_event": an event inside a call.
  struct SendEventCall {
    KRStartCall startCall;  ///< the event
    bool operator==(const SendEventCall&) const = default;
  };
  /// The cases, in the order of `Key`.
  using Cases = std::variant<StartCall, CreateCall, AnswerCall, StopCall, IceSdp, IceCandidate,
                             CustomEvent, SendEventCall>;

  /// The names of the cases. Raw values are texts: `koriva::rawValue(Key::startCall)` is
  /// "start_call", and `koriva::fromRawValue<KRCallEvent::Key>("start_call")` the way back.
  enum class Key {
    startCall,      ///< StartCall
    createCall,     ///< CreateCall
    answerCall,     ///< AnswerCall
    stopCall,       ///< StopCall
    iceSdp,         ///< IceSdp
    iceCandindate,  ///< IceCandidate; misspelt, but so written in applications
    customEvent,    ///< CustomEvent
    sendEventCall,  ///< SendEventCall
  };

  /// Why a case could not be coded. Never raised: call events are not decoded.
  enum class CodingError {
    unknownValue,  ///< the case is not known
  };

  Cases value;  ///< the case held

  KRCallEvent() = default;

  /// Holds one of the cases.
  template <koriva::CaseOf<Cases> Case>
  KRCallEvent(Case chosen) : value(std::move(chosen)) {}

  /// Which case it is.
  Key key() const { return static_cast<Key>(value.index()); }

  /// The case's name, which is also the name of the server event that carries it.
  std::string type() const;

  /// The payload's JSON object; empty when it cannot be written.
  KRDictionary toDictionary() const;

  bool operator==(const KRCallEvent&) const = default;
  static const koriva::json::Coding encoding;  ///< how it is written as JSON
};

template <>
inline constexpr auto koriva::cases<KRCallEvent::Key> =
    std::to_array<std::pair<KRCallEvent::Key, std::string_view>>({
        {KRCallEvent::Key::startCall, "start_call"},
        {KRCallEvent::Key::createCall, "create_call"},
        {KRCallEvent::Key::answerCall, "answer_call"},
        {KRCallEvent::Key::stopCall, "stop_call"},
        {KRCallEvent::Key::iceSdp, "ice_sdp"},
        {KRCallEvent::Key::iceCandindate, "ice_candidate"},
        {KRCallEvent::Key::customEvent, "event"},
        {KRCallEvent::Key::sendEventCall, "call_event"},
    });
