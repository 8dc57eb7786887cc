#include <boost/json/value.hpp>

#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"
#include "extensions/JSONEncoder.h"

using namespace koriva;

void KorivaSDK::getListConversation(std::int64_t uin, std::int64_t page, std::int64_t pageSize,
                                    KRCompletion<KRConversationList> completion) {
  state_->channel.request("list_group",
                          {{"uin", uin},
                           {"sort_by", rawValue(KRDefines::GroupSortType::byLastMessage)},
                           {"pindex", page},
                           {"psize", pageSize}},
                          decodeRecord<KRConversationList>, std::move(completion), noFailureLine);
}

// Its failures are looked for in logs as those of "delete_group".
void KorivaSDK::deleteConversation(const std::string& conversationId, bool isSecret,
                                   KRCompletion<std::string> completion) {
  state_->channel.request(isSecret ? "delete_secret_chat" : "delete_conversation",
                          {{"group_id", conversationId}}, decodeResultCode, std::move(completion),
                          "delete_group");
}

void KorivaSDK::muteGroup(const std::string& groupID, bool isMute, KRCompletion<bool> completion) {
  state_->channel.request(isMute ? "mute_group" : "unmute_group", {{"group_id", groupID}},
                          decodeBoolean, std::move(completion));
}

void KorivaSDK::togglePin(const std::string& groupID, bool isPin, KRCompletion<bool> completion) {
  const std::string_view event = isPin ? "pin_group" : "unpin_group";
  printLine(KRLogLevel::debug, [&](const Log&) {
    return "KorivaSDK - " + std::string(event) + ", group_id: " + groupID;
  });
  state_->channel.request(event, {{"group_id", groupID}}, decodeBoolean, std::move(completion));
}

void KorivaSDK::checkGroup(const std::string& groupType, const std::vector<std::string>& userIds,
                           KRCompletion<KRConversation> completion) {
  printLine(KRLogLevel::debug, [&](const Log&) {
    const auto uins = boost::json::array(userIds.begin(), userIds.end());
    return "KorivaSDK - check_group, occupants_uins: " + json::printedForm(uins);
  });
  state_->channel.request("check_group", {{"type", groupType}, {"occupants_uins", userIds}},
                          decodeConversation, std::move(completion));
}
