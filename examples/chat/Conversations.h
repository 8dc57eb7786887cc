#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <deque>
#include <string>
#include <vector>

/// A conversation that the client has met, with what it keeps about it.
struct Conversation {
  std::size_t number = 0;  ///< how the user names it: #1, #2 ...
  KRConversation record;
  bool isSecret = false;
  std::vector<KRMessage> unseen;  ///< arrived while another conversation was open
  std::string oldestShown;        ///< where `/history more` goes on

  bool isGroup() const;
  std::vector<std::string> others(const std::string& me) const;

  /// Its name, or the other user's id.
  std::string title(const std::string& me) const;
};

/// All of them, numbered in the order in which they were met.
class Conversations {
 public:
  /// Pointers and references to conversations stay good.
  Conversation& remember(const KRConversation& record);
  Conversation* find(const std::string& groupID);
  Conversation* at(std::size_t number);

  /// Knows the conversation of a message that comes before its conversation.
  Conversation& of(const KRMessage& message);

 private:
  std::deque<Conversation> all_;
};
