#include "Text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <variant>

namespace {

std::string sizeOf(const KRImage& image) {
  if (image.width.value_or(0) == 0 || image.height.value_or(0) == 0) return "";
  return " (" + std::to_string(*image.width) + "x" + std::to_string(*image.height) + ")";
}

std::string textOf(const KRGroupUpdateType& update) {
  using Update = KRGroupUpdateType;
  return std::visit(
      koriva::Overloaded{
          [](const Update::UpdateInfo& it) { return "calls the group \"" + it.name + "\""; },
          [](const Update::AddMembers& it) { return "adds " + joined(it.uins); },
          [](const Update::RemoveMember& it) { return "removes " + it.uin; },
          [](const Update::ChangeOwner& it) { return "makes " + it.uin + " the owner"; }},
      update.value);
}

std::string textOf(const KRCall& call) {
  switch (call.callStatus) {
    case KRCall::CALL_STATUS_ONGOING:
      return "a " + nameOf(call) + ", going on";
    case KRCall::CALL_STATUS_TIMEOUT:
      return "a " + nameOf(call) + " that nobody answered";
    case KRCall::CALL_STATUS_FAILED:
      return "a " + nameOf(call) + " that failed";
    default:
      return "a " + nameOf(call) + ", ended";
  }
}

}  // namespace

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : ", ") + text;
  return result;
}

std::string clockOf(const KRMessage& message) {
  double microseconds = 0;
  std::from_chars(message.createdAt.data(), message.createdAt.data() + message.createdAt.size(),
                  microseconds);
  if (!(microseconds > 0 && microseconds < 1e17)) return "--:--";
  const auto seconds = static_cast<std::time_t>(microseconds / 1e6);
  std::tm time{};
  char text[8];
  const bool known =
      localtime_r(&seconds, &time) && std::strftime(text, sizeof text, "%H:%M", &time);
  return known ? text : "--:--";
}

std::string contentsOf(const KRMessage& message) {
  using Kind = KRMessageKind;
  if (message.isEncrypted) return "[encrypted]";
  return std::visit(
      koriva::Overloaded{
          [&](const Kind::Text&) { return message.message; },
          [](const Kind::Images& it) {
            std::string text = it.images.size() == 1 ? "[image]" : "[images]";
            for (const KRImage& image : it.images) text += " " + image.url + sizeOf(image);
            return text;
          },
          [](const Kind::Video& it) { return "[video] " + it.video.url; },
          [](const Kind::Call& it) { return "[call] " + textOf(it.call); },
          [](const Kind::Audio& it) { return "[audio] " + it.audio.url; },
          [](const Kind::Reply& it) {
            return it.text + " [in reply to: " + contentsOf(*it.message) + "]";
          },
          [](const Kind::GroupUpdate& it) { return "[group] " + textOf(it.groupUpdate); },
          [](const Kind::LeaveGroup&) { return std::string("[group] leaves"); },
          [](const Kind::Forward& it) {
            return it.text + " [forwarded: " + contentsOf(*it.message) + "]";
          },
          [](const Kind::File& it) {
            char size[32];
            std::snprintf(size, sizeof size, "%.15g", it.file.size);
            return "[file] " + it.file.fileName + ", " + size + " bytes, " + it.file.url;
          },
          [](const Kind::Sticker& it) { return "[sticker] " + it.sticker.sticker; },
          [](const Kind::Unknown&) { return std::string("[contents that cannot be read]"); },
          [](const Kind::FirstMessage&) { return std::string("[group] begins the conversation"); },
          [](const Kind::Screenshot&) { return std::string("[has taken a screenshot]"); }},
      message.kind.value);
}

std::string nameOf(KRDefines::OnlineStatus status) {
  switch (status) {
    case KRDefines::OnlineStatus::online:
      return "online";
    case KRDefines::OnlineStatus::offline:
      return "offline";
    case KRDefines::OnlineStatus::idle:
      return "idle";
    case KRDefines::OnlineStatus::invisible:
      return "invisible";
    case KRDefines::OnlineStatus::away:
      return "away";
    case KRDefines::OnlineStatus::busy:
      return "busy";
    case KRDefines::OnlineStatus::unknown:
      break;
  }
  return "in an unknown state";
}

std::string explain(const KRConnectionState& state) {
  using Phase = KRConnectionState::Phase;
  if (state.phase() == Phase::connected) return "connected";
  if (state.phase() == Phase::connecting) {
    return "connecting, attempt " + std::to_string(state.attempt());
  }
  const auto cause = state.cause();
  std::string text = "not connected";
  if (cause == KRConnectionCause::refused) {
    text = "the server refused the session";
  } else if (cause == KRConnectionCause::lost || cause == KRConnectionCause::server) {
    text = "connection lost";
  } else if (cause != KRConnectionCause::none) {
    text += ": " + state.reason();
  }
  if (!state.nextAttempt()) return text;
  const auto left = *state.nextAttempt() - std::chrono::steady_clock::now();
  const auto seconds =
      std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::seconds>(left).count());
  return text + "; trying again in " + std::to_string(seconds) + " s";
}

std::string nameOf(const KRCall& call) {
  return call.mediaType == KRCall::MEDIA_TYPE_VIDEO ? "video call" : "voice call";
}

std::string answerName(std::int64_t answer) {
  switch (answer) {
    case KRAnswerCall::ANSWER_CALL_ACCEPT:
      return "accepted";
    case KRAnswerCall::ANSWER_CALL_REJECT:
      return "declined";
    case KRAnswerCall::ANSWER_CALL_TIMEOUT:
      return "not answered in time";
    case KRAnswerCall::ANSWER_CALL_FAILED:
      return "failed";
    default:
      return "answered";
  }
}
