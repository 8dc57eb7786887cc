#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <cstdint>
#include <string>
#include <vector>

/// The SDK's records as people read them.

std::string joined(const std::vector<std::string>& texts);

/// The time of day at which a message was made, such as "12:34".
std::string clockOf(const KRMessage& message);

/// What a message says or carries, in one line.
std::string contentsOf(const KRMessage& message);

std::string nameOf(KRDefines::OnlineStatus status);

/// Such as "connected", or "the server refused the session; trying again in 9 s".
std::string explain(const KRConnectionState& state);

/// "voice call" or "video call".
std::string nameOf(const KRCall& call);

/// A KRAnswerCall constant, such as "accepted".
std::string answerName(std::int64_t answer);
