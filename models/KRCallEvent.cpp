#include "models/KRCallEvent.h"

#include <boost/json/object.hpp>

namespace {

bool appendPayload(std::string& out, const KRCallEvent& event) {
  return std::visit(
      [&out](const auto& chosen) {
        const auto& [record] = chosen;
        return koriva::json::append(out, record);
      },
      event.value);
}

}  // namespace

std::string KRCallEvent::type() const { return std::string(koriva::rawValue(key())); }

KRDictionary KRCallEvent::toDictionary() const {
  std::string payload;
  appendPayload(payload, *this);
  return koriva::json::parseDictionary(payload).value_or(KRDictionary());
}

bool KRCallEvent::writeJson(const KRCallEvent& event, std::string& out) {
  out.append("{\"").append(event.type()).append("\":");
  if (!appendPayload(out, event)) return false;
  out += '}';
  return true;
}
