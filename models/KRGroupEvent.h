#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "extensions/JSONCoding.h"
#include "extensions/KRExport.h"
#include "models/KRMessage.h"
#include "models/TaggedVariant.h"

/// What happens in a group. Only ever written, as its `type()` alone.
struct KR_EXPORT KRGroupEventKind : koriva::TaggedVariant<KRGroupEventKind> {
  /// A message has changed.
  struct UpdateMessage {
    KRMessage message;  ///< the message as it is now
    bool operator==(const UpdateMessage&) const = default;
  };
  /// A message was deleted.
  struct DeleteMessage {
    KRMessage message;  ///< the message
    bool operator==(const DeleteMessage&) const = default;
  };
  /// Somebody has started to type.
  struct StartTyping {
    bool operator==(const StartTyping&) const = default;
  };
  /// Somebody has stopped typing.
  struct StopTyping {
    bool operator==(const StopTyping&) const = default;
  };
  /// The cases.
  using Cases = std::variant<UpdateMessage, DeleteMessage, StartTyping, StopTyping>;

  Cases value;  ///< the case held

  KRGroupEventKind() = default;

  /// Holds one of the cases.
  template <koriva::CaseOf<Cases> Case>
  KRGroupEventKind(Case chosen) : value(std::move(chosen)) {}

  /// The `KREvent` type of a typing event; `KREvent::EVENT_TYPE_UNKNOWN` for the others.
  std::int64_t type() const;

  bool operator==(const KRGroupEventKind&) const = default;
  static const koriva::json::Coding encoding;  ///< how it is written as JSON
};

/// A passing event in a group. Only ever written, under camel-case keys.
struct KRGroupEvent {
  std::string groupID;                                      ///< the conversation
  KRGroupEventKind kind = KRGroupEventKind::StartTyping{};  ///< what happens

  bool operator==(const KRGroupEvent&) const = default;
  KR_EXPORT static const koriva::json::Coding encoding;  ///< how it is written as JSON
};
