#pragma once

#include <string_view>

/// What has to hold at every moment of every life. Each is broken under its name.
namespace koriva::simulation::invariant {

using Name = std::string_view;

// Completions.
inline constexpr Name completesOnce = "a completion is called at most once";
inline constexpr Name completes = "a completion that is due is called before its time is over";
inline constexpr Name completesWithReason =
    "a completion tells of the answer, or that there was none once its time is over";
inline constexpr Name completionEnds = "a completion is destroyed once it can be called no more";
inline constexpr Name mainThread = "application code is called and destroyed on the main thread";
inline constexpr Name notWithin = "no request calls back before it returns";

// Sessions.
inline constexpr Name noneStays =
    "a connection that was replaced, left or logged out of, or whose client is gone, is closed";
inline constexpr Name logoutIsFinal = "after a logout delegates hear nothing of the session";
inline constexpr Name connectsOnce =
    "a connection tells of one connect at most, then of one disconnect at most, and has a cause";
inline constexpr Name tellsAll = "delegates hear of every connect and disconnect of a session";
inline constexpr Name disconnectTells =
    "delegates have heard of a disconnect when the call returns";
inline constexpr Name pushesInOrder =
    "what arrives on the session's connection is told in order, once, and nothing else is";
inline constexpr Name everybodyHears = "every delegate of the moment hears what one of them hears";
inline constexpr Name isConnectedIsTrue = "isConnected() says whether the session stands";
inline constexpr Name tellsState = "the client says, and has told, what becomes of its session";
inline constexpr Name attemptsEnd = "an attempt to connect, and a dead connection, end in time";
inline constexpr Name connectsAgain = "with a server that is well the client is connected again";
inline constexpr Name asksOnce = "a client that asks for a token does not ask again meanwhile";
inline constexpr Name dialsAsTold = "a client dials the URL it was given, as who it was told to be";
inline constexpr Name answersHeartbeats = "heartbeats are answered";
inline constexpr Name readsOn = "a client goes on reading";
inline constexpr Name connectsSoon = "ten seconds after a disconnect a client connects again";
inline constexpr Name leavesAlone = "no attempt to connect again disturbs a connection that stands";
inline constexpr Name timerWaits = "the timer connects ten seconds after the last attempt";
inline constexpr Name dialsSeldom = "a client dials four times a second at most";

// What is sent.
inline constexpr Name sentInOrder = "what was emitted while connected is sent, once and in order";
inline constexpr Name farewell =
    "a connection that is left says farewell, after what was sent before";
inline constexpr Name transportRules = "a transport is opened once and used while it is open";

// The run loop.
inline constexpr Name readyTasks = "a ready task runs once, in order, when the client is ready";
inline constexpr Name firstException = "the first exception of an event is rethrown, once";
inline constexpr Name nothingThrown = "the library throws nothing into the application";
inline constexpr Name wakesUp = "the application is woken for whatever there is to do";
inline constexpr Name wakesAgain = "after a wake-up that has thrown the application is woken again";
inline constexpr Name pollsAll = "a poll that ends without an exception has run all that is ready";
inline constexpr Name runsOn = "a run lasts until its end, a stop or an exception of its own";
inline constexpr Name stops = "a stop ends every run under way, or the next, and is never lost";
inline constexpr Name drivesToDepth = "the run loop is driven in callbacks to a depth of eight";
inline constexpr Name detachTells = "delegates have heard of the disconnect when detach returns";
inline constexpr Name comesToRest = "there is an end to what is to be done at one time";

// The end.
inline constexpr Name nothingIsLeft = "with nobody left nothing of the library is left";
inline constexpr Name memory = "memory is as before";
inline constexpr Name sameRun = "the same seed gives the same run";
inline constexpr Name survives = "the process lives on";

}  // namespace koriva::simulation::invariant
