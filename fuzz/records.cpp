// Reading and writing of the records. The first byte of the input chooses one of them ("A" is the
// first), the rest is its JSON.

#include <array>
#include <boost/json/error.hpp>

#include "extensions/JSONItems.h"
#include "fuzz/Judge.h"
#include "fuzz/Referee.h"
#include "models/KRAttachments.h"
#include "models/KRBlock.h"
#include "models/KRCall.h"
#include "models/KRCallEvent.h"
#include "models/KRConversation.h"
#include "models/KRDefines.h"
#include "models/KRGroupLink.h"
#include "models/KRGroupUpdate.h"
#include "models/KRLoginEvent.h"
#include "models/KRMessage.h"
#include "models/KRSecretChat.h"

using koriva::fuzz::require;
using koriva::fuzz::Value;

namespace {

/// How often a record is read and written until its text must have settled. A message's creation
/// time is multiplied whenever it is read, from the smallest double up to where it is let be.
constexpr int once = 1;
constexpr int untilTimesSettle = 110;

/// What is read from a value, by the referee.
template <class Record>
std::optional<Record> expected(const Value& value) {
  std::optional<Record> record(std::in_place);
  if (!koriva::fuzz::fill(Record::coding, &*record, value)) record.reset();
  return record;
}

template <>
std::optional<KRMessageKind> expected(const Value& value) {
  const auto message = expected<KRMessage>(value);
  if (!message || message->kind.as<KRMessageKind::Unknown>()) return std::nullopt;
  return message->kind;
}

struct Update {
  std::optional<std::vector<std::string>> addedUins;
  std::optional<std::string> removedUin;
  std::optional<std::string> ownerUin;
  std::string name;
  std::string avatar;

  static const koriva::json::Coding coding;
};

using koriva::json::Field;
constinit const koriva::json::Coding Update::coding = koriva::json::lenient<
    Field<"added_uins", &Update::addedUins>, Field<"removed_uin", &Update::removedUin>,
    Field<"owner_uin", &Update::ownerUin>, Field<"updated_group_name", &Update::name>,
    Field<"updated_group_avatar", &Update::avatar>>;

template <>
std::optional<KRGroupUpdateType> expected(const Value& value) {
  const auto update = expected<Update>(value);
  if (!update) return std::nullopt;
  if (update->addedUins) return KRGroupUpdateType::AddMembers{*update->addedUins};
  if (update->removedUin) return KRGroupUpdateType::RemoveMember{*update->removedUin};
  if (update->ownerUin) return KRGroupUpdateType::ChangeOwner{*update->ownerUin};
  return KRGroupUpdateType::UpdateInfo{update->name, update->avatar};
}

template <class Record>
std::string written(const Record& record) {
  std::string text;
  require(koriva::json::append(text, record), "what was read can be written");
  return text;
}

template <class Record>
void judge(const boost::system::result<Record>& read, std::string_view json, const Value* value) {
  if (read.has_error() && read.error() == boost::system::errc::not_enough_memory) {
    constexpr std::size_t smallest = 2'048;
    require(json.size() > smallest, "small documents are read");
    return;
  }
  const auto wanted = value ? expected<Record>(*value) : std::nullopt;
  require(read.has_value() == wanted.has_value(), "what can be read is read, and nothing else");
  if (read) {
    require(*read == *wanted && written(*read) == written(*wanted), "a record is what JSON says");
  } else {
    require((read.error() == boost::json::error::not_object) == (value != nullptr),
            "what is no JSON is told from what is something else");
  }
}

template <class Record>
auto readAndJudge(std::string_view json) {
  auto read = koriva::fuzz::readInMemory(json.size(),
                                         [json] { return koriva::json::decode<Record>(json); });
  const auto document = koriva::fuzz::parse(json);
  if (document.isKnown) judge(read, json, document.value ? &*document.value : nullptr);
  return read;
}

template <class Record>
void judgeFirst(std::string_view items) {
  if (Record::coding.read) return;  // no item is one
  const auto read = koriva::fuzz::readInMemory(
      items.size(), [items] { return koriva::json::decodeFirst<Record>(items); });
  const auto list = koriva::fuzz::parseItems(items);
  if (list.isKnown) judge(read, items, list.value ? &list.value->elements.front() : nullptr);
}

template <class Record, int rounds>
void check(std::string_view json) {
  const auto record = readAndJudge<Record>(json);
  judgeFirst<Record>(json);
  if (!record) return;
  const auto copy = *record;
  require(copy == *record, "a copy is equal");

  std::string text = written(*record);
  for (int round = 0; round <= rounds; ++round) {
    const auto again = koriva::json::decode<Record>(text);
    require(again.has_value(), "what was written can be read");
    std::string next = written(*again);
    if (next == text) return;
    text = std::move(next);
    require(round + 1 < rounds, "a record that was written reads the same");
  }
}

/// It is read from a whole message, but not written as one.
void checkKind(std::string_view json) {
  if (const auto kind = readAndJudge<KRMessageKind>(json)) written(*kind);
}

// New records come last, so that the inputs at hand keep their meaning.
constexpr std::array checks{
    check<KRMessage, untilTimesSettle>,
    check<KRMessageList, untilTimesSettle>,
    check<KRMessageResponse, untilTimesSettle>,
    check<KRConversation, untilTimesSettle>,
    check<KRConversationList, untilTimesSettle>,
    check<KRConversationResponse, untilTimesSettle>,
    check<KRSecretChatResponse, untilTimesSettle>,
    check<KRLastActiveMessage, once>,
    check<KRGroupMessageStatus, once>,
    check<KRGroupUpdate, once>,
    check<KRGroupUpdateType, once>,
    check<KRImage, once>,
    check<KRVideo, once>,
    check<KRAudio, once>,
    check<KRFile, once>,
    check<KRSticker, once>,
    check<KRImageResponse, once>,
    check<KRImageURLsResponse, once>,
    check<KRVideoResponse, once>,
    check<KRAudioResponse, once>,
    check<KRFileResponse, once>,
    check<KRStickerResponse, once>,
    check<KRCall, once>,
    check<KRCallResponse, once>,
    check<KRStartCall, once>,
    check<KRAnswerCall, once>,
    check<KRStopCall, once>,
    check<KRIceSdp, once>,
    check<KRIceCandidate, once>,
    check<KREvent, once>,
    check<KRBlock, once>,
    check<KRBlockContact, once>,
    check<KRBlockContactList, once>,
    check<KRGroupLinkResponse, once>,
    check<KRListGroupLinkResponse, once>,
    check<KRSecretChat, once>,
    check<KRStartSecretChat, once>,
    check<KRAcceptSecretChat, once>,
    check<KRDeleteSecretChat, once>,
    check<KRUserStatus, once>,
    check<KRUserStatusResponse, once>,
    check<KRLoginEvent, once>,
    checkKind,
};

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  if (input.empty()) return;
  const auto chosen = static_cast<unsigned char>(input.front() - 'A');
  checks[chosen % checks.size()](input.substr(1));
}
