#include "KorivaSDK/RequestChannel.h"

#include <algorithm>
#include <atomic>

#include "extensions/JSONPrinter.h"
#include "socketio/Platform.h"

void koriva::printLine(std::string line) {
  if (platform::isForkedChild()) return;
  static std::atomic<std::size_t> dropped = 0;
  auto missing = dropped.exchange(0);
  if (missing != 0 &&
      platform::writeLine("KorivaSDK - lines dropped: " + std::to_string(missing))) {
    missing = 0;
  }
  if (missing != 0 || !platform::writeLine(std::move(line))) ++missing;
  dropped += missing;
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

std::optional<std::string_view> koriva::getDataFromAck(const socketio::Items& items) {
  const auto text = items.text();
  if (text.empty() || isNoAck(text)) return std::nullopt;
  if (items.firstHoldsBinary) {
    printLine("KorivaSDK - getDataFromAck failed with error: binary data is not JSON");
    return std::nullopt;
  }
  return text;
}

bool koriva::isReadable(std::optional<std::string_view> data) {
  if (!data) return false;
  if (json::firstText(*data)) return true;
  printLine("KorivaSDK - getDataFromAck failed with error: the answer is not JSON");
  return false;
}

namespace koriva {

std::shared_ptr<socketio::Connection> RequestChannel::connection() const {
  if (platform::isForkedChild()) return nullptr;
  return std::atomic_load(&connection_);
}

void RequestChannel::setConnection(std::shared_ptr<socketio::Connection> connection) {
  std::atomic_store(&connection_, std::move(connection));
}

void RequestChannel::emit(std::string_view event, Payload&& payload,
                          socketio::Handler onAck) const {
  const auto to = connection();
  if (to) to->emit(std::string(event), std::move(payload).text(), std::move(onAck));
}

void RequestChannel::printFailure(std::string_view name) {
  if (name.empty()) return;
  printLine("KorivaSDK - " + std::string(name) +
            " failed with error: " + KRError::parsingFailed.localizedDescription());
}

}  // namespace koriva
