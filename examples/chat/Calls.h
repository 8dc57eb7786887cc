#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <cstdint>
#include <string>

#include "Console.h"
#include "Conversations.h"
#include "Requests.h"

/// One call at a time: who has called whom, and the signalling that leads to a connected call. A
/// real application has a media stack make the session descriptions and candidates; here they are
/// placeholders, and nobody hears anything.
class Calls {
 public:
  Calls(Console& console, Requests& requests, std::string me);

  void start(const Conversation& conversation, bool withVideo);
  void answer(bool isAccepted);
  void hangUp();

  /// Ends what is going on, if anything is.
  void hangUpQuietly();

  /// What came in by KorivaDelegate::didReceiveCall, typing notices apart.
  void handle(const KRCallEvent& event);

  /// The state in words; with a call under way the server is asked for its view as well.
  void showState();

 private:
  enum class State { none, dialling, ringing, connecting, connected };

  void handle(const KRCall& call);
  void handle(const KRAnswerCall& answer);
  void handle(const KRStopCall& stop);
  void handle(const KRIceSdp& description);
  void handle(const KRIceCandidate& candidate);
  void handle(const KREvent& event);
  void handle(const KRStartCall& event);

  void send(const KRCallEvent& event);
  void sendAnswer(const KRCall& call, std::int64_t answer);
  void sendDescription(std::int64_t type);
  void sendCandidate();
  void become(State state);
  std::string stateName() const;
  void note(const std::string& text);

  Console& console_;
  Requests& requests_;
  std::string me_;
  State state_ = State::none;
  KRCall call_;
  std::string peer_;  ///< the other end of the signalling
};
