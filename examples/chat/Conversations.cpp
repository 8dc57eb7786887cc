#include "Conversations.h"

#include <algorithm>

#include "Text.h"

bool Conversation::isGroup() const {
  return record.type == koriva::rawValue(KRDefines::GroupType::group) ||
         record.type == koriva::rawValue(KRDefines::GroupType::publicGroup);
}

std::vector<std::string> Conversation::others(const std::string& me) const {
  std::vector<std::string> uins = record.occupantsUins;
  uins.erase(std::remove(uins.begin(), uins.end(), me), uins.end());
  return uins;
}

std::string Conversation::title(const std::string& me) const {
  if (!record.name.empty()) return record.name;
  const std::string uins = joined(others(me));
  if (uins.empty()) return "conversation " + record.groupID;
  if (isSecret) return "secret chat with " + uins;
  return isGroup() ? "group with " + uins : "user " + uins;
}

Conversation& Conversations::remember(const KRConversation& record) {
  Conversation* known = find(record.groupID);
  if (!known) {
    known = &all_.emplace_back();
    known->number = all_.size();
  }
  known->record = record;
  known->isSecret = known->isSecret || !record.secrets.empty();
  return *known;
}

Conversation* Conversations::find(const std::string& groupID) {
  const auto found = std::find_if(all_.begin(), all_.end(), [&](const Conversation& known) {
    return known.record.groupID == groupID;
  });
  return found == all_.end() ? nullptr : &*found;
}

Conversation* Conversations::at(std::size_t number) {
  return number >= 1 && number <= all_.size() ? &all_[number - 1] : nullptr;
}

Conversation& Conversations::of(const KRMessage& message) {
  if (Conversation* known = find(message.groupID)) return *known;
  KRConversation record;
  record.groupID = message.groupID;
  record.name = message.groupName;
  record.occupantsUins = message.recipientUins;
  record.occupantsUins.push_back(message.senderUin);
  return remember(record);
}
