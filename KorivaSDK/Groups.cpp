#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"

using namespace koriva;

void KorivaSDK::createGroup(const KRConversation& group, const std::string& senderName,
                            const std::string& senderAvatar,
                            KRCompletion<KRConversation> completion) {
  auto occupants = group.occupantsUins;
  occupants.push_back(group.ownerUin);
  state_->channel.request("create_group",
                          {{"type", group.type},
                           {"owner_uin", group.ownerUin},
                           {"occupants_uins", occupants},
                           {"name", group.name},
                           {"avatar_url", group.avatarUrl},
                           {"sender_name", senderName},
                           {"sender_avatar", senderAvatar}},
                          decodeConversation, std::move(completion));
}

void KorivaSDK::updateGroup(const KRConversation& group,
                            const std::optional<std::vector<std::string>>& addedUins,
                            const std::optional<std::vector<std::string>>& removedUins,
                            KRCompletion<KRConversation> completion) {
  const std::vector<std::string> none;
  Payload payload{{"group_id", group.groupID},
                  {"push_all", addedUins ? *addedUins : none},
                  {"pull_all", removedUins ? *removedUins : none}};
  if (!group.name.empty()) payload.add({"name", group.name});
  if (!group.avatarUrl.empty()) payload.add({"avatar_url", group.avatarUrl});
  if (!group.ownerUin.empty()) payload.add({"owner_uin", group.ownerUin});
  state_->channel.request("update_group", std::move(payload), decodeConversation,
                          std::move(completion));
}

void KorivaSDK::deleteGroup(const std::string& groupID, KRCompletion<std::string> completion) {
  state_->channel.request("delete_group", {{"group_id", groupID}}, decodeResultCode,
                          std::move(completion));
}

void KorivaSDK::leaveGroup(const std::string& groupID, KRCompletion<std::string> completion) {
  state_->channel.request("leave_group", {{"group_id", groupID}}, decodeResultCode,
                          std::move(completion));
}

void KorivaSDK::sendGroupEvent(const std::string& senderID, const KRGroupEvent& event) {
  state_->channel.emit(
      "event",
      {{"group_id", event.groupID}, {"sender_uin", senderID}, {"type", event.kind.type()}});
}

void KorivaSDK::createJoinGroupLink(const std::string& groupID,
                                    KRCompletion<std::string> completion) {
  state_->channel.request("create_link", {{"group_id", groupID}},
                          decodePart(&KRGroupLinkResponse::link), std::move(completion));
}

void KorivaSDK::joinGroupWithLink(const std::string& token,
                                  KRCompletion<KRConversation> completion) {
  state_->channel.request("join_link", {{"token", token}}, decodeConversation,
                          std::move(completion));
}

void KorivaSDK::disableJoinGroupLink(const std::string& token, KRCompletion<bool> completion) {
  state_->channel.request("disable_link", {{"token", token}}, decodeBoolean, std::move(completion));
}

void KorivaSDK::getListGroupLink(const std::string& groupID, std::int64_t pageIndex,
                                 std::int64_t pageSize,
                                 KRCompletion<std::vector<std::string>> completion) {
  state_->channel.request("list_link",
                          {{"group_id", groupID}, {"pindex", pageIndex}, {"psize", pageSize}},
                          decodePart(&KRListGroupLinkResponse::links), std::move(completion));
}

void KorivaSDK::getGroupInfo(const std::string& token, KRCompletion<KRConversation> completion) {
  state_->channel.request("link_group_info", {{"token", token}}, decodeConversation,
                          std::move(completion));
}
