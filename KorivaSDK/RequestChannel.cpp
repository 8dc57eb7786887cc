#include "KorivaSDK/RequestChannel.h"

#include <algorithm>
#include <atomic>
#include <boost/json/object.hpp>

#include "KorivaSDK/State.h"
#include "extensions/JSONPrinter.h"
#include "socketio/Platform.h"

using koriva::socketio::Items;

void koriva::printLine(std::string line) {
  static std::atomic<std::size_t> dropped = 0;
  auto missing = dropped.exchange(0);
  if (missing != 0 &&
      platform::writeLine("KorivaSDK - lines dropped: " + std::to_string(missing))) {
    missing = 0;
  }
  if (missing != 0 || !platform::writeLine(std::move(line))) ++missing;
  dropped += missing;
}

void koriva::FailureLine::print(std::string_view sentEvent) const {
  if (!printed) return;
  std::string line("KorivaSDK - ");
  line += event.empty() ? sentEvent : event;
  line += " failed with error: ";
  line += KRError::parsingFailed.localizedDescription();
  printLine(std::move(line));
}

bool koriva::isReadable(std::string_view items) {
  if (koriva::json::firstText(items)) return true;
  koriva::printLine("KorivaSDK - getDataFromAck failed with error: the answer is not JSON");
  return false;
}

namespace {

std::string_view withoutSpaceInFront(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
}

/// Whether the first item is the text that stands for an answer that did not come.
bool isNoAck(std::string_view items) {
  items = withoutSpaceInFront(items);
  if (!items.starts_with(koriva::socketio::noAck)) return false;
  items = withoutSpaceInFront(items.substr(koriva::socketio::noAck.size()));
  return items.empty() || items.front() == ',';
}

}  // namespace

void KorivaSDK::emitEvent(std::string_view event, koriva::Payload&& payload) {
  const auto connection = state_->connection.load();
  if (connection) connection->emit(std::string(event), std::move(payload).text());
}

void KorivaSDK::emitWithAck(std::string_view event, koriva::Payload&& payload, AckHandler onAck) {
  const auto connection = state_->connection.load();
  if (!connection) return;
  connection->emit(std::string(event), std::move(payload).text(), std::move(onAck));
}

std::optional<std::string_view> KorivaSDK::getDataFromAck(const Items& items) {
  const auto text = items.text();
  if (text.empty()) return std::nullopt;
  if (isNoAck(text)) return std::nullopt;
  if (items.firstHoldsBinary) {
    koriva::printLine("KorivaSDK - getDataFromAck failed with error: binary data is not JSON");
    return std::nullopt;
  }
  return text;
}
