// Reading and writing of the records. The first byte of the input chooses one of them ("A" is the
// first), the rest is its JSON.

#include <array>

#include "extensions/JSONCoding.h"
#include "fuzz/Fuzz.h"
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

namespace {

/// How often a record is read and written until its text must have settled. A message's creation
/// time is multiplied whenever it is read, from the smallest double up to where it is let be.
constexpr int once = 1;
constexpr int untilTimesSettle = 110;

template <class Record, int rounds>
void check(std::string_view json) {
  auto record = koriva::json::decode<Record>(json);
  const auto first = koriva::json::decodeFirst<Record>(std::string(json) + R"(,"\ud83d)");
  if (!record) return;
  require(first && *first == *record, "a record reads the same as the first of several items");
  const auto copy = *record;
  require(copy == *record, "a copy is equal");

  std::string text;
  require(koriva::json::append(text, *record), "what was read can be written");
  for (int round = 0; round <= rounds; ++round) {
    const auto again = koriva::json::decode<Record>(text);
    require(again.has_value(), "what was written can be read");
    std::string next;
    require(koriva::json::append(next, *again), "and be written again");
    if (next == text) return;
    text = std::move(next);
    require(round + 1 < rounds, "a record that was written reads the same");
  }
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
};

}  // namespace

void koriva::fuzz::run(std::string_view input) {
  if (input.empty()) return;
  const auto chosen = static_cast<unsigned char>(input.front() - 'A');
  checks[chosen % checks.size()](input.substr(1));
}
