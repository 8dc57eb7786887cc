#include "models/KRConversation.h"

#include "extensions/JSONFields.h"

using namespace koriva::json;

constinit const Coding KRLastActiveMessage::coding =
    lenient<Field<"uin", &KRLastActiveMessage::uin>,
            Field<"message_id", &KRLastActiveMessage::messageId>>;

constinit const Coding KRGroupMessageStatus::coding =
    lenient<Field<"uin", &KRGroupMessageStatus::uin>,
            Field<"message_id", &KRGroupMessageStatus::messageID>>;

constinit const Coding KRConversation::coding = lenient<
    Field<"occupants_uins", &KRConversation::occupantsUins>,
    Field<"blocked_uins", &KRConversation::blockedUins>,
    Field<"muted_uins", &KRConversation::mutedUins>,
    Field<"received_list", &KRConversation::receivedList>,
    Field<"seen_list", &KRConversation::seenList>, Field<"group_id", &KRConversation::groupID>,
    Field<"created_at", &KRConversation::createdAt>,
    Field<"last_message_id", &KRConversation::lastMessageID>,
    Field<"avatar_url", &KRConversation::avatarUrl>, Field<"type", &KRConversation::type>,
    Field<"updated_at", &KRConversation::updatedAt>, Field<"name", &KRConversation::name>,
    Field<"owner_uin", &KRConversation::ownerUin>,
    Field<"creator_uin", &KRConversation::creatorUin>,
    Field<"removed_uins", &KRConversation::removedUins>,
    Field<"last_message", &KRConversation::lastMessage>,
    Field<"status_list", &KRConversation::statusList>,
    Field<"pinned_uins", &KRConversation::pinnedUins>, Field<"secrets", &KRConversation::secrets>,
    Field<"last_active_messages", &KRConversation::lastActiveMessages>>;

constinit const Coding KRConversationList::coding =
    lenient<Field<"result", &KRConversationList::result>,
            Field<"psize", &KRConversationList::pageSize>,
            Field<"pindex", &KRConversationList::page>,
            Field<"groups", &KRConversationList::conversations>>;

constinit const Coding KRConversationResponse::coding =
    lenient<Field<"result", &KRConversationResponse::result>,
            Field<"group", &KRConversationResponse::conversation>>;

constinit const Coding KRSecretChatResponse::coding =
    required<Field<"result", &KRSecretChatResponse::result>,
             Field<"group", &KRSecretChatResponse::group>>;

KRConversation::KRConversation(const KRGroupUpdate& groupUpdate)
    : blockedUins(groupUpdate.blockedAll),
      groupID(groupUpdate.groupID),
      avatarUrl(groupUpdate.avatarUrl),
      name(groupUpdate.name),
      ownerUin(groupUpdate.ownerUin),
      addedUins(groupUpdate.addedUins),
      removedUins(groupUpdate.removedUins),
      unblockedUins(groupUpdate.unblockedAll) {}
