#pragma once

#include <string>
#include <string_view>

#include "models/KRMessage.h"

/// What people have written.
struct Words {
  std::string_view text, farewell, sender, group;
};
inline constexpr Words english{"Shall we meet at noon? 😀 I can bring the slides, and coffee ☕ #",
                               "See you", "User 1001", "Project 42"};
inline constexpr Words russian{"Встретимся в полдень? 😀 Я принесу слайды и кофе ☕ #", "До встречи",
                               "Участник 1001", "Проект 42"};

/// The acknowledgement of "list_message" as a server sends it: 70 % texts, 15 % images, 10 % files
/// and 5 % replies, about 700 bytes each, with the fields that clients do not write.
std::string samplePage(int count, const Words& words = english);

/// The acknowledgement of "list_group".
std::string sampleConversations(int count);

/// The first item of a "message" push: a text, and images.
std::string samplePush();
std::string sampleImagePush();

/// Messages as applications send them.
KRMessage outgoingText();
KRMessage outgoingImage();
