#include "models/KRGroupEvent.h"

#include "extensions/JSONFields.h"
#include "models/KRCallEvent.h"

using namespace koriva::json;

std::int64_t KRGroupEventKind::type() const {
  if (as<StartTyping>()) return KREvent::EVENT_TYPE_MESSAGING_START_TYPING;
  if (as<StopTyping>()) return KREvent::EVENT_TYPE_MESSAGING_STOP_TYPING;
  return KREvent::EVENT_TYPE_UNKNOWN;
}

namespace {

bool writeKind(const KRGroupEventKind& kind, std::string& out) {
  out.append("{\"type\":").append(std::to_string(kind.type())).append("}");
  return true;
}

}  // namespace

constinit const Coding KRGroupEventKind::encoding = writtenBy<&writeKind>;

constinit const Coding KRGroupEvent::encoding =
    lenient<Field<"groupID", &KRGroupEvent::groupID>, Field<"kind", &KRGroupEvent::kind>>;
