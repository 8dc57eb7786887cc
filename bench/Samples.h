#pragma once

#include <string>

#include "models/KRMessage.h"

/// The acknowledgement of "list_message" as a server sends it: 70 % texts, 15 % images, 10 % files
/// and 5 % replies, about 700 bytes each, with the fields that clients do not write.
std::string samplePage(int count);

/// The acknowledgement of "list_group".
std::string sampleConversations(int count);

/// The first item of a "message" push: a text, and images.
std::string samplePush();
std::string sampleImagePush();

/// Messages as applications send them.
KRMessage outgoingText();
KRMessage outgoingImage();
