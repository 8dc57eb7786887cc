#pragma once

#include <tuple>

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

namespace koriva::cost {

/// All records that are read. New ones come last, so that the inputs of the fuzzer, which begin
/// with a record's number, keep their meaning.
using Records =
    std::tuple<KRMessage, KRMessageList, KRMessageResponse, KRConversation, KRConversationList,
               KRConversationResponse, KRSecretChatResponse, KRLastActiveMessage,
               KRGroupMessageStatus, KRGroupUpdate, KRGroupUpdateType, KRImage, KRVideo, KRAudio,
               KRFile, KRSticker, KRImageResponse, KRImageURLsResponse, KRVideoResponse,
               KRAudioResponse, KRFileResponse, KRStickerResponse, KRCall, KRCallResponse,
               KRStartCall, KRAnswerCall, KRStopCall, KRIceSdp, KRIceCandidate, KREvent, KRBlock,
               KRBlockContact, KRBlockContactList, KRGroupLinkResponse, KRListGroupLinkResponse,
               KRSecretChat, KRStartSecretChat, KRAcceptSecretChat, KRDeleteSecretChat,
               KRUserStatus, KRUserStatusResponse, KRLoginEvent, KRMessageKind>;

}  // namespace koriva::cost
