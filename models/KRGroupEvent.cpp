#include "models/KRGroupEvent.h"

#include "models/KRCallEvent.h"

std::int64_t KRGroupEventKind::type() const {
  if (as<StartTyping>()) return KREvent::EVENT_TYPE_MESSAGING_START_TYPING;
  if (as<StopTyping>()) return KREvent::EVENT_TYPE_MESSAGING_STOP_TYPING;
  return KREvent::EVENT_TYPE_UNKNOWN;
}

bool KRGroupEventKind::writeJson(const KRGroupEventKind& kind, std::string& out) {
  out.append("{\"type\":").append(std::to_string(kind.type())).append("}");
  return true;
}
