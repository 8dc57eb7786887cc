#include "KorivaSDK/RequestChannel.h"

#include <atomic>
#include <boost/json/error.hpp>

#include "socketio/Platform.h"

namespace koriva {

Answer::Answer(const socketio::Items& items) : items_(items.text()) {
  if (items_.empty() || json::isFirstText(items_, socketio::noAck)) {
    state_ = State::missing;
  } else if (items.firstHoldsBinary) {
    state_ = State::missing;
    printProblem("binary data is not JSON");
  }
}

bool Answer::isJson() {
  if (state_ == State::unread) state_ = json::areItems(items_) ? State::read : State::notJson;
  return state_ == State::read;
}

std::optional<std::string> Answer::prettyPrinted() {
  if (state_ == State::missing) return std::nullopt;
  auto text = json::prettyPrinted(items_);
  state_ = text ? State::read : State::notJson;
  return text;
}

bool Answer::isUnusable(bool hasOutcome) {
  if (isJson()) return false;
  if (state_ == State::notJson) printProblem("the answer is not JSON");
  if (state_ == State::tooLarge) printProblem("there is no memory for the answer");
  return !hasOutcome || state_ != State::tooLarge;
}

void Answer::note(boost::system::error_code error) {
  if (!error || error == boost::json::error::not_object) {
    state_ = State::read;
  } else {
    const bool isTooLarge = error == boost::system::errc::not_enough_memory;
    state_ = isTooLarge ? State::tooLarge : State::notJson;
  }
}

void Answer::printProblem(const char* problem) {
  printLine(KRLogLevel::warning,
            std::string("KorivaSDK - getDataFromAck failed with error: ") + problem);
}

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
  if (to) to->emit(std::string(event), std::move(payload).frame(), std::move(onAck));
}

void RequestChannel::printFailure(std::string_view name) {
  if (name.empty()) return;
  printLine(KRLogLevel::warning, "KorivaSDK - " + std::string(name) + " failed with error: " +
                                     KRError::parsingFailed.localizedDescription());
}

}  // namespace koriva
