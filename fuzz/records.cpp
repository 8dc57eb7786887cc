// Reading and writing of the records. The first byte of the input chooses one of them ("A" is the
// first), the rest is its JSON.

#include <algorithm>
#include <array>
#include <boost/json/error.hpp>

#include "cost/Records.h"
#include "extensions/JSONItems.h"
#include "fuzz/Judge.h"
#include "fuzz/Referee.h"

using koriva::fuzz::require;
using koriva::fuzz::Value;

namespace {

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
  if (Record::coding.table->read) return;  // no item is one
  const auto read = koriva::fuzz::readInMemory(
      items.size(), [items] { return koriva::json::decodeFirst<Record>(items); });
  const auto list = koriva::fuzz::parseItems(items);
  if (list.isKnown) judge(read, items, list.value ? &list.value->elements.front() : nullptr);
}

bool holdsMessages(const koriva::json::Coding& coding) {
  const auto isMessages = [](const koriva::json::Member& member) {
    return member.type->coding && holdsMessages(*member.type->coding);
  };
  return &coding == &KRMessage::coding ||
         std::any_of(coding.table->members, coding.table->members + coding.table->memberCount,
                     isMessages);
}

/// A message's creation time is multiplied whenever it is read, from the smallest double up to
/// where it is let be; other records are written as they were read.
template <class Record>
void settle(const Record& record) {
  const int mostRounds = holdsMessages(Record::coding) ? 110 : 1;
  std::string text = written(record);
  for (int round = 0; round < mostRounds; ++round) {
    const auto again = koriva::json::decode<Record>(text);
    require(again.has_value(), "what was written can be read");
    std::string next = written(*again);
    if (next == text) return;
    text = std::move(next);
  }
  require(false, "a record that was written reads the same");
}

template <class Record>
void check(std::string_view json) {
  const auto record = readAndJudge<Record>(json);
  judgeFirst<Record>(json);
  if (!record) return;
  const auto copy = *record;
  require(copy == *record, "a copy is equal");
  // A message's contents are read from a whole message, but not written as one.
  if constexpr (!std::is_same_v<Record, KRMessageKind>) settle(*record);
}

template <class... Record>
void checkOne(std::size_t number, std::string_view json, const std::tuple<Record...>*) {
  constexpr std::array checks{&check<Record>...};
  checks[number % checks.size()](json);
}

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  if (input.empty()) return;
  const auto chosen = static_cast<unsigned char>(input.front() - 'A');
  checkOne(chosen, input.substr(1), static_cast<const cost::Records*>(nullptr));
}
