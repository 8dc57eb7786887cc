#include "KorivaSDK/Decodings.h"
#include "KorivaSDK/State.h"
#include "extensions/JSONText.h"

using namespace koriva;

namespace {

KRError refusalOf(const KRMessageResponse& response) {
  return response.duplicateCode() ? KRError::duplicate : KRError::failed;
}

}  // namespace

void KorivaSDK::getListMessage(const std::string& groupID, const std::string& lastMessageID,
                               std::int64_t page, std::int64_t pageSize,
                               KRCompletion<KRMessageList> completion) {
  Payload payload{{"group_id", groupID}, {"pindex", page}, {"psize", pageSize}};
  if (!lastMessageID.empty()) payload.add({"last_message_id", lastMessageID});
  state_->channel.request("list_message", std::move(payload), decodeRecord<KRMessageList>,
                          std::move(completion));
}

// Servers undo one level of escapes more than JSON has, and by a rule of its own in attachments.
void KorivaSDK::sendMessage(const KRMessage& message, KRCompletion<KRMessage> completion) {
  Payload payload{
      {"group_id", message.groupID},        {"message", replaceSpecialCharacters(message.message)},
      {"sender_name", message.senderName},  {"sender_avatar", message.senderAvatar},
      {"nonce", message.messageID},         {"version", message.version},
      {"is_encrypted", message.isEncrypted}};
  if (message.messageType() != KRMessageType::text) {
    const auto attachments = escapedString(message.attachments);
    payload.add({"type", message.type});
    payload.add({"attachments", replaceAll(attachments, R"(\\)", R"(\\\)")});
  }
  state_->channel.request("create_message", std::move(payload),
                          decodePart(&KRMessageResponse::message, KRError::failed, refusalOf),
                          std::move(completion));
}

void KorivaSDK::updateMessageStatus(const KRMessage& message, std::int64_t status,
                                    KRCompletion<KRMessage> completion) {
  state_->channel.request(
      "update_message",
      {{"group_id", message.groupID}, {"message_id", message.messageID}, {"status", status}},
      decodePart(&KRMessageResponse::message, KRError::parsingFailed), std::move(completion));
}

void KorivaSDK::deleteMessage(const std::string& messageID, const std::string& groupID,
                              bool isDeleteAll, KRCompletion<std::string> completion) {
  state_->channel.request(
      "delete_message",
      {{"message_id", messageID}, {"group_id", groupID}, {"delete_all", isDeleteAll}},
      decodeResultCode, std::move(completion));
}
