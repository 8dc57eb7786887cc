#include "bench/Samples.h"

#include "extensions/JSONCoding.h"
#include "extensions/StringRewriters.h"
#include "models/KRConversation.h"

namespace {

template <class Document>
std::string attachments(const Document& document) {
  return KRJSONEncoder{}.encode(document);
}

/// A text message with an emoji, as most of a conversation's are.
KRMessage sampleMessage(int number, const Words& words) {
  const std::string id = std::to_string(100'000 + number);
  std::string text = std::string(words.text) + id;
  if (number % 3 == 0) text += "\n\"" + std::string(words.farewell) + "\"";
  KRMessage message("5f0c7e0a-41d2-4c8e-9d3b-" + id, "5f0c7e0a-8d14-4c1e-b7a2-000000000042",
                    koriva::replaceSpecialCharacters(text), std::string(words.sender),
                    "https://files.example/avatars/1001.png", "1001", false);
  message.groupAvatar = "https://files.example/groups/42.png";
  message.groupName = words.group;
  message.status = 3;
  message.createdAt = number % 10 == 0 ? "1600000000" : "1600000000" + id;
  message.seenUins = {"1001", "1002"};
  message.receivedUins = {"1001", "1002", "1003"};
  message.recipientUins = {"1002", "1003"};
  return message;
}

KRMessage sampleOfMix(int number, const Words& words = english) {
  KRMessage message = sampleMessage(number, words);
  const int share = number % 20;
  if (share < 14) return message;
  message.version = 1;
  if (share < 17) {
    const std::string url = "https://files.example/images/" + message.messageID + ".jpg";
    message.type = koriva::rawValue(KRMessageType::images);
    message.attachments = attachments(KRImageResponse{{{url, 1280, 960, 0}}});
  } else if (share < 19) {
    message.type = koriva::rawValue(KRMessageType::file);
    message.attachments =
        attachments(KRFileResponse{{"https://files.example/f/42", "minutes", "pdf", 48213}});
  } else {
    message.type = koriva::rawValue(KRMessageType::reply);
    message.attachments = sampleMessage(number - 1, words).toString();
  }
  return message;
}

std::string asSent(const KRMessage& message) {
  std::string json = message.toString();
  json.pop_back();
  return json + R"(,"send_uin":1001,"recv_uin":1002,"updated_at":1600000000000000})";
}

}  // namespace

std::string samplePage(int count, const Words& words) {
  std::string page = R"({"result":0,"group_id":"42","psize":1000,"pindex":0,"messages":[)";
  for (int i = 0; i < count; ++i) page += asSent(sampleOfMix(i, words)) + ",";
  page.back() = ']';
  return page + "}";
}

std::string sampleConversations(int count) {
  KRConversationList list;
  list.page = 0;
  list.pageSize = count;
  for (int i = 0; i < count; ++i) {
    KRConversation& group = list.conversations.emplace_back();
    group.groupID = "5f0c7e0a-8d14-4c1e-b7a2-" + std::to_string(100'000 + i);
    group.name = "Project " + std::to_string(i);
    group.avatarUrl = "https://files.example/groups/" + std::to_string(i) + ".png";
    group.type = 2;
    group.ownerUin = group.creatorUin = "1001";
    group.createdAt = group.updatedAt = "1600000000000000";
    group.occupantsUins = {"1001", "1002", "1003", "1004"};
    group.mutedUins = {"1003"};
    group.lastMessage = sampleOfMix(i);
    group.lastMessageID = group.lastMessage->messageID;
    for (const auto& uin : group.occupantsUins) {
      group.seenList[uin] = group.receivedList[uin] = group.lastMessageID;
      group.lastActiveMessages.push_back({uin, group.lastMessageID});
    }
  }
  return KRJSONEncoder{}.encode(list);
}

std::string samplePush() { return asSent(sampleOfMix(1)); }
std::string sampleImagePush() { return asSent(sampleOfMix(14)); }

KRMessage outgoingText() {
  return {"5f0c7e0a-41d2-4c8e-9d3b-000000100001",
          "10010001002",
          "Shall we meet at noon? 😀 I can bring the slides.\n\"See you\"",
          "User 1001",
          "https://files.example/avatars/1001.png",
          "1001",
          false};
}

KRMessage outgoingImage() {
  KRMessage message = outgoingText();
  message.version = 1;
  message.type = koriva::rawValue(KRMessageType::images);
  message.attachments = sampleOfMix(14).attachments;
  return message;
}
